// Samples in memory, into and out of a route of stock blocks.
#pragma once

#include <gtest/gtest.h>
#include <zelk/Zelk.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <vector>

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

/// What a link carries.
struct Format {
  zelk::SampleFormat format = zelk::FLOAT_LE;
  unsigned int channels = 1;
  unsigned int rate = 48000;
  long frame = 480;
};

/// RouteA, built by a test and run until it stops by itself.
class Graph : public testing::Test, protected zelk::Route::Callbacks {
 protected:
  using Words = std::vector<std::string>;

  void SetUp() override {
    route = zelk::Zelk::Instance()->NewRoute("RouteA", this);
    ASSERT_NE(nullptr, route);
  }
  void TearDown() override { zelk::Zelk::Instance()->DeleteRoute(route); }

  zelk::Block* New(const Words& words) { return Make(words, false, false); }
  zelk::Block* Source(Memory& memory) { return Make(Address(memory), true, false); }
  zelk::Block* Sink(Memory& memory) { return Make(Address(memory), false, true); }

  bool Join(zelk::Block* from, unsigned long out, zelk::Block* to, unsigned long in,
            const Format& f = {}) {
    return route->NewLink(f.rate, f.format, f.channels, f.frame, from, out, to, in) != nullptr;
  }

  /// Whether a block refuses such a link at one of its ports.
  bool RefusesInput(zelk::Block* to, unsigned long in, const Format& f) {
    zelk::Block* const spare = New({"tee"});
    const bool refused = !Join(spare, 0, to, in, f);
    EXPECT_EQ(0, route->Delete(spare));
    return refused;
  }
  bool RefusesOutput(zelk::Block* from, unsigned long out, const Format& f) {
    zelk::Block* const spare = New({"tee"});
    const bool refused = !Join(from, out, spare, 0, f);
    EXPECT_EQ(0, route->Delete(spare));
    return refused;
  }

  /// Why the route stopped; its blocks are gone afterwards unless they are to be kept.
  int Run(bool keep = false) {
    stopped = {};
    EXPECT_EQ(0, route->Start());
    const auto reason = stopped.get_future().get();
    if (!keep) {
      EXPECT_EQ(0, route->DeleteAll());
    }
    return static_cast<int>(reason);
  }

  /// Source, one block, sink; returns what came out.
  Memory Through(const Words& words, Memory& source, const Format& in, const Format& out) {
    Memory sink;
    zelk::Block* const from = Source(source);
    block = New(words);
    EXPECT_NE(nullptr, block) << words[0];
    zelk::Block* const to = Sink(sink);
    EXPECT_TRUE(Join(from, 0, block, 0, in));
    EXPECT_TRUE(Join(block, 0, to, 0, out));
    EXPECT_EQ(zelk::Route::END_OF_FILE, Run());
    return sink;
  }

  double Parameter(zelk::Block* of, unsigned int id) {
    Words words;
    EXPECT_EQ(0, route->GetParameter(of, id, words));
    return words.empty() ? 0 : std::stod(words[0]);
  }

  zelk::Route* route = nullptr;
  zelk::Block* block = nullptr;

 private:
  zelk::Block* Make(const Words& words, bool first, bool last) {
    return route->NewBlock((words[0] + ".so").c_str(), first, last,
                           {words.begin() + 1, words.end()});
  }
  static Words Address(Memory& memory) {
    return {"memory", std::to_string(reinterpret_cast<std::uintptr_t>(&memory))};
  }
  void OnStopped(zelk::Route::StopReason reason) override { stopped.set_value(reason); }

  std::promise<zelk::Route::StopReason> stopped;
};

}  // namespace test
