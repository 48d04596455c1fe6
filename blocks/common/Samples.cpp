#include "common/SampleLoops.h"

namespace zelk::blocks {
namespace {

const unsigned char* Bytes(const void* numbers) noexcept {
  return static_cast<const unsigned char*>(numbers);
}
unsigned char* Bytes(void* numbers) noexcept {
  return static_cast<unsigned char*>(numbers);
}

template <class Real>
void DecodeTimes(SampleFormat format, const unsigned char* src, Real* dst, std::size_t count,
                 Real factor) noexcept {
  WithCodec(format, [=](auto in) {
    using In = decltype(in);
    if (isReal<In> && factor == 1)
      Run<TimesFactor, In, Native<Real>>(src, Bytes(dst), count, Unchanged());
    else
      Run<TimesFactor, In, Native<Real>>(src, Bytes(dst), count,
                                         static_cast<Real>(factor / steps<In>));
  });
}

template <class Real>
void AddDecoded(SampleFormat format, const unsigned char* src, Real* sum, std::size_t count,
                Real factor) noexcept {
  WithCodec(format, [=](auto in) {
    using In = decltype(in);
    Run<AddTimesFactor, In, Native<Real>>(src, Bytes(sum), count,
                                          static_cast<Real>(factor / steps<In>));
  });
}

template <class Real>
void SumDecoded(SampleFormat format, const unsigned char* a, Real aFactor, const unsigned char* b,
                Real bFactor, Real* dst, std::size_t count) noexcept {
  WithCodec(format, [=](auto in) {
    using In = decltype(in);
    constexpr Real step = static_cast<Real>(1 / steps<In>);
    if constexpr (In::bytes == 3) {  // unpacking is what takes the time
      DecodeTimes(format, a, dst, count, aFactor);
      AddDecoded(format, b, dst, count, bFactor);
    } else {
      SumLoop<In>(a, aFactor * step, b, bFactor * step, dst, count);
    }
  });
}

template <class Real>
void EncodeFrom(SampleFormat format, const Real* src, unsigned char* dst,
                std::size_t count) noexcept {
  WithCodec(format, [=](auto out) {
    using Out = decltype(out);
    using Work = std::conditional_t<(Out::bits > 24), double, Real>;
    if constexpr (isReal<Out>)
      Run<TimesFactor, Native<Real>, Out>(Bytes(src), dst, count, Unchanged());
    else
      Run<TimesFactor, Native<Real>, Out>(Bytes(src), dst, count, static_cast<Work>(steps<Out>));
  });
}

}  // namespace

void Decode(SampleFormat format, const unsigned char* src, float* dst, std::size_t count,
            float factor) noexcept {
  DecodeTimes(format, src, dst, count, factor);
}
void Decode(SampleFormat format, const unsigned char* src, double* dst, std::size_t count,
            double factor) noexcept {
  DecodeTimes(format, src, dst, count, factor);
}

void AddTo(float* sum, SampleFormat format, const unsigned char* src, std::size_t count,
           float factor) noexcept {
  AddDecoded(format, src, sum, count, factor);
}
void AddTo(double* sum, SampleFormat format, const unsigned char* src, std::size_t count,
           double factor) noexcept {
  AddDecoded(format, src, sum, count, factor);
}

void Sum(SampleFormat format, const unsigned char* a, float aFactor, const unsigned char* b,
         float bFactor, float* dst, std::size_t count) noexcept {
  SumDecoded(format, a, aFactor, b, bFactor, dst, count);
}
void Sum(SampleFormat format, const unsigned char* a, double aFactor, const unsigned char* b,
         double bFactor, double* dst, std::size_t count) noexcept {
  SumDecoded(format, a, aFactor, b, bFactor, dst, count);
}

void Encode(SampleFormat format, const float* src, unsigned char* dst, std::size_t count) noexcept {
  EncodeFrom(format, src, dst, count);
}
void Encode(SampleFormat format, const double* src, unsigned char* dst,
            std::size_t count) noexcept {
  EncodeFrom(format, src, dst, count);
}

void Scale(SampleFormat format, const unsigned char* src, unsigned char* dst, std::size_t count,
           double factor) noexcept {
  WithCodec(format, [=](auto codec) {
    using Codec = decltype(codec);
    using Work = std::conditional_t<(Codec::bits > 24), double, float>;
    Run<TimesFactor, Codec, Codec>(src, dst, count, static_cast<Work>(factor));
  });
}

}  // namespace zelk::blocks
