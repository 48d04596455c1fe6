// A row compares contestants on the same work. Google Benchmark measures them in short slices whose
// order it shuffles, so that whatever else the machine does falls on all of them alike.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/// What one slice took.
struct Slice {
  double seconds = 0;
  double median = 0;  ///< of the single calls, in seconds; 0 where they are not measured one by one
  double p99 = 0;
};

/// Does the work `count` times, at least once.
using Work = std::function<Slice(std::int64_t count)>;

/// Enters "row/contestant" or "row/contestant/size". `prepare` runs before the first slice, and
/// what the work holds lives until the process ends: a row's contestants are measured in turns.
void Add(const std::string& name, std::function<Work()> prepare);

/// Processor time of the calling thread: what other processes take does not count.
double ThreadSeconds();

/// Wall-clock time.
double Now();

/// The work of one thread that `once` does, by processor time.
template <typename Once>
Work OnThisThread(Once once) {
  return [once](std::int64_t count) {
    const double begin = ThreadSeconds();
    for (std::int64_t i = 0; i < count; ++i)
      once();
    return Slice{ThreadSeconds() - begin};
  };
}

/// Sums up single calls, in seconds. Sorts them.
Slice Summary(double seconds, std::vector<double>& calls);

}  // namespace bench
