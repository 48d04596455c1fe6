// patch [naive]: every output gets the channels of all inputs side by side. With one input it is a
// tee, with one output a join.
//
// "naive" makes it a block that never heard of the end of input: one input to one output or none,
// waiting for samples for as long as it takes.
#include "common/StockBlock.h"

#include <algorithm>
#include <cstring>

namespace {

using namespace zelk;
using namespace zelk::blocks;

class Patch final : public StockBlock {
 public:
  Patch(bool first, bool last) : StockBlock("tests/patch", first, last, MAX_EPS, MAX_EPS) {}

  long ProcessFrame() override {
    if (auto answer = end.Answer()) return *answer;
    long samples = 0;
    for (const auto& [index, ep] : ActiveInEps()) {
      samples = std::max(samples, ep->Available());
    }
    for (const auto& [index, out] : ActiveOutEps())
      Mix(*out->FB(), samples);
    const long long time = TimeOf(In().timestamp);
    const bool last = end.InputIsLast();
    end.Take();
    return end.Send(samples, time, last);
  }

 private:
  void Mix(const FrameBuffer& out, long samples) const {
    const std::size_t bytes = BytesPerSample(out.format);
    std::memset(out.data, 0, static_cast<std::size_t>(samples) * out.channels * bytes);
    std::size_t column = 0;
    for (const auto& [index, in] : ActiveInEps()) {
      const std::size_t width = in->FB()->channels * bytes;
      for (long i = 0; i < in->FB()->validSamples; ++i) {
        const std::size_t at = static_cast<std::size_t>(i);
        std::memcpy(out.data + at * out.channels * bytes + column, in->FB()->data + at * width,
                    width);
      }
      column += width;
    }
  }
};

class Naive final : public Block {
 public:
  using Block::Block;

  long ProcessFrame() override {
    FrameBuffer& in = *inEps[0].FB();
    FrameBuffer& out = *outEps[0].FB();
    if (!ActiveInEpsDataIsReady()) return FRAME_PENDING;
    if (outEps[0].IsActive()) {
      std::memcpy(
          out.data, in.data,
          static_cast<std::size_t>(in.validSamples) * in.channels * BytesPerSample(in.format));
      out.validSamples = in.validSamples;
      out.timestamp = in.timestamp;
    }
    ClearActiveInEpsData();
    return 0;
  }
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  if (!args.empty() && args[0] == "naive") return new Naive(first, last);
  return new Patch(first, last);
}
