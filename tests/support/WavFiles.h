// Small sound files that a test writes and reads back.
#pragma once

#include <gtest/gtest.h>
#include <sndfile.hh>

#include <numeric>
#include <type_traits>
#include <vector>

#include "support/TemporaryDirectory.h"

namespace test {

using Floats = std::vector<float>;
using Shorts = std::vector<short>;

/// Writes `samples` (all channels together): float, 16 bit, or the upper 24 bits of an int.
template <class T>
void WriteWav(const std::string& path, const std::vector<T>& samples, int channels = 1,
              int rate = 48000) {
  const int type = std::is_same_v<T, float>   ? SF_FORMAT_FLOAT
                   : std::is_same_v<T, short> ? SF_FORMAT_PCM_16
                                              : SF_FORMAT_PCM_24;
  SndfileHandle file(path, SFM_WRITE, SF_FORMAT_WAV | type, channels, rate);
  const auto count = static_cast<sf_count_t>(samples.size());
  ASSERT_EQ(count, file.write(samples.data(), count)) << path;
}

/// All samples, all channels together, and the file's format; -1 alone when there is no such file.
template <class T>
std::vector<T> ReadWav(const std::string& path, int* format = nullptr) {
  SndfileHandle file(path);
  if (file.channels() == 0) return {T{-1}};
  if (format) *format = file.format();
  std::vector<T> samples(static_cast<std::size_t>(file.frames() * file.channels()));
  file.read(samples.data(), static_cast<sf_count_t>(samples.size()));
  return samples;
}

/// 1, 2, 3, ... `count`.
inline Shorts Counting(std::size_t count) {
  Shorts samples(count);
  std::iota(samples.begin(), samples.end(), short{1});
  return samples;
}

/// A signal in which no stretch resembles another: uniform in ±0.5, without zeros, exact in 24
/// bits.
inline Floats Noise(std::size_t count) {
  Floats samples(count);
  std::uint32_t state = 1;
  for (float& s : samples) {
    state = state * 1664525 + 1013904223;
    s = (static_cast<float>(state >> 9 | 1) - 0x1p22F) * 0x1p-23F;
  }
  return samples;
}

}  // namespace test
