// Samples from one thread to another without a lock.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace zelk::blocks {

/// A queue of interleaved float samples with one writer and one reader. Counts are per channel.
class SampleRing {
 public:
  /// Empties the ring and makes room for `samples` of `channels`. [neither side active]
  void Allocate(std::size_t channelCount, std::size_t samples) {
    channels = channelCount;
    capacity = samples;
    data.assign(channels * capacity, 0.0F);
    written = taken = 0;
  }
  std::size_t Capacity() const noexcept { return capacity; }

  /// At least this much can be read, or written; the other side can only add to it.
  /// [reader or writer, real-time safe]
  std::size_t Readable() const noexcept {
    return static_cast<std::size_t>(written.load(std::memory_order_acquire) -
                                    taken.load(std::memory_order_acquire));
  }
  std::size_t Writable() const noexcept { return capacity - Readable(); }

  /// Appends `count` samples, no more than are writable. `copy(float* to, first, n)` is called for
  /// each of up to two stretches. [writer, real-time safe]
  template <class Copy>
  void Write(std::size_t count, Copy&& copy) {
    Stretches(written, count, copy);
  }

  /// Takes `count` samples, no more than are readable; `copy(const float* from, first, n)`.
  /// [reader, real-time safe]
  template <class Copy>
  void Read(std::size_t count, Copy&& copy) {
    Stretches(taken, count, copy);
  }

 private:
  template <class Copy>
  void Stretches(std::atomic<std::uint64_t>& counter, std::size_t count, Copy&& copy) {
    if (count == 0) return;
    const std::uint64_t position = counter.load(std::memory_order_relaxed);
    const std::size_t at = static_cast<std::size_t>(position % capacity);
    const std::size_t head = std::min(count, capacity - at);
    copy(&data[at * channels], std::size_t{0}, head);
    if (head < count) copy(&data[0], head, count - head);
    counter.store(position + count, std::memory_order_release);
  }

  std::vector<float> data;
  std::size_t channels = 0;
  std::size_t capacity = 0;
  // Each is advanced by one side, which so hands the samples in between to the other.
  alignas(64) std::atomic<std::uint64_t> written = 0;
  alignas(64) std::atomic<std::uint64_t> taken = 0;
};

}  // namespace zelk::blocks
