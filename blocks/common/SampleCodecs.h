// How each of the nine formats is stored, for loops that know the format at compile time.
#pragma once

#include <zelk/SampleFormat.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace zelk::blocks {

// Spelt so that compilers do not see a byte swap, for which baseline x86 has no vector instruction.
constexpr std::uint8_t Swapped(std::uint8_t word) noexcept {
  return word;
}
constexpr std::uint16_t Swapped(std::uint16_t word) noexcept {
  return static_cast<std::uint16_t>(word << 8 | word >> 8);
}
constexpr std::uint32_t Swapped(std::uint32_t word) noexcept {
  word = (word >> 8 & 0x00FF00FF) | (word & 0x00FF00FF) * 256;
  return word << 16 | word >> 16;
}

/// Numbers of 8, 16 or 32 bits; `Word` is unsigned.
template <class Word, std::endian Order>
struct Integers {
  using Number = std::make_signed_t<Word>;
  static constexpr int bits = 8 * sizeof(Word);
  static constexpr std::size_t bytes = sizeof(Word);

  static Number Load(const unsigned char* p) noexcept {
    Word word;
    std::memcpy(&word, p, sizeof(word));
    return static_cast<Number>(Order == std::endian::native ? word : Swapped(word));
  }
  static void Store(unsigned char* p, std::int32_t v) noexcept {
    const Word low = static_cast<Word>(v);
    const Word word = Order == std::endian::native ? low : Swapped(low);
    std::memcpy(p, &word, sizeof(word));
  }
};

/// 24 bits in the low end of a native word.
struct Unpacked24 : Integers<std::uint32_t, std::endian::native> {
  static constexpr int bits = 24;
};

/// 24 bits in three bytes, which no vectoriser likes: they pass through words.
template <std::endian Order>
struct Packed24 {
  static constexpr int bits = 24;
  static constexpr std::size_t bytes = 3;

  // Whole words at a time, but nothing behind the last sample; four in a row, so that compilers do
  // not try to make vectors of them one by one.

  static void Unpack(const unsigned char* src, std::int32_t* dst, std::size_t n) noexcept {
    std::size_t i = 0;
    for (; i + 4 < n; i += 4)
      for (std::size_t k = i; k < i + 4; ++k)
        dst[k] = Load(src + 3 * k);
    for (; i < n; ++i) {
      unsigned char word[4] = {};
      std::memcpy(word, src + 3 * i, 3);
      dst[i] = Load(word);
    }
  }

  /// Each word overwrites the surplus byte of the one before.
  static void Pack(const std::int32_t* src, unsigned char* dst, std::size_t n) noexcept {
    std::size_t i = 0;
    for (; i + 4 < n; i += 4)
      for (std::size_t k = i; k < i + 4; ++k)
        Store(dst + 3 * k, src[k]);
    for (; i < n; ++i) {
      unsigned char word[4];
      Store(word, src[i]);
      std::memcpy(dst + 3 * i, word, 3);
    }
  }

 private:
  static std::int32_t Load(const unsigned char* p) noexcept {
    std::uint32_t word;
    std::memcpy(&word, p, 4);
    if constexpr (Order != std::endian::native) word = Swapped(word);
    if constexpr (Order == std::endian::little) word <<= 8;
    return static_cast<std::int32_t>(word) >> 8;
  }
  static void Store(unsigned char* p, std::int32_t v) noexcept {
    auto word = static_cast<std::uint32_t>(v);
    if constexpr (Order == std::endian::big) word <<= 8;
    if constexpr (Order != std::endian::native) word = __builtin_bswap32(word);
    std::memcpy(p, &word, 4);
  }
};

/// Floating point, full scale ±1.
template <class Number, std::endian Order>
struct Reals {
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
};
template <class Number>
using Native = Reals<Number, std::endian::native>;

template <class Codec>
inline constexpr bool isReal = Codec::bits == 0;

/// Steps from zero to full scale.
template <class Codec>
inline constexpr double steps = isReal<Codec> ? 1 : static_cast<double>(1LL << (Codec::bits - 1));

/// The form in which loops handle a format.
template <class Codec>
struct UnpackedOf {
  using Type = Codec;
};
template <std::endian Order>
struct UnpackedOf<Packed24<Order>> {
  using Type = Unpacked24;
};

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
