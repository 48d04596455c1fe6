// Noise that makes rounding errors sound like noise instead of distortion.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zelk::blocks {

/// White, triangular in distribution, the same in every run. [route-thread, real-time safe]
class TriangularNoise {
 public:
  /// Adds the difference of two uniform numbers, up to `step` either way.
  template <class Real>
  void AddTo(Real* values, double step, std::size_t count) {
    const Real scale = static_cast<Real>(step / 65536);
    for (std::size_t i = 0; i < count; ++i) {
      state = state * 6364136223846793005U + 1442695040888963407U;
      const auto bits = static_cast<std::uint32_t>(state >> 32);
      values[i] +=
          scale * static_cast<Real>(static_cast<int>(bits >> 16) - static_cast<int>(bits & 0xFFFF));
    }
  }

 private:
  std::uint64_t state = 1;
};

}  // namespace zelk::blocks
