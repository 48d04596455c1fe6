#include "common/Samples.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <type_traits>

namespace zelk::blocks {
namespace {

// One codec per format, one loop per codec: the format is looked at once per call, and the compiler
// vectorises each loop by itself.

template <std::endian Order, class Word>
Word LoadWord(const unsigned char* p) noexcept {
  Word word;
  std::memcpy(&word, p, sizeof(word));
  if constexpr (Order == std::endian::native) return word;
  if constexpr (sizeof(Word) == 2) return __builtin_bswap16(word);
  if constexpr (sizeof(Word) == 4) return __builtin_bswap32(word);
  return word;
}

template <std::endian Order, class Word>
void StoreWord(unsigned char* p, Word word) noexcept {
  if constexpr (Order != std::endian::native) {
    if constexpr (sizeof(Word) == 2) word = __builtin_bswap16(word);
    if constexpr (sizeof(Word) == 4) word = __builtin_bswap32(word);
  }
  std::memcpy(p, &word, sizeof(word));
}

// Adding 1.5 × 2^(mantissa bits) pushes the fraction out of the mantissa: the addition itself
// rounds to nearest, and the integer stands in the low bits. Faster than `lrint`, which baseline
// x86 does not vectorise.
inline std::int32_t Round(float value) noexcept {
  return std::bit_cast<std::int32_t>(value + 0x1.8p23F) - 0x4B400000;
}
inline std::int32_t Round(double value) noexcept {
  return static_cast<std::int32_t>(
      static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(value + 0x1.8p52)));
}

// NaN becomes 0. Looks at the bits: this file is compiled as if no NaN existed, because only then
// do minimum and maximum become one instruction each.
inline float Number(float value) noexcept {
  const auto bits = std::bit_cast<std::int32_t>(value);
  const std::int32_t isNaN = (0x7F800000 - (bits & 0x7FFFFFFF)) >> 31;
  return std::bit_cast<float>(bits & ~isNaN);
}
inline double Number(double value) noexcept {
  const auto bits = std::bit_cast<std::int64_t>(value);
  const std::int64_t isNaN = (0x7FF0000000000000 - (bits & 0x7FFFFFFFFFFFFFFF)) >> 63;
  return std::bit_cast<double>(bits & ~isNaN);
}

template <int Bits, class Real>
std::int32_t ToInteger(Real value) noexcept {
  // The float trick holds 22 bits only.
  using Work = std::conditional_t<(Bits > 16), double, Real>;
  constexpr Work scale = static_cast<Work>(1LL << (Bits - 1));
  const Work v = static_cast<Work>(Number(value)) * scale;
  return Round(std::min(std::max(v, -scale), scale - Work{1}));
}

template <int Bits, class Real>
Real FromInteger(std::int32_t value) noexcept {
  return static_cast<Real>(value) * (Real{1} / static_cast<Real>(1LL << (Bits - 1)));
}

struct S8 {
  static constexpr int bits = 8, bytes = 1;
  static std::int32_t Load(const unsigned char* p) noexcept { return static_cast<std::int8_t>(*p); }
  static void Store(unsigned char* p, std::int32_t v) noexcept {
    *p = static_cast<unsigned char>(v);
  }
};

template <std::endian Order>
struct S16 {
  static constexpr int bits = 16, bytes = 2;
  static std::int32_t Load(const unsigned char* p) noexcept {
    return static_cast<std::int16_t>(LoadWord<Order, std::uint16_t>(p));
  }
  static void Store(unsigned char* p, std::int32_t v) noexcept {
    StoreWord<Order>(p, static_cast<std::uint16_t>(v));
  }
};

template <std::endian Order>
struct S24 {
  static constexpr int bits = 24, bytes = 3;
  static constexpr int low = Order == std::endian::little ? 0 : 2;
  static std::int32_t Load(const unsigned char* p) noexcept {
    const std::uint32_t v =
        std::uint32_t{p[low]} << 8 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2 - low]} << 24;
    return static_cast<std::int32_t>(v) >> 8;
  }
  static void Store(unsigned char* p, std::int32_t v) noexcept {
    p[low] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
    p[2 - low] = static_cast<unsigned char>(v >> 16);
  }
};

