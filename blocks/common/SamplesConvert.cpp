// A loop for each pair of formats.
#include "common/SampleLoops.h"

namespace zelk::blocks {
namespace {

template <class In, class Out>
void ConvertPair(const unsigned char* src, unsigned char* dst, std::size_t count) noexcept {
  if constexpr (isReal<In> && isReal<Out>) {
    Run<TimesFactor, In, Out>(src, dst, count, Unchanged());
  } else if constexpr (isReal<In> || isReal<Out>) {
    using Work = std::conditional_t<(Out::bits > 24), double, float>;
    Run<TimesFactor, In, Out>(src, dst, count, static_cast<Work>(steps<Out> / steps<In>));
  } else {
    Run<Requantise, In, Out>(src, dst, count, Unchanged());
  }
}

}  // namespace

void Convert(SampleFormat from, const unsigned char* src, SampleFormat to, unsigned char* dst,
             std::size_t count) noexcept {
  if (from == to) {
    const std::size_t bytes = count * BytesPerSample(from);
    if (bytes > 0) std::memcpy(dst, src, bytes);
    return;
  }
  WithCodec(from, [=](auto in) {
    WithCodec(to, [=](auto out) {
      if constexpr (!std::is_same_v<decltype(in), decltype(out)>)
        ConvertPair<decltype(in), decltype(out)>(src, dst, count);
    });
  });
}

}  // namespace zelk::blocks
