// The loops that all conversions consist of, for the files that are compiled to vectorise them
// (CMakeLists.txt): formats are looked at once per call, and each loop is vectorised by itself.
#pragma once

#include "common/SampleCodecs.h"
#include "common/Samples.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <type_traits>

namespace zelk::blocks {

// To nearest, ties to even, in the lowest bits of the result, by adding a number so large that the
// fraction falls out of the mantissa: baseline x86 does not vectorise `lrint`. With 24 bits a
// float's mantissa has no room for a sign beside them, and the large number has to be taken off
// again.
template <int Bits>
std::int32_t Round(float v) noexcept {
  if constexpr (Bits <= 16) return std::bit_cast<std::int32_t>(v + 0x1.8p23F);
  const std::uint32_t sign = std::bit_cast<std::uint32_t>(v) & 0x80000000;
  const float large = std::bit_cast<float>(sign | std::bit_cast<std::uint32_t>(0x1p23F));
  return static_cast<std::int32_t>((v + large) - large);
}
template <int Bits>
std::int32_t Round(double v) noexcept {
  return static_cast<std::int32_t>(
      static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(v + 0x1.8p52)));
}

/// The range of an integer format, in a form that is no constant to the compiler: else g++ makes
/// branches of the two comparisons, which it does not vectorise.
template <class Codec, class Work>
struct Range {
  Range() noexcept {
    const volatile Work least = static_cast<Work>(-steps<Codec>);
    lowest = least;
    highest = -lowest - 1;
  }
  Work lowest;
  Work highest;
};

template <class Codec, class Work>
void StoreNumber(unsigned char* p, Work v, const Range<Codec, Work>& range) noexcept {
  if constexpr (isReal<Codec>) {
    Codec::Store(p, static_cast<decltype(Codec::Load(p))>(v));
  } else {
    // In this order and sense each becomes one instruction.
    v = v > range.lowest ? v : range.lowest;
    v = v < range.highest ? v : range.highest;
    Codec::Store(p, Round<Codec::bits>(v));
  }
}

/// In the place of a factor: leaves even the bits of a NaN as they are.
struct Unchanged {
  template <class Number>
  friend Number operator*(Number number, Unchanged) noexcept {
    return number;
  }
};

/// dst = src * factor, where numbers of integer formats count in steps.
struct TimesFactor {
  template <class In, class Out, class Factor>
  [[gnu::noinline]] static void Loop(const unsigned char* __restrict src,
                                     unsigned char* __restrict dst, std::size_t n,
                                     Factor factor) noexcept {
    using Work =
        std::conditional_t<std::is_same_v<Factor, Unchanged>, decltype(In::Load(src)), Factor>;
    const Range<Out, Work> range;
    for (std::size_t i = 0; i < n; ++i) {
      auto v = static_cast<Work>(In::Load(src + i * In::bytes));
      if constexpr (isReal<In> && !isReal<Out>) v = std::isnan(v) ? 0 : v;
      StoreNumber(dst + i * Out::bytes, v * factor, range);
    }
  }
};

/// dst += src * factor; `dst` is floating point.
struct AddTimesFactor {
  template <class In, class Out, class Factor>
  [[gnu::noinline]] static void Loop(const unsigned char* __restrict src,
                                     unsigned char* __restrict dst, std::size_t n,
                                     Factor factor) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
      unsigned char* const to = dst + i * Out::bytes;
      const auto v = static_cast<Factor>(In::Load(src + i * In::bytes));
      Out::Store(to, Out::Load(to) + v * factor);
    }
  }
};

/// dst = a * aFactor + b * bFactor; `Real` is what `dst` consists of.
template <class In, class Real>
[[gnu::noinline]] void SumLoop(const unsigned char* __restrict a, Real aFactor,
                               const unsigned char* __restrict b, Real bFactor,
                               Real* __restrict dst, std::size_t n) noexcept {
  for (std::size_t i = 0; i < n; ++i)
    dst[i] = static_cast<Real>(In::Load(a + i * In::bytes)) * aFactor +
             static_cast<Real>(In::Load(b + i * In::bytes)) * bFactor;
}

/// dst = src, both integers: the same part of full scale, rounded to nearest, ties to even.
struct Requantise {
  template <class In, class Out, class Factor>
  [[gnu::noinline]] static void Loop(const unsigned char* __restrict src,
                                     unsigned char* __restrict dst, std::size_t n,
                                     Factor) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
      const auto v = In::Load(src + i * In::bytes);
      unsigned char* const to = dst + i * Out::bytes;
      if constexpr (Out::bits < In::bits) {
        using Number = typename In::Number;
        constexpr int drop = In::bits - Out::bits;
        constexpr Number half = 1 << (drop - 1);
        constexpr Number most = static_cast<Number>((1LL << (In::bits - 1)) - 1 - half);
        Out::Store(to, (std::min(v, most) + (half - 1) + (v >> drop & 1)) >> drop);
      } else if constexpr (Out::bits == In::bits) {
        Out::Store(to, v);
      } else {
        constexpr int more = Out::bits - In::bits;
        Out::Store(to, static_cast<std::int32_t>(static_cast<std::uint32_t>(v) << more));
      }
    }
  }
};

/// Runs `Kind`'s loop over `n` samples; packed ones in pieces that stay in the nearest cache.
template <class Kind, class In, class Out, class Factor>
void Run(const unsigned char* src, unsigned char* dst, std::size_t n, Factor factor) noexcept {
  using PlainIn = typename UnpackedOf<In>::Type;
  using PlainOut = typename UnpackedOf<Out>::Type;
  constexpr bool unpack = !std::is_same_v<In, PlainIn>;
  constexpr bool pack = !std::is_same_v<Out, PlainOut>;
  if constexpr (!unpack && !pack) return Kind::template Loop<In, Out>(src, dst, n, factor);
  std::int32_t ins[512];
  std::int32_t outs[512];
  while (n > 0) {
    const std::size_t count = std::min(n, std::size(ins));
    const unsigned char* from = src;
    unsigned char* to = dst;
    if constexpr (unpack) {
      In::Unpack(src, ins, count);
      from = reinterpret_cast<const unsigned char*>(ins);
    }
    if constexpr (pack) to = reinterpret_cast<unsigned char*>(outs);
    Kind::template Loop<PlainIn, PlainOut>(from, to, count, factor);
    if constexpr (pack) Out::Pack(outs, dst, count);
    src += count * In::bytes;
    dst += count * Out::bytes;
    n -= count;
  }
}

}  // namespace zelk::blocks
