// Between a route's frames and a sound device's callback.
#pragma once

#include "common/SampleRing.h"
#include "common/Wake.h"

#include <chrono>

namespace zelk::blocks {

/// Carries the samples of one block, in one direction, to or from a real-time callback, and holds
/// the route to the device's pace. Neither side ever waits for the other on the device's thread.
///
/// Capture: a callback that finds no room loses its samples, and the following ones until the route
/// has taken all that came before: one gap, at one place, of a length that is known.
/// Playback: a callback that finds too few samples plays what there is and then silence, until the
/// queue has filled up again.
class DeviceQueue {
 public:
  /// Playback runs this many callbacks ahead at least.
  static constexpr std::size_t PERIODS_AHEAD = 2;
  /// A callback may ask for up to this many samples.
  static constexpr std::size_t MAX_PERIOD = 8192;

  /// Room for frames of `frame` samples, with `ahead` samples kept for playback. [device idle]
  void Prepare(std::size_t channels, std::size_t frame, std::size_t ahead, unsigned int rate);

  // The route's side. [route-thread]

  /// Opens the queue for the callback, from now on.
  void Begin();
  /// Closes it: the callback plays silence, and what it captures is nobody's.
  void End() noexcept { running.store(false, std::memory_order_release); }

  /// Waits until `count` samples were captured, or fewer stand before a gap; how many there are, 0
  /// when the device did not deliver in time. Adds the length of a gap that was passed to `gap`.
  std::size_t WaitForCapture(std::size_t count, std::uint64_t& gap);
  template <class Copy>
  void TakeCaptured(std::size_t count, Copy&& copy) {
    ring.Read(count, copy);
  }

  /// Waits until playback needs more samples; false when the device did not play in time.
  bool WaitToPlay();
  /// Hands over samples, as many as `RoomToPlay()` at most.
  std::size_t RoomToPlay() const noexcept { return ring.Writable(); }
  template <class Copy>
  void Play(std::size_t count, Copy&& copy) {
    ring.Write(count, copy);
  }
  /// Waits until all samples were played and have left the callback for good.
  bool Drain();

  /// Samples that were lost or replaced by silence, and samples that wait. [any-thread]
  std::uint64_t Lost() const noexcept { return lost.load(std::memory_order_relaxed); }
  std::size_t Waiting() const noexcept { return ring.Readable(); }
  /// Whether the device is gone for ever. [any-thread]
  bool Gone() const noexcept { return gone.load(std::memory_order_acquire); }

  // The device's side. [device's callback, real-time safe]

  /// `copy(float* to, first, n)` stores samples `first` to `first + n` of the `count` captured.
  template <class Copy>
  void Capture(std::size_t count, Copy&& copy) {
    if (!running.load(std::memory_order_acquire)) return;
    if (gap.load(std::memory_order_acquire) != 0 || ring.Writable() < count) {
      gap.fetch_add(count, std::memory_order_acq_rel);
      lost.fetch_add(count, std::memory_order_relaxed);
    } else {
      ring.Write(count, copy);
    }
    wake.Notify();
  }

  /// `copy(const float* from, first, n)` plays samples; how many of `count` there were.
  template <class Copy>
  std::size_t Deliver(std::size_t count, Copy&& copy) {
    if (!running.load(std::memory_order_acquire)) return 0;
    if (count > period.load(std::memory_order_relaxed))
      period.store(std::min(count, MAX_PERIOD), std::memory_order_relaxed);
    const std::size_t played = Playable(count);
    ring.Read(played, copy);
    wake.Notify();
    return played;
  }

  /// The device is gone: whoever waits stops waiting.
  void SetGone() noexcept {
    gone.store(true, std::memory_order_release);
    wake.Notify();
  }

 private:
  std::size_t Playable(std::size_t count) noexcept;
  std::size_t Ahead() const noexcept;

  // Constant while the device runs.
  std::size_t frameSize = 0;
  std::size_t aheadWanted = 0;
  std::chrono::milliseconds patience{0};

  SampleRing ring;
  Wake wake;
  std::atomic<bool> running = false;
  std::atomic<bool> gone = false;
  std::atomic<bool> draining = false;
  std::atomic<std::uint64_t> gap = 0;  // captured after the ring's last sample, and lost
  std::atomic<std::uint64_t> lost = 0;
  std::atomic<std::size_t> period = 0;        // the longest callback so far
  std::atomic<unsigned int> idlePeriods = 0;  // callbacks since the last sample was played
  bool playing = false;                       // the callback's own
};

}  // namespace zelk::blocks
