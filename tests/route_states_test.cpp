#include <gtest/gtest.h>

#include <atomic>

#include "support/RouteTest.h"

namespace {

using namespace test;

class RouteStates : public RouteTest {
 protected:
  /// The last `count` lines but for those of the blocks' own starts and stops.
  static Lines Tail(Lines lines, std::size_t count) {
    const auto own = [](const std::string& line) { return line.find(".St") != std::string::npos; };
    lines.erase(std::remove_if(lines.begin(), lines.end(), own), lines.end());
    return Lines(lines.end() - static_cast<long>(std::min(count, lines.size())), lines.end());
  }
};

TEST_F(RouteStates, ABlockThatRefusesToStartFailsTheStart) {
  for (std::size_t i = 0; i < 3; ++i) {
    Scripts()[Numbered("b", i)].on["ProcessFrame"] = Results({});
  }
  ScriptedBlock* refusing = nullptr;
  bool refuse = true;
  for (std::size_t i = 0; i < 3; ++i) {
    Scripts()[Numbered("b", i)].on["Start"] = [&](ScriptedBlock* b) {
      return b == refusing && refuse ? -5L : 0L;
    };
  }
  const auto lone = MakeLone(3);
  refusing = lone[1];
  TakeTrace();
  EXPECT_EQ(-5, route->Start());
  EXPECT_EQ(
      (Lines{lone[0]->Label() + ".Start", lone[1]->Label() + ".Start",
             "E src/Route Start_l: RouteA: Failed to start " + lone[1]->Name() + " (ret=-5)"}),
      TakeTrace("EI"));
  refuse = false;
  EXPECT_EQ((Lines{lone[1]->Label() + ".Start", lone[2]->Label() + ".Start"}),
            With(Run(""), ".Start"));
}

TEST_F(RouteStates, AStartWithAPositiveResultIsRepeatedBeforeEveryFrame) {
  Scripts()["b"].on["Start"] = Results({5, 5, 0});
  Scripts()["b"].on["ProcessFrame"] = Results({0, zelk::FRAME_FADED_OUT});
  New("b", true, true);
  EXPECT_EQ((Lines{"b.Start", "OnStarted", "b.Start", "b.ProcessFrame", "b.Start", "b.ProcessFrame",
                   "b.Stop", "OnStopped 0"}),
            Run(""));
}

TEST_F(RouteStates, ABlockThatRefusesToStopKeepsTheRouteRunning) {
  ScriptedBlock* refusing = nullptr;
  std::atomic<int> refusals{0};
  for (const char* label : {"b0", "b1"}) {
    Scripts()[label].quietFrames = true;
    Scripts()[label].on["ProcessFrame"] = Pace;
    Scripts()[label].on["Stop"] = [&](ScriptedBlock* b) {
      return b == refusing && refusals++ == 0 ? -6L : 0L;
    };
  }
  const auto lone = MakeLone(2);
  refusing = lone[1];
  EXPECT_EQ(0, route->Start());
  EXPECT_EQ(0, route->Start());
  EXPECT_EQ(1, CountOf(TakeTrace(), STARTED));
  EXPECT_EQ(-6, route->Stop());
  EXPECT_EQ(0, route->Stop());
  const std::string low = lone[0]->Label(), high = lone[1]->Label();
  EXPECT_EQ((Lines{STOPPING, low + ".Stop", high + ".Stop",
                   "E src/Route Stop_l: RouteA: Failed to stop " + lone[1]->Name() + " (ret=-6)",
                   low + ".Start",  // what had stopped is started again for the next frame
                   STOPPING, low + ".Stop", high + ".Stop", HAS_STOPPED, "OnStopped 0"}),
            TakeTrace("EI"));
}

TEST_F(RouteStates, AnEndThatABlockRefusesComesAgainInTheNextFrame) {
  Scripts()["b"].on["ProcessFrame"] = [](ScriptedBlock*) { return long{zelk::FRAME_END_OF_FILE}; };
  Scripts()["b"].on["Stop"] = Results({-6, 0});
  New("b", true, true);
  const auto trace = Run();
  EXPECT_EQ(2, CountOf(trace, Loop("I scripted_0: End of file")));
  EXPECT_EQ((Lines{"OnStarted", "OnStopped 2"}), With(trace, "OnSt"));
}

TEST_F(RouteStates, BrokenGraphsAreNamedAndStopped) {
  const struct {
    std::vector<std::pair<bool, bool>> blocks;  // first, last
    const char* error;
  } cases[] = {
      {{}, "No first block(s)"},
      {{{false, true}}, "No first block(s)"},
      {{{true, true}, {false, true}},
       "scripted_1 (who is non-first-block) has no active input endpoint"},
      {{{true, true}, {true, false}},
       "scripted_1 (who is non-last-block) has no active output endpoint"},
      {{{true, true}, {false, false}},
       "scripted_1 (who is non-first-block) has no active input endpoint"},
  };
  for (const auto& c : cases) {
    for (const auto& [first, last] : c.blocks) {
      Scripts()["b"].quietFrames = true;
      ASSERT_NE(nullptr, New("b", first, last));
    }
    TakeTrace();
    EXPECT_EQ(0, route->Start());
    WaitFor(BROKEN);
    const Lines trace = TakeTrace("EI");
    EXPECT_EQ(2 * c.blocks.size(), With(trace, "b.St").size());
    EXPECT_EQ((Lines{STARTED, "OnStarted", RUNNING,
                     std::string("E src/Route IntegrityCheck: RouteA: ") + c.error, STOPPING,
                     HAS_STOPPED, "OnStopped 1", BROKEN}),
              Tail(trace, 99));
    EXPECT_EQ(0, route->Stop());
    EXPECT_EQ((Lines{STOPPING, HAS_STOPPED, "OnStopped 0"}), TakeTrace("EI"));
    route->DeleteAll();
  }
}

TEST_F(RouteStates, AGraphBrokenWhileRunningWaitsToBeMendedAndCountsAnew) {
  const std::string summary = Loop("V 3 frames processed OK, 0 error frame");
  Scripts()["src"].on["ProcessFrame"] = Pace;
  Scripts()["src"].quietFrames = Scripts()["dst"].quietFrames = true;
  src = New("src", true, true);  // whole without the link
  dst = New("dst", false, true);
  auto* link = Join(src, 0, dst, 0);
  EXPECT_EQ(0, route->Start());
  WaitFor(summary);
  TakeTrace();
  EXPECT_EQ(0, route->Delete(link));
  const Lines broken = {
      "E src/Route IntegrityCheck: RouteA: scripted_1 (who is non-first-block) has no active input "
      "endpoint",
      STOPPING, HAS_STOPPED, "OnStopped 1", BROKEN};
  Lines trace = TakeTrace("EI");
  EXPECT_EQ(2u, With(trace, ".Stop").size());
  EXPECT_EQ(broken, Tail(trace, 5));
  route->Reset(src);  // any action wakes it, to find it as broken as before
  EXPECT_EQ(broken, Tail(TakeTrace("EI"), 5));
  EXPECT_EQ(0, route->Start());
  EXPECT_EQ(broken, Tail(TakeTrace("EI"), 5));

  ASSERT_NE(nullptr, Join(src, 0, dst, 0));
  WaitFor(Loop("V 1 frame processed OK, 0 error frame"));
  EXPECT_EQ((Lines{"OnStarted"}), With(TakeTrace(), "OnSt"));
  EXPECT_EQ(0, route->Stop());
}

TEST_F(RouteStates, AGraphWhoseBlocksRefuseToStopGoesOnWhereItWasMended) {
  for (const char* label : {"src", "dst"}) {
    Scripts()[label].quietFrames = true;
    Scripts()[label].on["ProcessFrame"] = Pace;
    Scripts()[label].on["Stop"] = Results({-6, 0, 0});
  }
  src = New("src", true, true);
  dst = New("dst", false, true);
  auto* link = Join(src, 0, dst, 0);
  EXPECT_EQ(0, route->Start());
  TakeTrace();
  EXPECT_EQ(0, route->Delete(link));
  WaitFor(BROKEN);
  ASSERT_NE(nullptr, Join(src, 0, dst, 0));
  WaitFor(RUNNING);
  EXPECT_EQ((Lines{}), With(TakeTrace("EI"), ".Start"));
}

TEST_F(RouteStates, BlocksAddedWhileRunningStartBeforeTheirFirstFrame) {
  Scripts()["b0"].quietFrames = true;
  Scripts()["b0"].on["ProcessFrame"] = Pace;
  Scripts()["late"].on["ProcessFrame"] = [](ScriptedBlock*) { return 0L; };
  MakeLone(1);
  EXPECT_EQ(0, route->Start());
  TakeTrace();
  ASSERT_NE(nullptr, New("late", true, true));
  WaitFor("late.ProcessFrame");
  EXPECT_EQ("late.Start", With(TakeTrace(), "late.").front());

  Scripts()["refusing"].on["Start"] = [](ScriptedBlock*) { return -20L; };
  ASSERT_NE(nullptr, New("refusing", true, true));
  WaitFor(STOPPED);
  const auto trace = TakeTrace();
  EXPECT_EQ((Lines{"E src/Route Start_l: RouteA: Failed to start scripted_2 (ret=-20)"}),
            With(trace, "E src"));
  EXPECT_EQ((Lines{"OnStopped 1"}), With(trace, "On"));
  EXPECT_EQ(0, CountOf(trace, "refusing.ProcessFrame"));
}

}  // namespace
