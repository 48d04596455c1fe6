// A route of stock blocks that a test fills, runs and hears of.
#pragma once

#include <gtest/gtest.h>
#include <zelk/Zelk.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "support/WavFiles.h"

namespace test {

/// What a link carries.
struct Format {
  zelk::SampleFormat format = zelk::FLOAT_LE;
  unsigned int channels = 1;
  unsigned int rate = 48000;
  long frame = 480;
};

class RouteFixture : public testing::Test, protected zelk::Route::Callbacks {
 protected:
  void SetUp() override { ASSERT_NE(nullptr, route); }
  ~RouteFixture() override { zelk::Zelk::Instance()->DeleteRoute(route); }

  /// A block's name and its arguments.
  using Words = std::vector<std::string>;
  zelk::Block* New(const Words& words, bool first = false, bool last = false) {
    return route->NewBlock((words[0] + ".so").c_str(), first, last,
                           {words.begin() + 1, words.end()});
  }
  zelk::Block* Source(const Words& words) { return New(words, true, false); }
  zelk::Block* Sink(const Words& words) { return New(words, false, true); }

  bool Join(zelk::Block* from, unsigned long out, zelk::Block* to, unsigned long in,
            const Format& f = {}) {
    return route->NewLink(f.rate, f.format, f.channels, f.frame, from, out, to, in) != nullptr;
  }
  bool Link(zelk::Block* from, zelk::Block* to, const Format& f = {}) {
    return Join(from, 0, to, 0, f);
  }
  /// No block comes of any of these words, which blanks divide.
  void ExpectNoBlocks(const Words& lines, bool first = false, bool last = false) {
    for (const std::string& line : lines) {
      std::istringstream stream(line);
      EXPECT_EQ(nullptr, New({std::istream_iterator<std::string>(stream), {}}, first, last))
          << line;
    }
  }

  /// Why the route stopped; nothing when it has not within a time that no test should need.
  std::optional<zelk::Route::StopReason> WaitForEnd() {
    std::unique_lock lock(mutex);
    ended.wait_for(lock, std::chrono::seconds(60), [this] { return stopped.has_value(); });
    return std::exchange(stopped, std::nullopt);
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
  /// Each request is served between two frames, so that some frames pass.
  void LetFramesPass(zelk::Block* block) {
    for (int i = 0; i < 10; ++i)
      Parameter(block, 1);
  }

  zelk::Route* const route = zelk::Zelk::Instance()->NewRoute("RouteA", this);
  TemporaryDirectory directory;

 private:
  void OnStopped(zelk::Route::StopReason why) override {
    std::lock_guard lock(mutex);
    stopped = why;
    ended.notify_all();
  }

  std::mutex mutex;
  std::condition_variable ended;
  std::optional<zelk::Route::StopReason> stopped;
};

inline float LargestStep(const Floats& samples) {
  float step = 0;
  for (std::size_t i = 1; i < samples.size(); ++i)
    step = std::max(step, std::abs(samples[i] - samples[i - 1]));
  return step;
}

}  // namespace test