template <std::endian Order>
struct S32 {
  static constexpr int bits = 32, bytes = 4;
  static std::int32_t Load(const unsigned char* p) noexcept {
    return static_cast<std::int32_t>(LoadWord<Order, std::uint32_t>(p));
  }
  static void Store(unsigned char* p, std::int32_t v) noexcept {
    StoreWord<Order>(p, static_cast<std::uint32_t>(v));
  }
};

template <class Codec>
struct Integers {
  static constexpr int bytes = Codec::bytes;
  template <class Real>
  static Real Load(const unsigned char* p) noexcept {
    return FromInteger<Codec::bits, Real>(Codec::Load(p));
  }
  template <class Real>
  static void Store(unsigned char* p, Real v) noexcept {
    Codec::Store(p, ToInteger<Codec::bits>(v));
  }
};

template <std::endian Order>
struct Floats {
  static constexpr int bytes = 4;
  template <class Real>
  static Real Load(const unsigned char* p) noexcept {
    return std::bit_cast<float>(LoadWord<Order, std::uint32_t>(p));
  }
  template <class Real>
  static void Store(unsigned char* p, Real v) noexcept {
    StoreWord<Order>(p, std::bit_cast<std::uint32_t>(static_cast<float>(v)));
  }
};

template <class Codec, class Real>
void DecodeLoop(const unsigned char* __restrict src, Real* __restrict dst, std::size_t n) noexcept {
  for (std::size_t i = 0; i < n; ++i)
    dst[i] = Codec::template Load<Real>(src + i * Codec::bytes);
}

template <class Codec, class Real>
void EncodeLoop(const Real* __restrict src, unsigned char* __restrict dst, std::size_t n) noexcept {
  for (std::size_t i = 0; i < n; ++i)
    Codec::template Store<Real>(dst + i * Codec::bytes, src[i]);
}

/// Calls `use` with the codec of `format`.
template <class Use>
void WithCodec(SampleFormat format, Use&& use) noexcept {
  constexpr auto le = std::endian::little;
  constexpr auto be = std::endian::big;
  switch (format) {
    case BYTE:
      return use(Integers<S8>{});
    case S16_LE:
      return use(Integers<S16<le>>{});
    case S16_BE:
      return use(Integers<S16<be>>{});
    case S32_LE:
      return use(Integers<S32<le>>{});
    case S32_BE:
      return use(Integers<S32<be>>{});
    case S24_3LE:
      return use(Integers<S24<le>>{});
    case S24_3BE:
      return use(Integers<S24<be>>{});
    case FLOAT_LE:
      return use(Floats<le>{});
    case FLOAT_BE:
      return use(Floats<be>{});
  }
}

template <class Real>
void ConvertThrough(SampleFormat from, const unsigned char* src, SampleFormat to,
                    unsigned char* dst, std::size_t count) noexcept {
  Real piece[512];  // stays in the nearest cache
  while (count > 0) {
    const std::size_t n = std::min(count, std::size(piece));
    Decode(from, src, piece, n);
    Encode(to, piece, dst, n);
    src += n * BytesPerSample(from);
    dst += n * BytesPerSample(to);
    count -= n;
  }
}

}  // namespace

void Decode(SampleFormat format, const unsigned char* src, float* dst, std::size_t count) noexcept {
  WithCodec(format, [=](auto codec) { DecodeLoop<decltype(codec)>(src, dst, count); });
}

void Decode(SampleFormat format, const unsigned char* src, double* dst,
            std::size_t count) noexcept {
  WithCodec(format, [=](auto codec) { DecodeLoop<decltype(codec)>(src, dst, count); });
}

void Encode(SampleFormat format, const float* src, unsigned char* dst, std::size_t count) noexcept {
  WithCodec(format, [=](auto codec) { EncodeLoop<decltype(codec)>(src, dst, count); });
}

void Encode(SampleFormat format, const double* src, unsigned char* dst,
            std::size_t count) noexcept {
  WithCodec(format, [=](auto codec) { EncodeLoop<decltype(codec)>(src, dst, count); });
}

void Convert(SampleFormat from, const unsigned char* src, SampleFormat to, unsigned char* dst,
             std::size_t count) noexcept {
  if (from == to) {
    const std::size_t bytes = count * BytesPerSample(from);
    if (bytes > 0) std::memcpy(dst, src, bytes);
  } else if (NeedsDouble(from) || NeedsDouble(to)) {
    ConvertThrough<double>(from, src, to, dst, count);
  } else {
    ConvertThrough<float>(from, src, to, dst, count);
  }
}

}  // namespace zelk::blocks
