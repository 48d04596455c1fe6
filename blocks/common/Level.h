// Decibels, and level changes that do not click.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace zelk::blocks {

/// At or below this many dB a level is exactly zero.
inline constexpr double SILENT_DB = -144;

inline double DbToLinear(double db) {
  return db <= SILENT_DB ? 0 : std::pow(10.0, db / 20);
}
inline double LinearToDb(double linear) {
  return linear <= 0 ? SILENT_DB : std::max(SILENT_DB, 20 * std::log10(linear));
}

/// Time over which a changed parameter reaches its new value.
inline constexpr double RAMP_SECONDS = 0.02;

/// A value that moves to its target in a straight line, one step per sample, and then is the target
/// exactly. [route-thread, real-time safe]
class Ramp {
 public:
  explicit Ramp(double value) : current(value), target(value) {}

  void Jump(double value) {
    current = target = value;
    left = 0;
  }

  /// Reaches `value` with the `samples`-th call of `Next()` from now.
  void MoveTo(double value, long long samples) {
    target = value;
    left = std::max(0LL, samples);
    if (left == 0) current = value;
    step = left > 0 ? (target - current) / static_cast<double>(left) : 0;
  }

  bool Moving() const { return left > 0; }
  double Current() const { return current; }
  double Target() const { return target; }
  long long Left() const { return left; }

  /// The value for the next sample.
  double Next() {
    if (left > 0) current = --left == 0 ? target : current + step;
    return current;
  }

 private:
  double current;
  double target;
  double step = 0;
  long long left = 0;
};

/// Multiplies `samples` instants of `channels` interleaved samples by the ramp.
template <class Real>
void Apply(Ramp& ramp, Real* data, long samples, unsigned int channels) {
  Real* const end = data + static_cast<std::size_t>(samples) * channels;
  while (data != end && ramp.Moving()) {
    const Real gain = static_cast<Real>(ramp.Next());
    for (unsigned int c = 0; c < channels; ++c)
      *data++ *= gain;  // NOLINT(clang-analyzer-core.uninitialized.Assign): the caller filled it
  }
  const Real gain = static_cast<Real>(ramp.Current());
  if (gain == Real{1}) return;
  const std::size_t rest = static_cast<std::size_t>(end - data);
  for (std::size_t i = 0; i < rest; ++i)
    data[i] *= gain;
}

}  // namespace zelk::blocks
