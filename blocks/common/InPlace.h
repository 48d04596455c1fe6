// Samples that are what a block calculates with already need no conversion and no copy.
#pragma once

#include "common/Samples.h"

#include <cstdint>
#include <type_traits>

namespace zelk::blocks {

template <class Real>
bool InPlace(SampleFormat format, const unsigned char* data) noexcept {
  return std::is_same_v<Real, float> && format == FLOAT_NATIVE &&
         reinterpret_cast<std::uintptr_t>(data) % alignof(float) == 0;
}

/// Where `count` samples can be read as numbers: in their place, or decoded into `scratch`.
template <class Real>
const Real* Decoded(SampleFormat format, const unsigned char* data, Real* scratch,
                    std::size_t count) noexcept {
  if (InPlace<Real>(format, data)) return reinterpret_cast<const Real*>(data);
  Decode(format, data, scratch, count);
  return scratch;
}

/// Where to put the numbers that `Encoded()` makes samples of.
template <class Real>
Real* ToEncode(SampleFormat format, unsigned char* data, Real* scratch) noexcept {
  return InPlace<Real>(format, data) ? reinterpret_cast<Real*>(data) : scratch;
}
template <class Real>
void Encoded(SampleFormat format, const Real* numbers, unsigned char* data,
             std::size_t count) noexcept {
  if (!InPlace<Real>(format, data)) Encode(format, numbers, data, count);
}

}  // namespace zelk::blocks
