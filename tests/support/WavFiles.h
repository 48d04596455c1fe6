// Small sound files that a test writes and reads back.
#pragma once

#include <gtest/gtest.h>
#include <sndfile.h>

#include <filesystem>
#include <numeric>
#include <string>
#include <vector>

namespace test {

/// A directory of its own for one test; removed with what is in it.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zelk-XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) path = pattern + "/";
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  std::string operator/(const std::string& name) const { return path + name; }

  std::string path;
};

/// Writes 16 bit `samples` (all channels together).
inline void WriteWav(const std::string& path, const std::vector<short>& samples, int channels = 1,
                     int rate = 48000) {
  SF_INFO info = {};
  info.samplerate = rate;
  info.channels = channels;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  ASSERT_NE(nullptr, file) << path;
  sf_write_short(file, samples.data(), static_cast<sf_count_t>(samples.size()));
  sf_close(file);
}

/// All samples, full scale as 32 bit integers, and what the file is.
inline std::vector<int> ReadWav(const std::string& path, SF_INFO& info) {
  info = {};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  if (file == nullptr) return {-1};
  std::vector<double> read(static_cast<std::size_t>(info.frames * info.channels));
  sf_read_double(file, read.data(), static_cast<sf_count_t>(read.size()));
  sf_close(file);
  std::vector<int> samples;
  for (const double sample : read)
    samples.push_back(static_cast<int>(sample * 2147483648.0));
  return samples;
}

/// All samples of a 16 bit file.
inline std::vector<short> ReadShorts(const std::string& path) {
  SF_INFO info = {};
  std::vector<short> samples;
  for (const int sample : ReadWav(path, info))
    samples.push_back(static_cast<short>(sample >> 16));
  return samples;
}

/// 1, 2, 3, ... `count`.
inline std::vector<short> Counting(std::size_t count) {
  std::vector<short> samples(count);
  std::iota(samples.begin(), samples.end(), short{1});
  return samples;
}

}  // namespace test
