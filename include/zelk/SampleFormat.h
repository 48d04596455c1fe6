// How one sample is encoded.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zelk {

/// Encoding of one sample of one channel. Samples of a frame are interleaved by channel.
///
/// The values are part of the binary interface. A value outside the nine is carried unharmed, has
/// samples of zero bytes, and so makes every buffer and copy that is computed from it empty.
enum SampleFormat : std::uint32_t {
  BYTE = 0,      ///< opaque bytes, one per sample
  S16_LE = 1,    ///< signed 16 bit, little endian
  S16_BE = 2,    ///< signed 16 bit, big endian
  S32_LE = 3,    ///< signed 32 bit, little endian
  S32_BE = 4,    ///< signed 32 bit, big endian
  S24_3LE = 5,   ///< signed 24 bit packed in three bytes, little endian
  S24_3BE = 6,   ///< signed 24 bit packed in three bytes, big endian
  FLOAT_LE = 7,  ///< IEEE 754 single precision, little endian, full scale ±1.0
  FLOAT_BE = 8,  ///< IEEE 754 single precision, big endian, full scale ±1.0
};

/// Number of formats; valid values are 0 to `SAMPLE_FORMATS` - 1.
inline constexpr std::uint32_t SAMPLE_FORMATS = 9;

/// Bytes of one sample of one channel; 0 for a value outside the nine. [any-thread, real-time safe]
constexpr std::size_t BytesPerSample(SampleFormat format) noexcept {
  constexpr std::uint8_t bytes[SAMPLE_FORMATS] = {1, 2, 2, 4, 4, 3, 3, 4, 4};
  return format < SAMPLE_FORMATS ? bytes[format] : 0;
}

/// Name of a format as it is written in commands, reports and file names; "?" for a value outside
/// the nine. The text is static. [any-thread, real-time safe]
[[maybe_unused]] static const char* FormatToString(SampleFormat format) noexcept {
  static const char* const s_tbl[SAMPLE_FORMATS] = {
      "BYTE", "S16_LE", "S16_BE", "S32_LE", "S32_BE", "S24_3LE", "S24_3BE", "FLOAT_LE", "FLOAT_BE"};
  return format < SAMPLE_FORMATS ? s_tbl[format] : "?";
}

}  // namespace zelk
