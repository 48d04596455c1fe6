// How each format is stored, and the loops that all conversions consist of. Only for the files that
// are compiled as if no number were infinite or NaN (CMakeLists.txt); these loops look for NaN
// themselves.
//
// A format is a template argument, so that a loop knows it: it is looked at once per call, and the
// compiler vectorises each loop by itself.
#pragma once

#include "common/Samples.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <type_traits>

namespace zelk::blocks {

/// Numbers of 8, 16 or 32 bits; `Word` is unsigned.
template <class Word, std::endian Order>
struct Integers {
  static constexpr int bits = 8 * sizeof(Word);
  static constexpr std::size_t bytes = sizeof(Word);

  static std::int32_t Load(const unsigned char* p) noexcept {
    Word word;
    std::memcpy(&word, p, sizeof(word));
    return static_cast<std::make_signed_t<Word>>(Native(word));
  }
  static void Store(unsigned char* p, std::int32_t v) noexcept {
    const Word word = Native(static_cast<Word>(v));
    std::memcpy(p, &word, sizeof(word));
  }
  static Word Native(Word word) noexcept {
    if constexpr (Order == std::endian::native) return word;
    if constexpr (sizeof(Word) == 2) return __builtin_bswap16(word);
    if constexpr (sizeof(Word) == 4) return __builtin_bswap32(word);
    return word;
  }
};

/// 24 bits in the low end of a native word.
struct Unpacked24 : Integers<std::uint32_t, std::endian::native> {
  static constexpr int bits = 24;
};

/// 24 bits in three bytes, which no vectoriser likes: they pass through words.
template <std::endian Order>
struct Packed24 {
  using Word = Integers<std::uint32_t, Order>;
  static constexpr int bits = 24;
  static constexpr std::size_t bytes = 3;
  static constexpr bool atLowEnd = Order == std::endian::little;

  /// Reads whole words, but nothing behind the last sample.
  static void Unpack(const unsigned char* src, std::int32_t* dst, std::size_t n) noexcept {
    for (std::size_t i = 0; i + 1 < n; ++i)
      dst[i] = FromWord(Word::Load(src + 3 * i));
    if (n == 0) return;
    unsigned char last[4] = {};
    std::memcpy(last, src + 3 * (n - 1), 3);
    dst[n - 1] = FromWord(Word::Load(last));
  }

  /// Writes whole words, each over the surplus byte of the one before.
  static void Pack(const std::int32_t* src, unsigned char* dst, std::size_t n) noexcept {
    for (std::size_t i = 0; i + 1 < n; ++i)
      Word::Store(dst + 3 * i, ToWord(src[i]));
    if (n == 0) return;
    unsigned char last[4];
    Word::Store(last, ToWord(src[n - 1]));
    std::memcpy(dst + 3 * (n - 1), last, 3);
  }

 private:
  static std::int32_t FromWord(std::int32_t word) noexcept {
    if constexpr (!atLowEnd) return word >> 8;
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(word) << 8) >> 8;
  }
  static std::int32_t ToWord(std::int32_t v) noexcept {
    return atLowEnd ? v : static_cast<std::int32_t>(static_cast<std::uint32_t>(v) << 8);
  }
};

/// Floating point, full scale ±1.
template <class Number, std::endian Order>
struct Reals {
  using Bits = std::conditional_t<sizeof(Number) == 4, std::int32_t, std::int64_t>;
  static constexpr int bits = 0;
  static constexpr std::size_t bytes = sizeof(Number);

  static Number Load(const unsigned char* p) noexcept {
    if constexpr (Order != std::endian::native)
      return std::bit_cast<Number>(Integers<std::uint32_t, Order>::Load(p));
    Number number;
    std::memcpy(&number, p, sizeof(number));
    return number;
  }
  static void Store(unsigned char* p, Number v) noexcept {
    if constexpr (Order != std::endian::native)
      Integers<std::uint32_t, Order>::Store(p, std::bit_cast<std::int32_t>(v));
    else
      std::memcpy(p, &v, sizeof(v));
  }

  /// NaN becomes 0. Looks at the bits, since the compiler believes that there is no NaN.
  static Number WithoutNaN(Number v) noexcept {
    constexpr Bits infinity = sizeof(Number) == 4 ? 0x7F800000 : 0x7FF0000000000000;
    const auto pattern = std::bit_cast<Bits>(v);
    const Bits magnitude = pattern & std::numeric_limits<Bits>::max();
    const Bits isNaN = (infinity - magnitude) >> (8 * sizeof(Number) - 1);
    return std::bit_cast<Number>(pattern & ~isNaN);
  }
};
template <class Number>
using Native = Reals<Number, std::endian::native>;

