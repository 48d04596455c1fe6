// What a join keeps of one input whose frames are longer than those of another.
#pragma once

#include <zelk/FrameBuffer.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace zelk::blocks {

/// Samples left of earlier frames, and behind them the frame at hand, which is not copied unless
/// something of it is left. Allocates until it has seen the longest frame. [route-thread]
class InputQueue {
 public:
  /// Forgets all samples and expects frames of this format and these channels from now on.
  void Begin(const FrameBuffer& link) {
    frame = link;
    unit = std::max<std::size_t>(1, link.channels * BytesPerSample(link.format));
    Clear();
  }
  void Clear() {
    kept.clear();
    begin = 0;
    frame.validSamples = 0;
  }

  /// The format and channels given to `Begin()`.
  const FrameBuffer& Link() const { return frame; }

  long Kept() const { return static_cast<long>((kept.size() - begin) / unit); }
  long Available() const { return Kept() + frame.validSamples; }

  /// Samples that one `Pop()` can give.
  long InOnePlace() const { return Kept() > 0 ? Kept() : frame.validSamples; }

  /// Borrows `taken` until `Keep()`.
  void Push(const FrameBuffer& taken) { frame = taken; }

  /// Takes up to `samples` from the front, all from one place: where they are, and how many.
  const unsigned char* Pop(long& samples) {
    const bool old = Kept() > 0;
    samples = std::min(samples, InOnePlace());
    const std::size_t bytes = static_cast<std::size_t>(samples) * unit;
    if (old) return kept.data() + (begin += bytes) - bytes;
    frame.validSamples -= samples;
    return (frame.data += bytes) - bytes;
  }

  /// Copies what is left of the frame, which is its producer's again.
  void Keep() {
    kept.erase(kept.begin(), kept.begin() + static_cast<std::ptrdiff_t>(begin));
    begin = 0;
    if (frame.validSamples > 0)
      kept.insert(kept.end(), frame.data,
                  frame.data + static_cast<std::size_t>(frame.validSamples) * unit);
    frame.validSamples = 0;
  }

 private:
  std::vector<unsigned char> kept;
  std::size_t begin = 0;  // of what is left of it
  FrameBuffer frame;
  std::size_t unit = 1;  // bytes of one sample of all channels
};

}  // namespace zelk::blocks
