// Whatever the graph, every sample that goes in comes out, and nothing else does.
#include "common/EndOfInput.h"
#include "support/WavFiles.h"

#include <gtest/gtest.h>
#include <zelk/Zelk.h>

#include <algorithm>
#include <climits>
#include <fstream>
#include <future>
#include <iterator>
#include <map>

namespace {

using namespace zelk;
using test::Counting;
using Shorts = std::vector<short>;

TEST(LastMark, CarriesTheTimeAndIsNoTimeToOthers) {
  EXPECT_EQ(-2, blocks::LastMark(0));
  EXPECT_EQ(-12, blocks::LastMark(10));
  EXPECT_EQ(LLONG_MIN, blocks::LastMark(-1));
  for (const long long time : {-1LL, 0LL, 1LL, 1'000'000'000'000LL}) {
    EXPECT_TRUE(blocks::IsLastMark(blocks::LastMark(time)));
    EXPECT_EQ(time, blocks::TimeOf(blocks::LastMark(time)));
    EXPECT_FALSE(blocks::IsLastMark(time));
    EXPECT_EQ(time, blocks::TimeOf(time));
  }
  EXPECT_FALSE(blocks::IsLastMark(blocks::HELD));
  EXPECT_EQ(LLONG_MIN, blocks::LastMark(LLONG_MAX - 3));
}

/// A route built of named blocks, in an order that the test chooses.
class EndOfInput : public testing::Test, protected Route::Callbacks {
 protected:
  struct Node {
    std::string file;
    std::vector<std::string> args;
    bool first = false;
    bool last = false;
  };
  struct Join {
    std::string from;
    unsigned long out;
    std::string to;
    unsigned long in;
    unsigned int channels = 1;
  };

  void SetUp() override {
    route = Zelk::Instance()->NewRoute("RouteA", this);
    ASSERT_NE(nullptr, route);
  }
  void TearDown() override { Zelk::Instance()->DeleteRoute(route); }

  /// Runs the graph until it stops by itself; why it did.
  Route::StopReason Run(const std::vector<std::string>& order, const std::vector<Join>& joins) {
    std::map<std::string, Block*> made;
    for (const auto& name : order) {
      const Node& node = nodes.at(name);
      made[name] = route->NewBlock((node.file + ".so").c_str(), node.first, node.last, node.args);
      EXPECT_NE(nullptr, made[name]) << name;
    }
    for (const auto& join : joins) {
      EXPECT_NE(nullptr, route->NewLink(48000, S16_LE, join.channels, 100, made[join.from],
                                        join.out, made[join.to], join.in));
    }
    stopped = {};
    EXPECT_EQ(0, route->Start());
    const auto reason = stopped.get_future().get();
    EXPECT_EQ(0, route->DeleteAll());
    return reason;
  }

  void OnStopped(Route::StopReason reason) override { stopped.set_value(reason); }

  Node Source(const std::string& name, std::size_t samples) {
    test::WriteWav(directory / name, Counting(samples));
    return {"filesrc", {directory / name}, true, false};
  }
  Node Sink(const std::string& name) { return {"filesink", {directory / name}, false, true}; }

