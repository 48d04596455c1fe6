// What the console may see of a link while the route runs.
#pragma once

#include <zelk/FrameBuffer.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace zelk {

/// A published descriptor. Written by the route thread, read anywhere; the fields are relaxed, so a
/// reader may see fields of neighbouring frames. `data` and `validSamples` are not published.
class LiveDescriptor {
 public:
  void Publish(const FrameBuffer& fb) noexcept {
    timestamp.store(fb.timestamp, std::memory_order_relaxed);
    form.store(FormOf(fb), std::memory_order_relaxed);
    samplesPerFrame.store(fb.samplesPerFrame, std::memory_order_relaxed);
    rate.store(fb.rate, std::memory_order_relaxed);
  }

  /// Until it is published again. What it holds stays whole for who is just reading it.
  void Invalidate() noexcept {
    rate.store(rate.load(std::memory_order_relaxed) | INVALID, std::memory_order_relaxed);
  }
  bool IsValid() const noexcept { return rate.load(std::memory_order_relaxed) < INVALID; }

  FrameBuffer Read() const noexcept {
    FrameBuffer fb;
    const std::uint64_t both = form.load(std::memory_order_relaxed);
    fb.format = static_cast<SampleFormat>(static_cast<std::uint32_t>(both));
    fb.channels = static_cast<std::uint32_t>(both >> 32);
    fb.samplesPerFrame = samplesPerFrame.load(std::memory_order_relaxed);
    fb.rate = static_cast<std::uint32_t>(rate.load(std::memory_order_relaxed));
    fb.timestamp = timestamp.load(std::memory_order_relaxed);
    return fb;
  }

 private:
  // Format and channels in one word, as they lie in the descriptor.
  static std::uint64_t FormOf(const FrameBuffer& fb) noexcept {
    return fb.format | std::uint64_t{fb.channels} << 32;
  }

  static constexpr std::uint64_t INVALID = std::uint64_t{1} << 32;  // a bit above every rate

  std::atomic<std::uint64_t> form{0};
  std::atomic<long> samplesPerFrame{0};
  std::atomic<long long> timestamp{-1};
  std::atomic<std::uint64_t> rate{INVALID};
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

  /// The descriptors at the two ends. [any-thread]
  FrameBuffer Out() const noexcept { return (committed.IsValid() ? committed : out).Read(); }
  FrameBuffer In() const noexcept { return (committed.IsValid() ? committed : in).Read(); }

  /// Publishes each end as it is. [route-thread]
  void Publish(const FrameBuffer& outFb, const FrameBuffer& inFb) noexcept {
    out.Publish(outFb);
    in.Publish(inFb);
    committed.Invalidate();
  }

  /// Publishes a commit, which makes both ends equal. [route-thread]
  void PublishCommit(const FrameBuffer& fb) noexcept { committed.Publish(fb); }

 private:
  // Every commit writes it.
  alignas(64) LiveDescriptor committed;

  LiveDescriptor out;
  LiveDescriptor in;
};

}  // namespace zelk
