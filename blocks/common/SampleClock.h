// Time stamps counted in samples, so that they never drift.
#pragma once

#include <climits>

namespace zelk::blocks {

/// Microseconds that `samples` take at `rate` Hz, rounded down; exact for any stream length.
/// `rate` must not be 0. [any-thread, real-time safe]
constexpr long long Microseconds(long long samples, unsigned int rate) noexcept {
  return samples / rate * 1'000'000 + samples % rate * 1'000'000 / rate;
}

/// The time of a stream's next frame, for a block that makes samples or changes their number.
class SampleClock {
 public:
  /// Starts at `time`, in microseconds; -1 for a stream without times, as is one that nobody's
  /// clock reaches and sums would overflow.
  void Start(long long time) noexcept {
    origin = time < LLONG_MAX / 2 ? time : -1;
    count = 0;
  }
  bool Running() const noexcept { return origin >= 0; }
  long long Samples() const noexcept { return count; }

  /// Time of the next sample, -1 without times.
  long long Now(unsigned int rate) const noexcept {
    return origin < 0 ? -1 : origin + Microseconds(count, rate);
  }
  void Advance(long long samples) noexcept { count += samples; }

 private:
  long long origin = -1;
  long long count = 0;
};

}  // namespace zelk::blocks
