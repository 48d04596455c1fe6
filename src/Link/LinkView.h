// What the console may see of a link while the route runs.
#pragma once

#include <zelk/FrameBuffer.h>

#include <atomic>
#include <cstddef>
#include <string>

namespace zelk {

/// The last published descriptor of one end of a link. Written by the route thread, read anywhere;
/// the fields are relaxed, so a reader may see fields of neighbouring frames.
class LiveDescriptor {
 public:
  void Publish(const FrameBuffer& fb) noexcept {
    rate.store(fb.rate, std::memory_order_relaxed);
    format.store(fb.format, std::memory_order_relaxed);
    channels.store(fb.channels, std::memory_order_relaxed);
    samplesPerFrame.store(fb.samplesPerFrame, std::memory_order_relaxed);
    timestamp.store(fb.timestamp, std::memory_order_relaxed);
  }

  /// Whether publishing would change anything but perhaps the time.
  bool Fits(const FrameBuffer& fb) const noexcept {
    return fb.samplesPerFrame == samplesPerFrame.load(std::memory_order_relaxed) &&
           fb.rate == rate.load(std::memory_order_relaxed) &&
           fb.format == format.load(std::memory_order_relaxed) &&
           fb.channels == channels.load(std::memory_order_relaxed);
  }

  void PublishTime(long long time) noexcept { timestamp.store(time, std::memory_order_relaxed); }

  long long Time() const noexcept { return timestamp.load(std::memory_order_relaxed); }

  /// `data` and `validSamples` are not published.
  FrameBuffer Read() const noexcept {
    FrameBuffer fb;
    fb.rate = rate.load(std::memory_order_relaxed);
    fb.format = format.load(std::memory_order_relaxed);
    fb.channels = channels.load(std::memory_order_relaxed);
    fb.samplesPerFrame = samplesPerFrame.load(std::memory_order_relaxed);
    fb.timestamp = timestamp.load(std::memory_order_relaxed);
    return fb;
  }

 private:
  std::atomic<long> samplesPerFrame{0};
  std::atomic<long long> timestamp{-1};
  std::atomic<unsigned int> rate{0};
  std::atomic<SampleFormat> format{BYTE};
  std::atomic<unsigned int> channels{0};
};

/// Constant from the moment the link is connected, but for the two live descriptors. Shared by the
/// link and every graph view that shows it, so it outlives the link for as long as someone looks.
struct LinkView {
  std::string name;
  unsigned int rate = 0;
  SampleFormat format = BYTE;
  unsigned int channels = 0;
  std::size_t outIndex = 0;
  std::size_t inIndex = 0;
  std::string sinkName;
  bool sinkIsLast = false;
  const void* link = nullptr;  ///< identity only: the link may be gone

  // In a cache line of their own, which every commit writes.
  alignas(64) LiveDescriptor out;
  LiveDescriptor in;

  /// Publishes each end as it is.
  void Publish(const FrameBuffer& outFb, const FrameBuffer& inFb) noexcept {
    out.Publish(outFb);
    in.Publish(inFb);
    even = false;
  }

  /// Publish a commit, which makes both ends equal. Mostly just the time has changed since the last
  /// one, and on the way back not even that.
  void PublishForward(const FrameBuffer& fb) noexcept {
    if (!even || !out.Fits(fb)) return PublishBoth(fb);
    out.PublishTime(fb.timestamp);
    in.PublishTime(fb.timestamp);
  }
  void PublishBackward(const FrameBuffer& fb) noexcept {
    if (!even || out.Time() != fb.timestamp || !out.Fits(fb)) PublishBoth(fb);
  }

 private:
  void PublishBoth(const FrameBuffer& fb) noexcept {
    out.Publish(fb);
    in.Publish(fb);
    even = true;
  }

  bool even = false;  // route thread only: both ends were last published alike
};

}  // namespace zelk