template <class Codec>
inline constexpr bool isReal = Codec::bits == 0;

/// Steps from zero to full scale.
template <class Codec>
inline constexpr double steps = isReal<Codec> ? 1 : static_cast<double>(1LL << (Codec::bits - 1));

// To nearest, ties to even, by adding a number so large that the fraction falls out of the
// mantissa: baseline x86 does not vectorise `lrint`. Either the sum's lowest bits are the integer,
// or, with 24 bits, for which a float's mantissa has no room beside a sign, the large number is
// taken off again.
template <int Bits>
std::int32_t Round(float v) noexcept {
  if constexpr (Bits <= 16) return std::bit_cast<std::int32_t>(v + 0x1.8p23F) - 0x4B400000;
  const std::uint32_t sign = std::bit_cast<std::uint32_t>(v) & 0x80000000;
  const float large = std::bit_cast<float>(sign | std::bit_cast<std::uint32_t>(0x1p23F));
  return static_cast<std::int32_t>((v + large) - large);
}
template <int Bits>
std::int32_t Round(double v) noexcept {
  return static_cast<std::int32_t>(
      static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(v + 0x1.8p52)));
}

template <class Codec, class Work>
void StoreNumber(unsigned char* p, Work v) noexcept {
  if constexpr (isReal<Codec>) {
    Codec::Store(p, static_cast<decltype(Codec::Load(p))>(v));
  } else {
    constexpr Work lowest = static_cast<Work>(-steps<Codec>);
    Codec::Store(p, Round<Codec::bits>(std::min(std::max(v, lowest), -lowest - Work{1})));
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
  static void Loop(const unsigned char* __restrict src, unsigned char* __restrict dst,
                   std::size_t n, Factor factor) noexcept {
    using Work =
        std::conditional_t<std::is_same_v<Factor, Unchanged>, decltype(In::Load(src)), Factor>;
    for (std::size_t i = 0; i < n; ++i) {
      auto v = In::Load(src + i * In::bytes);
      if constexpr (isReal<In> && !isReal<Out>) v = In::WithoutNaN(v);
      StoreNumber<Out>(dst + i * Out::bytes, static_cast<Work>(v) * factor);
    }
  }
};

/// dst += src * factor; `dst` is floating point.
struct AddTimesFactor {
  template <class In, class Out, class Factor>
  static void Loop(const unsigned char* __restrict src, unsigned char* __restrict dst,
                   std::size_t n, Factor factor) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
      unsigned char* const to = dst + i * Out::bytes;
      const auto v = static_cast<Factor>(In::Load(src + i * In::bytes));
      Out::Store(to, Out::Load(to) + v * factor);
    }
  }
};

/// dst = src, both integers: the same part of full scale, rounded to nearest, ties to even.
struct Requantise {
  template <class In, class Out, class Factor>
  static void Loop(const unsigned char* __restrict src, unsigned char* __restrict dst,
                   std::size_t n, Factor) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
      const auto raw = static_cast<std::uint32_t>(In::Load(src + i * In::bytes));
      auto v = static_cast<std::int32_t>(raw << (32 - In::bits));
      if constexpr (Out::bits < In::bits) {
        constexpr std::int32_t half = 1 << (31 - Out::bits);
        const std::int32_t odd = v >> (32 - Out::bits) & 1;
        v = std::min(v, std::numeric_limits<std::int32_t>::max() - half) + (half - 1) + odd;
      }
      Out::Store(dst + i * Out::bytes, v >> (32 - Out::bits));
    }
  }
};

template <class Codec>
struct UnpackedOf {
  using Type = Codec;
};
template <std::endian Order>
struct UnpackedOf<Packed24<Order>> {
  using Type = Unpacked24;
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

/// Calls `use` with the codec of `format`.
template <class Use>
void WithCodec(SampleFormat format, Use&& use) noexcept {
  constexpr auto le = std::endian::little;
  constexpr auto be = std::endian::big;
  switch (format) {
    case BYTE:
      return use(Integers<std::uint8_t, std::endian::native>{});
    case S16_LE:
      return use(Integers<std::uint16_t, le>{});
    case S16_BE:
      return use(Integers<std::uint16_t, be>{});
    case S32_LE:
      return use(Integers<std::uint32_t, le>{});
    case S32_BE:
      return use(Integers<std::uint32_t, be>{});
    case S24_3LE:
      return use(Packed24<le>{});
    case S24_3BE:
      return use(Packed24<be>{});
    case FLOAT_LE:
      return use(Reals<float, le>{});
    case FLOAT_BE:
      return use(Reals<float, be>{});
  }
}

}  // namespace zelk::blocks
