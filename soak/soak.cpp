// soak [MINUTES [ROUTES]]: a host under a steady load. Every route makes 10 ms frames and is edited
// once per second, two FIFOs have a slow reader, a console polls. Ends with figures; fails when
// memory or descriptors grow.
#include <dirent.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif
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
std::atomic<long> replies{0};
long edits = 0, refused = 0;
long frames = 0, late = 0, latest = 0;  // of the routes that are no more

long ResidentKilobytes() {
  long pages = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// What the heap has given out, with what threads hold ready for themselves, and what it has taken
// for that from the system: more, since each of its arenas keeps what its busiest moment took.
// Zeros where it does not tell.
struct Heap {
  long used = 0, taken = 0;
};
Heap HeapKilobytes() {
#ifdef __GLIBC__
  const struct mallinfo2 heap = mallinfo2();
  return {static_cast<long>((heap.uordblks + heap.hblkhd) / 1024),
          static_cast<long>((heap.arena + heap.hblkhd) / 1024)};
#else
  return {};
#endif
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

// Two ways from source to sink, of which the longer comes and goes; once a minute all is built
// anew.
class Load {
 public:
  explicit Load(char letter) : name(std::string("Route") + letter) { Build(); }

  void Edit(int second) {
    if (second % 60 == 59) {
      NoteFrames();
      Zelk::Instance()->DeleteRoute(route);
      Build();
    } else if (middle != nullptr) {
      Count(route->Delete(middle) == 0);
      middle = nullptr;
    } else {
      middle = route->NewBlock("clocked.so", false, false, {});
      Count(Join(source, 1, middle, 0) != nullptr && Join(middle, 0, sink, 1) != nullptr);
    }
  }

  void NoteFrames() {
    std::vector<std::string> figures;
    Count(route->GetParameter(sink, 1, figures) == 0);
    frames += std::stol(figures.at(0));
    late += std::stol(figures.at(1));
    latest = std::max(latest, std::stol(figures.at(2)));
  }

 private:
  void Build() {
    route = Zelk::Instance()->NewRoute(name.c_str(), nullptr);
    source = route->NewBlock("clocked.so", true, false, {});
    sink = route->NewBlock("clocked.so", false, true, {});
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

void PollConsole() {
  while (!ending) {
    test::ConsoleClient client;
    for (int i = 0; i < 100 && !ending; ++i) {
      if (client.Ask("status").find("fifo_1 ") != std::string::npos) ++replies;
      usleep(100'000);
    }
  }
}

// What the machine does to a thread that has nothing to do with routes: how often it wakes as late
// as a late frame.
std::atomic<long> wakes{0}, lateWakes{0};
void WakeEvery10Ms() {
  constexpr auto PERIOD = std::chrono::milliseconds(10);
  for (auto due = Clock::now() + PERIOD; !ending; due += PERIOD) {
    std::this_thread::sleep_until(due);
    ++wakes;
    if (Clock::now() - due > PERIOD) ++lateWakes;
  }
}

struct Figures {
  long resident = ResidentKilobytes(), descriptors = Descriptors();
  Heap heap = HeapKilobytes();
};

void Print(int second, const Figures& now) {
  std::printf("%5d s: resident %ld kB, heap %ld kB of %ld kB, descriptors %ld\n", second,
              now.resident, now.heap.used, now.heap.taken, now.descriptors);
  std::fflush(stdout);
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
  std::thread console(PollConsole), bystander(WakeEvery10Ms);

  const int seconds = static_cast<int>(minutes * 60);
  const auto start = Clock::now();
  // Memory settles while pools and caches fill. It is looked at when all has just been built anew.
  const int settled = std::min(60, seconds / 6 * 2);
  Figures then;
  for (int second = 0; second < seconds; ++second) {
    if (second == settled) then = Figures();
    if (second == settled || second % 60 == 0) Print(second, Figures());
    for (auto& load : loads)
      load->Edit(second);
    std::this_thread::sleep_until(start + std::chrono::seconds(second + 1));
  }
  for (auto& load : loads)
    load->NoteFrames();
  const Figures now;
  Print(seconds, now);
  ending = true;
  console.join();
  bystander.join();
  for (std::thread& fifo : fifos)
    fifo.join();
  std::printf("%d routes, %d s: %ld edits, %ld refused, %ld status replies\n", routes, seconds,
              edits, refused, replies.load());
  std::printf(
      "%ld frames, %ld (%.3f %%) late by 10 ms or more, the latest by %.1f ms; a thread without a "
      "route: %.3f %% late\n",
      frames, late, 100.0 * static_cast<double>(late) / static_cast<double>(frames),
      static_cast<double>(latest) / 1000,
      100.0 * static_cast<double>(lateWakes) / static_cast<double>(wakes));
  const bool flat = now.resident < then.resident + then.resident / 10 + 1024 &&
                    now.heap.used < then.heap.used + 256 && now.descriptors <= then.descriptors + 4;
  if (!flat) std::puts("NOT FLAT");
  return flat && refused == 0 ? 0 : 1;
}
