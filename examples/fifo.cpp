// Sends a second of sound through a route and takes it back, without a file:
// host -> FIFO -> fifosrc -> gain -> fifosink -> FIFO -> host
#include <zelk/Ioctl.h>
#include <zelk/Zelk.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

constexpr unsigned RATE = 48000;
constexpr long FRAME = 480;
constexpr long CAPACITY = 4 * FRAME;  // 40 ms: how far host and route may drift apart
constexpr long TOTAL = RATE + 7;      // no multiple of the frame, to show that nothing is lost
constexpr long CHUNK = 1000;          // the host keeps its own step, below the capacity

float Tone(long i) {
  return 0.5F * std::sin(static_cast<float>(i % 48) * 0.1309F);
}

// Runs on a thread of its own, as a sound card's callback or a network reader would.
void Send(zelk::FIFO& to) {
  std::vector<float> chunk;
  for (long at = 0; at < TOTAL; at += CHUNK) {
    chunk.clear();
    for (long i = at; i < std::min(at + CHUNK, TOTAL); ++i)
      chunk.push_back(Tone(i));
    if (to.Consume(chunk.data(), static_cast<long>(chunk.size()), true, at * 1'000'000 / RATE) != 0)
      return;  // shut down
  }
}

// Returns how many samples came back at half their level, up to the first that did not.
long Receive(zelk::FIFO& from) {
  std::vector<float> chunk(CHUNK);
  long good = 0;
  while (good < TOTAL) {
    const long count = std::min(CHUNK, TOTAL - good);
    long long time = -1;
    if (from.Produce(chunk.data(), count, true, &time) != 0) break;
    for (long i = 0; i < count; ++i, ++good)
      if (std::abs(chunk[static_cast<std::size_t>(i)] - Tone(good) / 2) > 1e-5F) return good;
  }
  return good;
}

// A route that fails will never fill the FIFO again.
struct Watcher : zelk::Route::Callbacks {
  explicit Watcher(zelk::FIFO& fifo) : out(fifo) {}
  void OnStopped(zelk::Route::StopReason reason) override {
    if (reason == zelk::Route::FAILURE) out.Shutdown();
  }
  zelk::FIFO& out;
};

bool Build(zelk::Route& route, zelk::FIFO& in, zelk::FIFO& out) {
  zelk::Block* source = route.NewBlock("fifosrc.so", true, false, {"block"});
  zelk::Block* gain = route.NewBlock("gain.so", false, false, {"-6.0206"});
  zelk::Block* sink = route.NewBlock("fifosink.so", false, true, {"block"});
  if (!source || !gain || !sink) return false;

  // The library never joins a FIFO to a block: host and block agree on that between themselves. The
  // announced total lets the source end the route with the last sample.
  long long total = TOTAL;
  return source->ioctl(zelk::IOCTL_BIND_FIFO, &in) == 0 &&
         source->ioctl(zelk::IOCTL_TOTAL_SAMPLES, &total) == 0 &&
         sink->ioctl(zelk::IOCTL_BIND_FIFO, &out) == 0 &&
         route.NewLink(RATE, zelk::FLOAT_LE, 1, FRAME, source, 0, gain, 0) &&
         route.NewLink(RATE, zelk::FLOAT_LE, 1, FRAME, gain, 0, sink, 0) && route.Start() == 0;
}

}  // namespace

int main() {
  zelk::Zelk* zelk = zelk::Zelk::Instance();
  zelk::FIFO* in = zelk->NewFIFO(RATE, sizeof(float), CAPACITY, 0);
  zelk::FIFO* out = zelk->NewFIFO(RATE, sizeof(float), CAPACITY, 0);
  Watcher watcher(*out);
  zelk::Route* route = zelk->NewRoute("RouteA", &watcher);

  long good = 0;
  if (Build(*route, *in, *out)) {
    std::thread sender([&] { Send(*in); });
    good = Receive(*out);
    in->Shutdown();  // wakes the sender, had the route failed
    sender.join();
  }
  // In this order: nobody waits in a FIFO, nothing runs that uses one, then they go.
  in->Shutdown();
  out->Shutdown();
  zelk->DeleteRoute(route);
  zelk->DeleteFIFO(in);
  zelk->DeleteFIFO(out);
  std::printf("%ld of %ld samples came back at half their level\n", good, TOTAL);
  return good == TOTAL ? 0 : 1;
}