  test::TemporaryDirectory directory;
  std::map<std::string, Node> nodes;
  Route* route = nullptr;
  std::promise<Route::StopReason> stopped;
};

/// Counting up to `a` beside counting up to `b`, the shorter one filled up with silence.
Shorts SideBySide(std::size_t a, std::size_t b) {
  Shorts both;
  for (std::size_t i = 0; i < std::max(a, b); ++i) {
    both.push_back(i < a ? static_cast<short>(i + 1) : short{0});
    both.push_back(i < b ? static_cast<short>(i + 1) : short{0});
  }
  return both;
}

TEST_F(EndOfInput, SourcesOfAnyTwoLengthsMeetInAJoinOverPathsOfUnequalDepth) {
  nodes = {{"gain1", {"gain", {}}},
           {"gain2", {"gain", {}}},
           {"join", {"patch", {}}},
           {"tail", {"gain", {}}},
           {"sink", Sink("out.wav")}};
  for (const auto& [a, b] : std::vector<std::pair<std::size_t, std::size_t>>{
           {250, 1000}, {1000, 250}, {300, 300}, {1, 999}, {100, 200}, {401, 399}}) {
    SCOPED_TRACE(std::to_string(a) + " and " + std::to_string(b));
    nodes["a"] = Source("a.wav", a);
    nodes["b"] = Source("b.wav", b);
    EXPECT_EQ(Route::END_OF_FILE, Run({"a", "b", "gain1", "gain2", "join", "tail", "sink"},
                                      {{"a", 0, "join", 0},
                                       {"b", 0, "gain1", 0},
                                       {"gain1", 0, "gain2", 0},
                                       {"gain2", 0, "join", 1},
                                       {"join", 0, "tail", 0, 2},
                                       {"tail", 0, "sink", 0, 2}}));
    EXPECT_EQ(SideBySide(a, b), test::ReadShorts(directory / "out.wav"));
  }
}

// A tee with a short and a long branch into a join, beside a source of another length: in every
// order of creation, so that each block lies once below and once above its neighbours, and dumped.
TEST_F(EndOfInput, BranchesOfUnequalDepthLoseNothingInAnyOrderOfAddresses) {
  nodes = {{"a", Source("a.wav", 430)}, {"b", Source("b.wav", 777)}, {"tee", {"patch", {}}},
           {"gain", {"gain", {}}},      {"join", {"patch", {}}},     {"sink", Sink("out.wav")}};
  Shorts expected;
  for (short i = 1; i <= 777; ++i) {
    const short a = i <= 430 ? i : short{0};
    expected.insert(expected.end(), {a, a, i});
  }
  std::vector<std::string> order = {"a", "b", "gain", "join", "sink", "tee"};
  int run = 0;
  do {
    if (run++ % 7 != 0) continue;  // 103 of the 720
    std::filesystem::remove(directory / "RouteA-join_0-O00-48000Hz-S16_LE-3ch.pcm");
    route->SetDump(directory.path.c_str());
    EXPECT_EQ(Route::END_OF_FILE, Run(order, {{"a", 0, "tee", 0},
                                              {"b", 0, "join", 2},
                                              {"tee", 0, "join", 0},
                                              {"tee", 1, "gain", 0},
                                              {"gain", 0, "join", 1},
                                              {"join", 0, "sink", 0, 3}}));
    route->SetDump(nullptr);
    ASSERT_EQ(expected, test::ReadShorts(directory / "out.wav"));
    // "patch" makes tee and join, so either may be patch_0.
    const bool teeFirst = std::find(order.begin(), order.end(), "tee") <
                          std::find(order.begin(), order.end(), "join");
    std::ifstream dump(directory / ("RouteA-patch_" + std::string(teeFirst ? "1" : "0") +
                                    "-O00-48000Hz-S16_LE-3ch.pcm"),
                       std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(dump), {}};
    ASSERT_EQ(expected.size() * sizeof(short), bytes.size());
    ASSERT_EQ(0, std::memcmp(expected.data(), bytes.data(), bytes.size()));
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(EndOfInput, ABlockThatKnowsNothingOfItGetsEverySampleAndIsNeverCalledForNothing) {
  nodes = {{"a", Source("a.wav", 250)},
           {"gain", {"gain", {}}},
           {"naive", {"patch", {"naive"}}},
           {"sink", Sink("out.wav")}};
  EXPECT_EQ(Route::END_OF_FILE,
            Run({"a", "gain", "naive", "sink"},
                {{"a", 0, "gain", 0}, {"gain", 0, "naive", 0}, {"naive", 0, "sink", 0}}));
  EXPECT_EQ(Counting(250), test::ReadShorts(directory / "out.wav"));

  // Behind one output of a tee, while the other one is held.
  nodes["tee"] = {"patch", {}};
  nodes["end"] = {"patch", {"naive"}, false, true};
  EXPECT_EQ(Route::END_OF_FILE, Run({"a", "tee", "gain", "end", "sink"}, {{"a", 0, "tee", 0},
                                                                          {"tee", 0, "gain", 0},
                                                                          {"tee", 1, "end", 0},
                                                                          {"gain", 0, "sink", 0}}));
  EXPECT_EQ(Counting(250), test::ReadShorts(directory / "out.wav"));
}

TEST_F(EndOfInput, ASourceWithoutSamplesEndsTheRouteAtOnce) {
  nodes = {{"a", Source("a.wav", 0)}, {"gain", {"gain", {}}}, {"sink", Sink("out.wav")}};
  EXPECT_EQ(Route::END_OF_FILE,
            Run({"a", "gain", "sink"}, {{"a", 0, "gain", 0}, {"gain", 0, "sink", 0}}));
  EXPECT_EQ(Shorts{}, test::ReadShorts(directory / "out.wav"));
}

}  // namespace
