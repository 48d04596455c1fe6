// Conversion between the nine sample formats and floating point.
#pragma once

#include <zelk/SampleFormat.h>

#include <cstddef>

namespace zelk::blocks {

/// The format of this machine's own `short`, `int` and `float`.
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
inline constexpr SampleFormat S16_NATIVE = S16_BE, S32_NATIVE = S32_BE, FLOAT_NATIVE = FLOAT_BE;
inline constexpr SampleFormat S24_NATIVE = S24_3BE;
#else
inline constexpr SampleFormat S16_NATIVE = S16_LE, S32_NATIVE = S32_LE, FLOAT_NATIVE = FLOAT_LE;
inline constexpr SampleFormat S24_NATIVE = S24_3LE;
#endif

/// Decode `count` samples (all channels together) to full scale ±1.0, times `factor`, which must be
/// finite: an integer of b bits is divided by 2^(b-1), so -1.0 is reached and +1.0 is not. A byte
/// counts as a signed 8 bit number, so that a link's zero bytes are silence. Every integer is exact
/// in double; in float, 32 bit integers keep their upper 24 bits. Buffers need no alignment and
/// must not overlap. A format outside the nine does nothing. [any-thread, real-time safe]
void Decode(SampleFormat format, const unsigned char* src, float* dst, std::size_t count,
            float factor = 1) noexcept;
void Decode(SampleFormat format, const unsigned char* src, double* dst, std::size_t count,
            double factor = 1) noexcept;

/// Add what `Decode()` gives to `sum`. [any-thread, real-time safe]
void AddTo(float* sum, SampleFormat format, const unsigned char* src, std::size_t count,
           float factor) noexcept;
void AddTo(double* sum, SampleFormat format, const unsigned char* src, std::size_t count,
           double factor) noexcept;

/// `Decode()` of `a` and `AddTo()` of `b` in one pass. [any-thread, real-time safe]
void Sum(SampleFormat format, const unsigned char* a, float aFactor, const unsigned char* b,
         float bFactor, float* dst, std::size_t count) noexcept;
void Sum(SampleFormat format, const unsigned char* a, double aFactor, const unsigned char* b,
         double bFactor, double* dst, std::size_t count) noexcept;

/// The way back. Integers are rounded to nearest (ties to even) and clipped to their range, NaN is
/// 0; so decoding and encoding returns every integer of up to 24 bits, and of 32 bits in double.
/// Float samples pass as they are, beyond ±1.0 and NaN too. [any-thread, real-time safe]
void Encode(SampleFormat format, const float* src, unsigned char* dst, std::size_t count) noexcept;
void Encode(SampleFormat format, const double* src, unsigned char* dst, std::size_t count) noexcept;

/// There and back at once: the samples times `factor`, which must be finite.
/// [any-thread, real-time safe]
void Scale(SampleFormat format, const unsigned char* src, unsigned char* dst, std::size_t count,
           double factor) noexcept;

/// From one format to another, exact wherever the target can hold the value; equal formats are
/// copied byte for byte. [any-thread, real-time safe]
void Convert(SampleFormat from, const unsigned char* src, SampleFormat to, unsigned char* dst,
             std::size_t count) noexcept;

/// Whether samples need double to come back exactly.
constexpr bool NeedsDouble(SampleFormat format) noexcept {
  return format == S32_LE || format == S32_BE;
}

}  // namespace zelk::blocks
