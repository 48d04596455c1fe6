// What blocks on live audio devices do the same way.
#pragma once

#include "common/DeviceQueue.h"
#include "common/SampleClock.h"
#include "common/StockBlock.h"

#include <memory>

namespace zelk::blocks {

/// Base of a block that is a source (created first) or a sink (created last) on a device, which
/// paces the route. The derived block opens the device in `Open()` and feeds `queue` from its
/// callback.
///
/// A device that is late gives FRAME_TIMEOUT; one that is gone, or late too often, is a failure. A
/// gap in what was captured shows in the time stamps. Stopping plays what was handed over before.
class DeviceBlock : public StockBlock {
 public:
  int Start() override;
  int Stop() override;
  long ProcessFrame() override;
  void Reset() override;

 protected:
  /// `first` or `last`, not both.
  DeviceBlock(const char* tag, bool first, bool last);

  /// Rate, format and channels of the link.
  const FrameBuffer& Stream() const { return isFirst ? OutLink() : InLink(); }

  /// Begins or ends the callbacks for `Stream()`, which is linked. 0, or `Refuse(...)`. `Open()`
  /// may be called again after it failed, `Close()` after it succeeded.
  virtual int Open() = 0;
  virtual void Close() = 0;
  /// Whether the device can do `Stream()`: 0, or `Refuse(...)`.
  virtual int CheckStream() = 0;
  /// Asked when the device is late: whether it can still be expected to answer.
  virtual bool Alive() { return true; }
  /// Whether the device gave no answer for so long that the route failed.
  bool Stalled() const { return lateFrames > MOST_LATE_FRAMES; }
  /// What the device is called in messages.
  virtual std::string DeviceName() const = 0;

  bool IsSource() const { return isFirst; }
  void OnInEpUnlinked(std::size_t) override { Unlinked(); }
  void OnOutEpUnlinked(std::size_t) override { Unlinked(); }

  double latencySeconds = 0;  ///< wanted of the queue
  /// Shared, so that it can be left to a device that no longer answers.
  const std::shared_ptr<DeviceQueue> queue = std::make_shared<DeviceQueue>();

 private:
  int CheckInput(std::size_t) override { return Linked("OnInEpLinked"); }
  int CheckOutput(std::size_t) override { return Linked("OnOutEpLinked"); }
  int Linked(const char* function);
  void Unlinked();
  int EnsureOpen();
  long Capture();
  long Play();
  long Late();

  static constexpr int MOST_LATE_FRAMES = 3;

  bool open = false;
  int lateFrames = 0;    // in a row
  std::size_t done = 0;  // samples of the frame that were handed over to play
  SampleClock clock;
  std::vector<float> scratch;
};

/// Logs an E record unless exactly one of the two is set.
bool IsSourceOrSink(const char* tag, bool first, bool last);

}  // namespace zelk::blocks
