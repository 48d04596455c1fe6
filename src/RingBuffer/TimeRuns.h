// The times of a ring's elements, kept per run instead of per element.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zelk {

/// Element k of a run that began with the time T has T + k * 1,000,000 / rate, the quotient
/// truncated. Only the beginnings are stored, and a time is computed when it is asked for: a
/// transfer costs one division, however many elements it moves.
///
/// Elements are known by their position, counted from the last `Clear`. The caller locks.
class TimeRuns {
 public:
  /// For a ring of `slots` elements. A `rate` of 0 keeps no times.
  TimeRuns(unsigned int samplesPerSecond, std::size_t slots)
      // No more runs than slots can matter, and a queue's one empty place.
      : rate(samplesPerSecond), runs(samplesPerSecond == 0 ? 0 : slots + 1) {}

  bool Kept() const { return rate != 0; }

  void Clear() { oldest = end = 0; }

  /// Begins a run. A run that the ring has overwritten as a whole makes room for it.
  void Begin(std::uint64_t position, long long time) {
    runs[end] = {position, static_cast<std::uint64_t>(time)};
    end = After(end);
    if (end == oldest) oldest = After(oldest);
  }

  /// The time of an element of some run. Forgets the runs before that one.
  long long At(std::uint64_t position) {
    for (std::size_t next = After(oldest); next != end && runs[next].position <= position;
         next = After(next)) {
      oldest = next;
    }
    const Run& run = runs[oldest];
    return static_cast<long long>(run.time + Duration(position - run.position));
  }

  /// `time` moved on by `count` elements. It wraps around where it leaves 64 bits.
  long long Advance(long long time, std::uint64_t count) const {
    return static_cast<long long>(static_cast<std::uint64_t>(time) + Duration(count));
  }

 private:
  struct Run {
    std::uint64_t position;
    std::uint64_t time;
  };

  std::uint64_t Duration(std::uint64_t count) const { return count * 1'000'000 / rate; }
  std::size_t After(std::size_t index) const { return index + 1 == runs.size() ? 0 : index + 1; }

  const unsigned int rate;
  std::vector<Run> runs;  // a queue, from `oldest` up to `end`
  std::size_t oldest = 0;
  std::size_t end = 0;
};

}  // namespace zelk
