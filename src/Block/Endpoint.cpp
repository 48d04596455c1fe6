#include <zelk/Endpoint.h>

#include <cstdint>

#include "Link/Link.h"

namespace zelk {

long Endpoint::Available() const noexcept {
  if (link == nullptr || fb.validSamples <= 0) return 0;
  return static_cast<long>(link->SamplesInside(fb));
}

void OutputEndpoint::Resize(long samples) {
  if (link != nullptr) link->Reallocate(samples);
}

void OutputEndpoint::Resize(long samples, const void* src, long long timestamp) {
  if (link == nullptr) return;
  // A wild descriptor can only shorten the copy: the link bounds it by its buffer.
  std::size_t bytes = 0;
  if (samples > 0 && src != nullptr) {
    const std::size_t frame = fb.channels * BytesPerSample(fb.format);
    const auto count = static_cast<std::size_t>(samples);
    bytes = frame != 0 && count > SIZE_MAX / frame ? SIZE_MAX : count * frame;
  }
  if (!link->Reallocate(samples, bytes == 0 ? nullptr : src, bytes)) return;
  fb.validSamples = samples;
  fb.timestamp = timestamp;
}

}  // namespace zelk
