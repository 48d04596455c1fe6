// The times of consecutive elements, without a division for each.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

namespace zelk {

/// Element k after a time T has T + k * 1,000,000 / rate, the quotient truncated. The quotients
/// repeat, plus a constant, after rate / gcd(rate, 1,000,000) elements: 6 at 48 kHz, 441 at
/// 44.1 kHz. A table of one such period, or of whole ones, leaves an addition per element, which
/// compilers vectorise.
///
/// Constant after construction. Times that leave 64 bits wrap around.
class SampleTimes {
 public:
  /// For runs of at most `longest` elements. A `rate` of 0 keeps no times.
  SampleTimes(unsigned int rate, std::size_t longest) {
    if (rate == 0) return;
    const std::size_t period = rate / std::gcd(rate, MICROSECONDS);
    const std::size_t periods = (SHORTEST_TABLE + period - 1) / period;
    offsets.resize(std::min(periods * period, longest) + 1);
    for (std::size_t k = 0; k < offsets.size(); ++k)
      offsets[k] = k * MICROSECONDS / rate;
  }

  bool Kept() const { return !offsets.empty(); }

  /// Gives `count` elements their times from `first` on. Returns the time after the last.
  long long Fill(long long* times, std::size_t count, long long first) const {
    const std::size_t table = offsets.size() - 1;
    auto start = static_cast<std::uint64_t>(first);
    while (count > table) {
      Add(times, table, start);
      start += offsets[table];
      times += table;
      count -= table;
    }
    Add(times, count, start);
    return static_cast<long long>(start + offsets[count]);
  }

 private:
  static constexpr unsigned int MICROSECONDS = 1'000'000;
  static constexpr std::size_t SHORTEST_TABLE = 256;

  void Add(long long* times, std::size_t count, std::uint64_t start) const {
    const std::uint64_t* offset = offsets.data();
    for (std::size_t k = 0; k < count; ++k)
      times[k] = static_cast<long long>(start + offset[k]);
  }

  std::vector<std::uint64_t> offsets;  // of element k, up to the first one after the table
};

}  // namespace zelk
