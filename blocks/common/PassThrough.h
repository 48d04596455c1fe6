// What blocks that pass their input on as it is have in common.
#pragma once

#include "common/StockBlock.h"

namespace zelk::blocks {

/// One input to every linked output, each in its own format; with none it is a sink. All links have
/// the same rate and channels. Nothing is sent before every output was taken.
class PassThrough : public StockBlock {
 public:
  PassThrough(const char* logTag, bool first, bool last, std::size_t outputCount)
      : StockBlock(logTag, first, last, 1, outputCount) {}

  long ProcessFrame() override;

 protected:
  int CheckInput(std::size_t) override { return CheckAlike("OnInEpLinked"); }
  int CheckOutput(std::size_t) override { return CheckAlike("OnOutEpLinked"); }

  /// Called with each frame before it is sent on.
  virtual void Observe(const FrameBuffer&) {}
};

}  // namespace zelk::blocks
