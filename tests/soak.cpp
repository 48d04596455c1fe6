// soak [MINUTES [ROUTES]]: a host under a steady load. Every route makes 10 ms frames and is edited
// once per second, two FIFOs have a slow reader, a console polls. Ends with figures; fails when
// memory or descriptors grow.
#include <dirent.h>
#include <unistd.h>
#include <vantrel.h>
#include <zelk/Zelk.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/ConsoleClient.h"

namespace {

using namespace zelk;
using Clock = std::chrono::steady_clock;

std::atomic<bool> ending{false};
std::atomic<long> edits{0}, refused{0}, replies{0}, frames{0};

long ResidentKilobytes() {
  long pages = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

long Descriptors() {
  long count = 0;
  DIR* const folder = opendir("/proc/self/fd");
  while (folder != nullptr && readdir(folder) != nullptr)
    ++count;
  if (folder != nullptr) closedir(folder);
  return count;
}

void Count(bool good) {
  ++edits;
  if (!good) ++refused;
}

// A chain of three whose middle comes and goes; once a minute all of it is built anew.
class Load {
 public:
  explicit Load(char letter) : name(std::string("Route") + letter) { Build(); }

  void Edit(int second) {
    if (second % 60 == 59) {
      Zelk::Instance()->DeleteRoute(route);
      Build();
    } else if (middle != nullptr) {
      Count(route->Delete(middle) == 0);
      middle = nullptr;
    } else {
      middle = route->NewBlock("worker.so", false, false, {});
      Count(Join(source, 1, middle, 0) != nullptr && Join(middle, 0, sink, 1) != nullptr);
    }
  }

 private:
  void Build() {
    route = Zelk::Instance()->NewRoute(name.c_str(), nullptr);
    source = route->NewBlock("worker.so", true, false, {"10000"});
    sink = route->NewBlock("worker.so", false, true, {});
    middle = nullptr;
    Count(Join(source, 0, sink, 0) != nullptr);
    Count(route->Start() == 0);
  }
  Link* Join(Block* from, unsigned long out, Block* to, unsigned long in) {
    return route->NewLink(48000, S16_LE, 2, 480, from, out, to, in);
  }

  const std::string name;
  Route* route = nullptr;
  Block* source = nullptr;
  Block* middle = nullptr;
  Block* sink = nullptr;
};

// The writer keeps to the clock, the reader falls behind it.
void DriveFifo() {
  FIFO* const fifo = Zelk::Instance()->NewFIFO(48000, 4, 4800, 480);
  std::thread reader([fifo] {
    int samples[480];
    long long time = 0;
    while (fifo->Produce(samples, 480, true, &time) == 0)
      usleep(12'000);
  });
  const int samples[480] = {};
  for (long long frame = 0; !ending; ++frame) {
    fifo->Consume(samples, 480, false, frame * 10'000);
    usleep(10'000);
  }
  fifo->Shutdown();
  reader.join();
  Zelk::Instance()->DeleteFIFO(fifo);
}

// Notes the frames of all routes since their last start.
void Poll(test::ConsoleClient& client) {
  const std::string report = client.Ask("status");
  ++replies;
  long sum = 0;
  for (std::size_t at = 0; (at = report.find("ING, ", at)) != std::string::npos; ++at)
    sum += std::atol(report.c_str() + at + 5);
  frames = sum;
}

void PollConsole() {
  while (!ending) {
    test::ConsoleClient client;
    for (int i = 0; i < 100 && !ending; ++i) {
      Poll(client);
      usleep(100'000);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const double minutes = argc > 1 ? std::atof(argv[1]) : 1;
  const int routes = argc > 2 ? std::atoi(argv[2]) : 26;
  Zelk::Instance();
  vantrel_set_level(1);
  std::vector<std::unique_ptr<Load>> loads;
  for (int i = 0; i < routes; ++i)
    loads.push_back(std::make_unique<Load>(static_cast<char>('A' + i)));
  std::thread fifos[] = {std::thread(DriveFifo), std::thread(DriveFifo)};
  std::thread console(PollConsole);

  const int seconds = static_cast<int>(minutes * 60);
  const auto start = Clock::now();
  // Memory settles while pools and caches fill.
  const int settled = std::min(65, seconds / 3);
  long memory = 0, files = 0;
  for (int second = 0; second < seconds; ++second) {
    if (second == settled) {
      memory = ResidentKilobytes();
      files = Descriptors();
    }
    for (auto& load : loads)
      load->Edit(second);
    std::this_thread::sleep_until(start + std::chrono::seconds(second + 1));
  }
  const long memoryNow = ResidentKilobytes(), filesNow = Descriptors();
  ending = true;
  console.join();
  for (std::thread& fifo : fifos)
    fifo.join();
  std::printf("%d routes, %d s: %ld edits, %ld refused, %ld status replies\n", routes, seconds,
              edits.load(), refused.load(), replies.load());
  std::printf("%ld frames by routes since they were built\n", frames.load());
  std::printf("resident memory %ld kB after %d s, %ld kB at the end; descriptors %ld and %ld\n",
              memory, settled, memoryNow, files, filesNow);
  const bool flat = memoryNow < memory + memory / 10 + 1024 && filesNow <= files + 4;
  if (!flat) std::puts("NOT FLAT");
  return flat && refused == 0 ? 0 : 1;
}
