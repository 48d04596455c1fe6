// What a join keeps of one input whose frames are longer than those of another.
#pragma once

#include "common/InPlace.h"
#include "common/Level.h"

#include <zelk/FrameBuffer.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace zelk::blocks {

/// Samples left of earlier frames, and behind them the frame at hand, which is not copied unless
/// something of it is left. Allocates until it has seen the longest frame. [route-thread]
class InputQueue {
 public:
  static constexpr std::size_t PIECE = 1024;  // stays in the nearest cache

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

  long Kept() const { return static_cast<long>((kept.size() - begin) / unit); }
  long Available() const { return Kept() + frame.validSamples; }

  /// Borrows `taken` until `Keep()`.
  void Push(const FrameBuffer& taken) { frame = taken; }

  /// Takes up to `samples` from the front, all from one place: where they are, and how many.
  const unsigned char* Pop(long& samples) {
    const bool old = Kept() > 0;
    samples = std::min(samples, old ? Kept() : frame.validSamples);
    const std::size_t bytes = static_cast<std::size_t>(samples) * unit;
    if (old) return kept.data() + (begin += bytes) - bytes;
    frame.validSamples -= samples;
    return (frame.data += bytes) - bytes;
  }

  /// Adds up to `samples` (of all channels no more than `PIECE` numbers) times `level` to `sum`, or
  /// puts them there if it is `fresh`, with silence where there are none left. Drops them here.
  template <class Real>
  void AddTo(Real* sum, bool fresh, long samples, Ramp& level) {
    Real scratch[PIECE];
    for (long n = samples; samples > 0 && Available() > 0; n = samples) {
      const unsigned char* const from = Pop(n);
      const std::size_t count = static_cast<std::size_t>(n) * frame.channels;
      if (level.Moving()) {
        Decode(frame.format, from, scratch, count);
        Apply(level, scratch, n, frame.channels);
        AddTimes(sum, fresh, scratch, Real{1}, count);
      } else if (level.Current() != 0) {
        AddTimes(sum, fresh, Decoded(frame.format, from, scratch, count),
                 static_cast<Real>(level.Current()), count);
      } else if (fresh) {
        std::fill_n(sum, count, Real{0});
      }
      sum += count;
      samples -= n;
    }
    if (fresh) std::fill_n(sum, static_cast<std::size_t>(samples) * frame.channels, Real{0});
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
  template <class Real>
  static void AddTimes(Real* __restrict sum, bool fresh, const Real* __restrict values, Real gain,
                       std::size_t count) {
    if (fresh) {
      for (std::size_t i = 0; i < count; ++i)
        sum[i] = gain * values[i];
    } else {
      for (std::size_t i = 0; i < count; ++i)
        sum[i] += gain * values[i];
    }
  }

  std::vector<unsigned char> kept;
  std::size_t begin = 0;  // of what is left of it
  FrameBuffer frame;
  std::size_t unit = 1;  // bytes of one sample of all channels
};

}  // namespace zelk::blocks
