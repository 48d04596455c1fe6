#include "Bench.h"

#include <benchmark/benchmark.h>
#include <time.h>
#include <vantrel.h>
#include <zelk/Zelk.h>

#include <algorithm>
#include <map>
#include <memory>

#include "Allocations.h"

namespace bench {

namespace {

struct Contestant {
  std::function<Work()> prepare;
  Work work;
  double allocations = 0;  // per unit of work, once warm
};

std::map<std::string, Contestant>& Contestants() {
  static std::map<std::string, Contestant> contestants;
  return contestants;
}

double Seconds(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

void Prepare(Contestant& contestant) {
  if (contestant.work) return;
  constexpr int count = 64;
  contestant.work = contestant.prepare();
  contestant.work(count);
  const std::uint64_t before = StartCounting();
  contestant.work(count);
  contestant.allocations = static_cast<double>(StopCounting() - before) / count;
}

void Measure(benchmark::State& state, Contestant& contestant) {
  Prepare(contestant);
  Slice slice;
  while (state.KeepRunningBatch(state.max_iterations)) {
    slice = contestant.work(state.max_iterations);
    state.SetIterationTime(slice.seconds);
  }
  state.counters["allocations"] = contestant.allocations;
  if (slice.median > 0) {
    state.counters["median_ns"] = slice.median * 1e9;
    state.counters["p99_ns"] = slice.p99 * 1e9;
  }
}

}  // namespace

void Add(const std::string& name, std::function<Work()> prepare) {
  Contestant& contestant = Contestants()[name];
  contestant.prepare = std::move(prepare);
  benchmark::RegisterBenchmark(name.c_str(), [&contestant](benchmark::State& state) {
    Measure(state, contestant);
  })->UseManualTime();
}

double ThreadSeconds() {
  return Seconds(CLOCK_THREAD_CPUTIME_ID);
}

double Now() {
  return Seconds(CLOCK_MONOTONIC);
}

Slice Summary(double seconds, std::vector<double>& calls) {
  std::sort(calls.begin(), calls.end());
  return {seconds, calls[calls.size() / 2], calls[calls.size() - 1 - calls.size() / 100]};
}

}  // namespace bench

void AddChain();
void AddChainOfJuce();
void AddChainOfGStreamer();
void AddChainOfAvfilter();
void AddFan();
void AddBuilding();
void AddFifo();
void AddActions();
void AddStockBlocks();
void AddLogging();

int main(int argc, char** argv) {
  // The level stays as shipped. The first use of the library switches the outputs on: after it, the
  // records of the edits go nowhere, instead of to a terminal.
  zelk::Zelk::Instance();
  vantrel_disable_options(VANTREL_STDERR | VANTREL_STDOUT);
  AddChain();
#ifdef BENCH_JUCE
  AddChainOfJuce();
#endif
#ifdef BENCH_GSTREAMER
  AddChainOfGStreamer();
#endif
#ifdef BENCH_AVFILTER
  AddChainOfAvfilter();
#endif
  AddFan();
  AddBuilding();
  AddFifo();
  AddActions();
  AddStockBlocks();
  AddLogging();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  bench::Contestants().clear();  // the routes' sources wait for work: let them end
}
