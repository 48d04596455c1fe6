// A route that a test fills, runs and hears of.
#pragma once

#include "support/WavFiles.h"

#include <gtest/gtest.h>
#include <sndfile.h>
#include <zelk/Zelk.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace test {

class RouteFixture : public testing::Test, protected zelk::Route::Callbacks {
 protected:
  void SetUp() override { ASSERT_NE(nullptr, route); }
  ~RouteFixture() override { zelk::Zelk::Instance()->DeleteRoute(route); }

  using Words = std::vector<std::string>;
  zelk::Block* Source(const std::string& block, const Words& args) {
    return route->NewBlock((block + ".so").c_str(), true, false, args);
  }
  zelk::Block* Middle(const std::string& block, const Words& args) {
    return route->NewBlock((block + ".so").c_str(), false, false, args);
  }
  zelk::Block* Sink(const std::string& block, const Words& args) {
    return route->NewBlock((block + ".so").c_str(), false, true, args);
  }
  bool Link(zelk::Block* from, zelk::Block* to, unsigned int channels = 1,
            zelk::SampleFormat format = zelk::FLOAT_LE, unsigned int rate = 48000,
            long samples = 480) {
    return route->NewLink(rate, format, channels, samples, from, 0, to, 0) != nullptr;
  }

  /// Why the route stopped; nothing when it has not within a time that no test should need.
  std::optional<zelk::Route::StopReason> WaitForEnd() {
    std::unique_lock lock(mutex);
    ended.wait_for(lock, std::chrono::seconds(60), [this] { return reason.has_value(); });
    return std::exchange(reason, std::nullopt);
  }
  std::optional<zelk::Route::StopReason> Run() {
    EXPECT_EQ(0, route->Start());
    return WaitForEnd();
  }

  Words Parameter(zelk::Block* block, unsigned int id) {
    Words words;
    EXPECT_EQ(0, route->GetParameter(block, id, words));
    return words;
  }

  zelk::Route* const route = zelk::Zelk::Instance()->NewRoute("RouteA", this);
  TemporaryDirectory directory;

 private:
  void OnStopped(zelk::Route::StopReason why) override {
    std::lock_guard lock(mutex);
    reason = why;
    ended.notify_all();
  }

  std::mutex mutex;
  std::condition_variable ended;
  std::optional<zelk::Route::StopReason> reason;
};

using Floats = std::vector<float>;

inline void WriteFloats(const std::string& path, const Floats& samples, int channels = 1,
                        int rate = 48000) {
  SF_INFO info = {};
  info.samplerate = rate;
  info.channels = channels;
  info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  ASSERT_NE(nullptr, file) << path;
  sf_write_float(file, samples.data(), static_cast<sf_count_t>(samples.size()));
  sf_close(file);
}

/// All samples of a sound file, all channels together.
inline Floats ReadFloats(const std::string& path) {
  SF_INFO info = {};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  if (file == nullptr) return {};
  Floats samples(static_cast<std::size_t>(info.frames * info.channels));
  sf_read_float(file, samples.data(), static_cast<sf_count_t>(samples.size()));
  sf_close(file);
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
