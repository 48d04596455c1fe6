// Samples in memory, into and out of a route.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <zelk/FrameBuffer.h>

namespace test {

/// What a "memory" block plays when it is a source, and what it has heard when it is a sink.
struct Memory {
  std::vector<unsigned char> bytes;
  std::vector<long> sizes = {480};  // of a source's frames, in turn; of all of a sink's
  std::vector<long long> times;     // of a sink's frames
  /// Called on the route's thread before a source's frame is sent, and when a sink's was taken.
  std::function<void(std::size_t frame, zelk::FrameBuffer&)> before;

  template <class T>
  explicit Memory(const std::vector<T>& samples) : bytes(samples.size() * sizeof(T)) {
    if (!bytes.empty()) std::memcpy(bytes.data(), samples.data(), bytes.size());
  }
  Memory() : sizes() {}

  template <class T>
  std::vector<T> As() const {
    std::vector<T> samples(bytes.size() / sizeof(T));
    if (!bytes.empty()) std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(T));
    return samples;
  }
};

}  // namespace test
