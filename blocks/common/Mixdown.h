// Adding up inputs of any formats, each at its level.
#pragma once

#include "common/InPlace.h"
#include "common/InputQueue.h"
#include "common/Level.h"

#include <vector>

namespace zelk::blocks {

/// A level that a user sets and that moves without a click.
struct Fader {
  double db = 0;
  bool muted = false;
  Ramp level{1};

  double Target() const { return muted ? 0 : DbToLinear(db); }
  void Settle() { level.Jump(Target()); }
};

struct MixInput {
  Fader fader;
  InputQueue queue;

  /// Whether the next `samples` lie in one place and are heard at one level.
  bool IsPlain(long samples) const {
    return !fader.level.Moving() && fader.level.Current() != 0 && queue.InOnePlace() >= samples;
  }
};

inline constexpr std::size_t MIX_CHANNELS = 1024;  // numbers mixed at once: in the nearest cache

/// Takes up to `samples` from the input and adds them, times `factor`, to `sum`, or puts them there
/// if it is `fresh`; silence where there are none left.
template <class Real>
void Add(MixInput& input, Real* sum, bool fresh, long samples, double factor) {
  const FrameBuffer& link = input.queue.Link();
  Ramp& level = input.fader.level;
  Real scratch[MIX_CHANNELS];
  for (long n = samples; samples > 0 && input.queue.Available() > 0; n = samples) {
    const unsigned char* const from = input.queue.Pop(n);
    const std::size_t count = static_cast<std::size_t>(n) * link.channels;
    if (level.Moving()) {
      Decode(link.format, from, scratch, count, static_cast<Real>(factor));
      Apply(level, scratch, n, link.channels);
      for (std::size_t i = 0; i < count; ++i)
        sum[i] = fresh ? scratch[i] : sum[i] + scratch[i];
    } else if (const Real times = static_cast<Real>(level.Current() * factor); times == 0) {
      if (fresh) std::fill_n(sum, count, Real{0});
    } else if (fresh) {
      Decode(link.format, from, sum, count, times);
    } else {
      AddTo(sum, link.format, from, count, times);
    }
    sum += count;
    samples -= n;
  }
  if (fresh) std::fill_n(sum, static_cast<std::size_t>(samples) * link.channels, Real{0});
}

/// Puts the sum of the first two inputs, times `factor`, into `sum`: what most mixers have, at half
/// the price. False, with nothing done, where that is not so simple.
template <class Real>
bool PutFirstTwo(const std::vector<MixInput*>& inputs, Real* sum, long samples, double factor) {
  if (inputs.size() < 2) return false;
  MixInput& a = *inputs[0];
  MixInput& b = *inputs[1];
  const FrameBuffer& link = a.queue.Link();
  if (link.format != b.queue.Link().format || !a.IsPlain(samples) || !b.IsPlain(samples))
    return false;
  const auto times = [=](const MixInput& input) {
    return static_cast<Real>(input.fader.level.Current() * factor);
  };
  const unsigned char* const fromA = a.queue.Pop(samples);
  const unsigned char* const fromB = b.queue.Pop(samples);
  Sum(link.format, fromA, times(a), fromB, times(b), sum,
      static_cast<std::size_t>(samples) * link.channels);
  return true;
}

/// Fills `out` with `samples` of all `inputs`, which have its channels. [route-thread, real-time
/// safe]
template <class Real>
void Mixdown(const std::vector<MixInput*>& inputs, Fader& master, const FrameBuffer& out,
             long samples) {
  Real scratch[MIX_CHANNELS];
  unsigned char* to = out.data;
  for (long left = samples; left > 0;) {
    const long n = std::min(left, static_cast<long>(MIX_CHANNELS / out.channels));
    const std::size_t count = static_cast<std::size_t>(n) * out.channels;
    Real* const sum = ToEncode(out.format, to, scratch);
    // A master level that rests is a part of each input's: one pass less.
    const double factor = master.level.Moving() ? 1 : master.level.Current();
    const std::size_t done = PutFirstTwo(inputs, sum, n, factor) ? 2 : 0;
    for (std::size_t i = done; i < inputs.size(); ++i)
      Add(*inputs[i], sum, i == 0, n, factor);
    if (master.level.Moving()) Apply(master.level, sum, n, out.channels);
    Encoded(out.format, sum, to, count);
    to += count * BytesPerSample(out.format);
    left -= n;
  }
}

}  // namespace zelk::blocks
