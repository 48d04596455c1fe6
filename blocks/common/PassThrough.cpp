#include "common/PassThrough.h"

#include "common/Samples.h"

namespace zelk::blocks {

long PassThrough::ProcessFrame() {
  if (auto answer = end.Answer()) return *answer;
  const FrameBuffer in = Frame();
  for (const auto& [index, ep] : ActiveOutEps())
    if (!MakeRoom(in.validSamples, index)) return -20;
  Observe(in);
  const std::size_t count = static_cast<std::size_t>(in.validSamples) * in.channels;
  for (const auto& [index, ep] : ActiveOutEps())
    Convert(in.format, in.data, Out(index).format, Out(index).data, count);
  const bool last = end.InputIsLast();
  end.Take();
  return end.Send(in.validSamples, TimeOf(in.timestamp), last);
}

}  // namespace zelk::blocks
