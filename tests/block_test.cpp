#include <gtest/gtest.h>

#include <memory>

#include "support/LogRecorder.h"
#include "support/ScriptedBlock.h"

namespace {

using test::ScriptedBlock;
using test::Scripts;
using test::TakeTrace;
using Lines = std::vector<std::string>;

// Nothing but what every block has to define.
class Bare : public zelk::Block {
 public:
  using Block::Block;
  long ProcessFrame() override { return FRAME_DONE_WITHOUT_OUTPUT; }
};

class Blocks : public ::testing::Test {
 protected:
  void SetUp() override {
    Scripts().clear();
    TakeTrace();
  }
  std::unique_ptr<ScriptedBlock> Make() {
    auto block = std::make_unique<ScriptedBlock>("b", false, false);
    block->SetName("RouteA", "b_0", &noDump);
    TakeTrace();
    return block;
  }
  const std::string noDump;
};

TEST_F(Blocks, ABareBlockAnswersWithTheDefaults) {
  auto block = std::make_unique<Bare>(true, false);
  EXPECT_EQ((Lines{}), TakeTrace());
  block->SetName("RouteQ", "bare_7", &noDump);
  EXPECT_EQ(-20, block->ioctl(1, nullptr));
  EXPECT_EQ(nullptr, block->Subname());
  EXPECT_EQ(0, block->Delay());
  EXPECT_EQ(0, block->BaseStart());
  EXPECT_EQ(0, block->BaseStop());
  EXPECT_EQ(0, block->BaseOnInEpLinked(0));
  EXPECT_EQ(0, block->SetParameter(4294967295u, {"a", "b"}));
  std::vector<std::string> params = {"kept"};
  EXPECT_EQ(0, block->GetParameter(7, params));
  EXPECT_EQ((std::vector<std::string>{"kept"}), params);
  block->BaseReset();
  block.reset();
  EXPECT_EQ((Lines{"I src/Block SetName: RouteQ: bare_7: Created",
                   "D src/Block BaseOnInEpLinked: RouteQ: bare_7: Input endpoint 0 linked",
                   "I src/Block SetParameter: RouteQ: bare_7: paramId=-1, params.size()=2",
                   "I src/Block GetParameter: RouteQ: bare_7: paramId=7",
                   "D src/Block BaseReset: RouteQ: bare_7: Reset",
                   "I src/Block ~Block: RouteQ: bare_7: Deleted"}),
            TakeTrace());
}

TEST_F(Blocks, LinkingAPortTwiceIsRefused) {
  auto block = Make();
  EXPECT_EQ(0, block->BaseOnInEpLinked(3));
  EXPECT_EQ(-20, block->BaseOnInEpLinked(3));
  EXPECT_EQ(0, block->BaseOnOutEpLinked(3));
  EXPECT_EQ(-20, block->BaseOnOutEpLinked(3));
  EXPECT_EQ((Lines{"b.OnInEpLinked 3",
                   "D src/Block BaseOnInEpLinked: RouteA: b_0: Input endpoint 3 linked",
                   "E src/Block BaseOnInEpLinked: RouteA: b_0: Input endpoint 3 existed",
                   "b.OnOutEpLinked 3",
                   "D src/Block BaseOnOutEpLinked: RouteA: b_0: Output endpoint 3 linked",
                   "E src/Block BaseOnOutEpLinked: RouteA: b_0: Output endpoint 3 existed"}),
            TakeTrace());
  ASSERT_EQ(1u, block->ActiveInEps().size());
  EXPECT_EQ(block->InEp(3), block->ActiveInEps().at(3));
  EXPECT_EQ(block->OutEp(3), block->ActiveOutEps().at(3));
}

TEST_F(Blocks, HooksSeeThePortActiveWhileLinkedAndInactiveWhileUnlinked) {
  std::vector<std::size_t> seen;
  const auto look = [&](ScriptedBlock* b) {
    seen.push_back(b->ActiveInEps().size() + 10 * b->ActiveOutEps().size());
    return 5L;
  };
  for (const char* hook : {"OnInEpLinked", "OnOutEpLinked", "OnInEpUnlinked", "OnOutEpUnlinked"}) {
    Scripts()["b"].on[hook] = look;
  }
  auto block = Make();
  EXPECT_EQ(5, block->BaseOnInEpLinked(31));
  EXPECT_EQ(5, block->BaseOnOutEpLinked(0));
  block->BaseOnInEpUnlinked(31);
  block->BaseOnOutEpUnlinked(0);
  block->BaseOnInEpUnlinked(31);  // no longer there: told all the same
  EXPECT_EQ((std::vector<std::size_t>{1, 11, 10, 0, 0}), seen);
  EXPECT_TRUE(block->ActiveInEpsDataIsReady());
  EXPECT_FALSE(block->ActiveOutEpsDataIsEmpty());
}

TEST_F(Blocks, ReadyNeedsEveryInputAndEmptyAnyOutput) {
  auto block = Make();
  EXPECT_TRUE(block->ActiveInEpsDataIsReady());
  EXPECT_FALSE(block->ActiveOutEpsDataIsEmpty());
  for (const std::size_t i : {std::size_t{2}, std::size_t{9}}) {
    block->BaseOnInEpLinked(i);
    block->BaseOnOutEpLinked(i);
  }
  EXPECT_EQ(0, block->CommitFrame());  // to nobody: these ports have no link
  const struct {
    long first, second;
    bool ready, empty;
  } cases[] = {{0, 0, false, true},
               {5, 0, false, true},
               {0, 5, false, true},
               {5, 5, true, false},
               {-1, 5, true, false}};
  for (const auto& c : cases) {
    block->In(2)->validSamples = block->Out(2)->validSamples = c.first;
    block->In(9)->validSamples = block->Out(9)->validSamples = c.second;
    EXPECT_EQ(c.ready, block->ActiveInEpsDataIsReady()) << c.first << " " << c.second;
    EXPECT_EQ(c.empty, block->ActiveOutEpsDataIsEmpty()) << c.first << " " << c.second;
  }
  block->In(0)->validSamples = 4;  // inactive
  block->ClearActiveInEpsData();
  EXPECT_EQ(0, block->In(2)->validSamples + block->In(9)->validSamples);
  EXPECT_EQ(4, block->In(0)->validSamples);
  EXPECT_EQ(5, block->Out(9)->validSamples);
}

TEST_F(Blocks, StartAndStopOnceAndOnlyWhenTheySucceed) {
  Scripts()["b"].on["Start"] = test::Results({-5, 3, 0, 0});
  Scripts()["b"].on["Stop"] = test::Results({-6, 4, 0});
  auto block = Make();
  EXPECT_EQ(0, block->BaseStop());
  EXPECT_EQ(-5, block->BaseStart());
  EXPECT_EQ(0, block->BaseStop());
  EXPECT_EQ(3, block->BaseStart());
  EXPECT_EQ(0, block->BaseStart());
  EXPECT_EQ(0, block->BaseStart());
  EXPECT_EQ(-6, block->BaseStop());
  EXPECT_EQ(0, block->BaseStart());
  EXPECT_EQ(4, block->BaseStop());
  EXPECT_EQ(0, block->BaseStop());
  EXPECT_EQ(0, block->BaseStop());
  EXPECT_EQ(0, block->BaseStart());
  EXPECT_EQ((Lines{"b.Start", "b.Start", "b.Start", "b.Stop", "b.Stop", "b.Stop", "b.Start"}),
            TakeTrace());
}

TEST_F(Blocks, ResetEmptiesActivePortsButKeepsTheirTimes) {
  auto block = Make();
  block->BaseOnInEpLinked(4);
  block->BaseOnOutEpLinked(6);
  for (auto* fb : {block->In(4), block->Out(6), block->In(0), block->Out(0)}) {
    fb->validSamples = 3;
    fb->timestamp = 8;
  }
  TakeTrace();
  block->BaseReset();
  EXPECT_EQ((Lines{"D src/Block BaseReset: RouteA: b_0: Reset", "b.Reset"}), TakeTrace());
  EXPECT_EQ(0, block->In(4)->validSamples + block->Out(6)->validSamples);
  EXPECT_EQ(8, block->In(4)->timestamp);
  EXPECT_EQ(8, block->Out(6)->timestamp);
  EXPECT_EQ(6, block->In(0)->validSamples + block->Out(0)->validSamples);
}

}  // namespace
