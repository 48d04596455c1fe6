#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "support/RouteTest.h"

namespace {

using namespace test;

std::string Loop(const std::string& levelAndText) {
  return levelAndText.substr(0, 1) + " src/Route MainThreadLoop: RouteA: " + levelAndText.substr(2);
}
const std::string STARTED = "I src/Route Start_l: RouteA: Started";
const std::string RUNNING = "I src/Route Start_l: RouteA: Status is RUNNING";
const std::string STOPPING = "I src/Route Stop_l: RouteA: Stopping";
const std::string HAS_STOPPED = "I src/Route Stop_l: RouteA: Stopped";

long Pace(ScriptedBlock*) {
  std::this_thread::yield();
  return 0;
}

class FrameLoop : public RouteTest {
 protected:
  /// Scripts "src" to publish 7 samples per frame and to answer `results`.
  void ScriptSource(std::initializer_list<long> results) {
    Scripts()["src"].on["ProcessFrame"] = [next = Results(results)](ScriptedBlock* b) {
      b->Out(0)->validSamples = 7;
      return next(b);
    };
  }
  /// Makes `count` blocks that are source and sink at once; returns them in address order.
  std::vector<ScriptedBlock*> MakeLone(std::size_t count) {
    std::vector<ScriptedBlock*> made;
    for (std::size_t i = 0; i < count; ++i)
      made.push_back(New(Numbered("b", i), true, true));
    std::sort(made.begin(), made.end(), std::less<>());
    return made;
  }
  /// The last `count` lines but for those of the blocks' own starts and stops.
  static Lines Tail(Lines lines, std::size_t count) {
    const auto own = [](const std::string& line) { return line.find(".St") != std::string::npos; };
    lines.erase(std::remove_if(lines.begin(), lines.end(), own), lines.end());
    return Lines(lines.end() - static_cast<long>(std::min(count, lines.size())), lines.end());
  }
  static Lines Calls(const std::vector<ScriptedBlock*>& blocks, std::size_t count,
                     const std::string& hook) {
    Lines lines;
    for (std::size_t i = 0; i < count; ++i)
      lines.push_back(blocks[i]->Label() + hook);
    return lines;
  }
};

TEST_F(FrameLoop, AFrameGoesFromSourceToSinkAndIsCounted) {
  ScriptSource({0, 5, zelk::FRAME_FADED_OUT});
  Scripts()["dst"].on["ProcessFrame"] = [](ScriptedBlock* b) {
    Note("samples " + std::to_string(b->In(0)->validSamples));
    b->ClearActiveInEpsData();
    return 0L;
  };
  MakePair();
  const bool srcIsLower = std::less<>()(src, dst);
  const std::string low = srcIsLower ? "src" : "dst", high = srcIsLower ? "dst" : "src";
  const Lines frame = {"src.ProcessFrame", Loop("V scripted_0 (first) is done"), "dst.ProcessFrame",
                       "samples 7", Loop("V scripted_1 (last) is done")};
  Lines wanted = {"D src/Route ProcessActions: RouteA: Processing action 'START'",
                  low + ".Start",
                  high + ".Start",
                  STARTED,
                  "OnStarted",
                  RUNNING};
  wanted.insert(wanted.end(), frame.begin(), frame.end());
  wanted.push_back(Loop("V 1 frame processed OK, 0 error frame"));
  wanted.insert(wanted.end(), frame.begin(), frame.end());
  for (const std::string& line :
       {Loop("V 2 frames processed OK, 0 error frame"), std::string("src.ProcessFrame"),
        Loop("I scripted_0: Faded out"), STOPPING, low + ".Stop", high + ".Stop", HAS_STOPPED,
        std::string("OnStopped 0"), Loop("V 3 frames processed OK, 0 error frame"),
        std::string(STOPPED)}) {
    wanted.push_back(line);
  }
  EXPECT_EQ(wanted, Run());
  EXPECT_EQ(7, dst->In(0)->validSamples);  // the faded frame was committed
  EXPECT_EQ(0, route->Stop());
  EXPECT_EQ((Lines{}), TakeTrace("EWI"));
}

TEST_F(FrameLoop, EveryResultHasItsOutcome) {
  const Lines nothing;
  const auto failed = [](const std::string& code) {
    return Lines{Loop("E scripted_0: Process frame failed " + code), STOPPING, HAS_STOPPED,
                 "OnStopped 1", Loop("V 0 frame processed OK, 1 error frame")};
  };
  const struct {
    long result;
    Lines outcome;
    bool committed, reset;
  } cases[] = {
      {-21,
       {Loop("I scripted_0: End of file"), STOPPING, HAS_STOPPED, "OnStopped 2"},
       false,
       false},
      {-2, failed("-2"), true, true},
      {-4, failed("-4"), true, true},
      {-20, failed("-20"), true, true},
      {-30, failed("-30"), true, true},
      {-10,
       {Loop("E scripted_0: Process frame timeout"), Loop("V 0 frame processed OK, 1 error frame"),
        Loop("I scripted_0: End of file"), STOPPING, HAS_STOPPED, "OnStopped 2"},
       false,
       true},
      {-3,
       {Loop("V scripted_0 (first) is done without output"),
        Loop("V 1 frame processed OK, 0 error frame"), Loop("I scripted_0: End of file"), STOPPING,
        HAS_STOPPED, "OnStopped 2"},
       true,
       false},
  };
  for (const auto& c : cases) {
    route->DeleteAll();
    ScriptSource({c.result, zelk::FRAME_END_OF_FILE});
    MakePair();
    const auto trace = Run();
    Lines outcome;
    bool running = false;
    for (const auto& line : trace) {
      if (running && (line[1] == ' ' || line.find("On") == 0) && line != STOPPED) {
        outcome.push_back(line);
      }
      running = running || line == RUNNING;
    }
    EXPECT_EQ(c.outcome, outcome) << c.result;
    EXPECT_EQ(0, CountOf(trace, "dst.ProcessFrame")) << c.result;
    EXPECT_EQ(c.committed ? 7 : 0, dst->In(0)->validSamples) << c.result;
    const Lines resets =
        std::less<>()(src, dst) ? Lines{"src.Reset", "dst.Reset"} : Lines{"dst.Reset", "src.Reset"};
    EXPECT_EQ(c.reset ? resets : nothing, With(trace, "Reset")) << c.result;
  }
}

TEST_F(FrameLoop, APendingBlockIsCalledAgainInTheSameFrame) {
  Scripts()["src"].on["ProcessFrame"] = Results({-1, 0, zelk::FRAME_END_OF_FILE});
  Scripts()["dst"].on["ProcessFrame"] = Results({-1, -1, -3});
  MakePair();
  const auto trace = Run();
  EXPECT_EQ((Lines{"src.ProcessFrame", "src.ProcessFrame", "dst.ProcessFrame", "dst.ProcessFrame",
                   "dst.ProcessFrame", "src.ProcessFrame"}),
            With(trace, ".ProcessFrame"));
  EXPECT_EQ((Lines{Loop("V scripted_0 is pending"), Loop("V scripted_0 (first) is done"),
                   Loop("V scripted_1 is pending"), Loop("V scripted_1 is pending"),
                   Loop("V scripted_1 (last) is done without output"),
                   Loop("V 1 frame processed OK, 0 error frame")}),
            With(trace, "V "));
}

TEST_F(FrameLoop, WavesRunStartResetAndStopInAddressOrder) {
  std::vector<ScriptedBlock*> lone;
  std::size_t frame = 0;
  for (std::size_t i = 0; i < 6; ++i) {
    Scripts()[Numbered("b", i)].on["ProcessFrame"] = [&](ScriptedBlock* b) {
      if (b == lone[0]) ++frame;
      if (frame == 2 && b == lone[2]) return long{zelk::FRAME_TIMEOUT};
      if (frame == 3 && b == lone[3]) return long{zelk::FRAME_FADED_OUT};
      return 0L;
    };
  }
  lone = MakeLone(6);
  const auto trace = Run("");
  Lines wanted;
  for (const auto& part :
       {Calls(lone, 6, ".Start"), Lines{"OnStarted"}, Calls(lone, 6, ".ProcessFrame"),
        Calls(lone, 3, ".ProcessFrame"), Calls(lone, 6, ".Reset"), Calls(lone, 4, ".ProcessFrame"),
        Calls(lone, 6, ".Stop"), Lines{"OnStopped 0"}}) {
    wanted.insert(wanted.end(), part.begin(), part.end());
  }
  EXPECT_EQ(wanted, trace);
}

TEST_F(FrameLoop, JoinsOfUnequalPathsAreCalledTwiceAndLastBlocksEndTheirPath) {
  Scripts()["src"].on["ProcessFrame"] = Results({0, zelk::FRAME_END_OF_FILE});
  src = New("src", true, false);
  auto* middle = New("mid", false, false);
  auto* join = New("join", false, false);
  dst = New("dst", false, true);
  auto* beyond = New("beyond", false, true);
  Join(src, 0, middle, 0);
  Join(src, 1, join, 0);
  Join(src, 2, join, 1);  // twice from one source: called once for it
  Join(middle, 0, join, 2);
  Join(join, 0, dst, 0);
  Join(dst, 0, beyond, 0);
  auto trace = With(Run(), ".ProcessFrame");
  // Wave 2 is {mid, join}, wave 3 {join, dst}, each in address order; wave 4 is {dst}.
  ASSERT_EQ(7u, trace.size());
  std::sort(trace.begin() + 1, trace.begin() + 3);
  std::sort(trace.begin() + 3, trace.begin() + 5);
  EXPECT_EQ((Lines{"src.ProcessFrame", "join.ProcessFrame", "mid.ProcessFrame", "dst.ProcessFrame",
                   "join.ProcessFrame", "dst.ProcessFrame", "src.ProcessFrame"}),
            trace);
}

TEST_F(FrameLoop, ABlockThatRefusesToStartFailsTheStart) {
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

TEST_F(FrameLoop, AStartWithAPositiveResultIsRepeatedBeforeEveryFrame) {
  Scripts()["b"].on["Start"] = Results({5, 5, 0});
  Scripts()["b"].on["ProcessFrame"] = Results({0, zelk::FRAME_FADED_OUT});
  New("b", true, true);
  EXPECT_EQ((Lines{"b.Start", "OnStarted", "b.Start", "b.ProcessFrame", "b.Start", "b.ProcessFrame",
                   "b.Stop", "OnStopped 0"}),
            Run(""));
}

TEST_F(FrameLoop, ABlockThatRefusesToStopKeepsTheRouteRunning) {
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

TEST_F(FrameLoop, AnEndThatABlockRefusesComesAgainInTheNextFrame) {
  Scripts()["b"].on["ProcessFrame"] = [](ScriptedBlock*) { return long{zelk::FRAME_END_OF_FILE}; };
  Scripts()["b"].on["Stop"] = Results({-6, 0});
  New("b", true, true);
  const auto trace = Run();
  EXPECT_EQ(2, CountOf(trace, Loop("I scripted_0: End of file")));
  EXPECT_EQ((Lines{"OnStarted", "OnStopped 2"}), With(trace, "OnSt"));
}

TEST_F(FrameLoop, BrokenGraphsAreNamedAndStopped) {
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

TEST_F(FrameLoop, AGraphBrokenWhileRunningWaitsToBeMendedAndCountsAnew) {
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

TEST_F(FrameLoop, BlocksAddedWhileRunningStartBeforeTheirFirstFrame) {
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

// In a process of its own: such a route can never be deleted.
[[noreturn]] void RefuseToStartWhileRunning() {
  Scripts()["b0"].on["ProcessFrame"] = Pace;
  Scripts()["refusing"].on["Start"] = [](ScriptedBlock*) {
    NoteTheEndOfThisThread();
    return -5L;
  };
  auto* route = zelk::Zelk::Instance()->NewRoute("RouteA", nullptr);
  route->NewBlock("scripted.so", true, true, {"b0"});
  route->Start();
  route->NewBlock("scripted.so", true, true, {"refusing"});
  WaitFor("thread ended");
  _exit(CountOf(TakeTrace(), STOPPING) == 0 ? 0 : 1);
}

TEST(FrameLoopDeathTest, AnyOtherRefusalToStartWhileRunningEndsTheThread) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(RefuseToStartWhileRunning(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
