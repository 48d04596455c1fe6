// A jump in a stream that does not click.
#pragma once

#include "common/Level.h"
#include "common/Samples.h"

#include <vector>

namespace zelk::blocks {

/// Fades over from how a stream would have gone on to how it does. [route-thread]
class Crossfade {
 public:
  /// `old` is what would have come next, all channels together; it lasts as long as that.
  void Begin(std::vector<double> old, unsigned int channels) {
    tail = std::move(old);
    width = channels;
    fade.Jump(1);
    fade.MoveTo(0, static_cast<long long>(tail.size() / width));
    at = 0;
  }

  /// Call with each frame from then on.
  void Blend(SampleFormat format, unsigned char* data, long samples) {
    for (long i = 0; i < samples && fade.Moving(); ++i) {
      const double part = fade.Next();
      for (unsigned int c = 0; c < width; ++c, data += BytesPerSample(format)) {
        double value = 0;
        Decode(format, data, &value, 1);
        value += (tail[at++] - value) * part;
        Encode(format, &value, data, 1);
      }
    }
  }

 private:
  std::vector<double> tail;
  std::size_t at = 0;
  unsigned int width = 1;
  Ramp fade{0};
};

}  // namespace zelk::blocks
