#include <gtest/gtest.h>

#include <array>
#include <random>

#include "support/RouteTest.h"

namespace {

using namespace test;

class FrameLoop : public RouteTest {
 protected:
  /// Scripts "src" to publish 7 samples per frame and to answer `results`.
  void ScriptSource(std::initializer_list<long> results) {
    Scripts()["src"].on["ProcessFrame"] = [next = Results(results)](ScriptedBlock* b) {
      b->Out(0)->validSamples = 7;
      return next(b);
    };
  }
  /// The calls of `hook` on the first `count` blocks.
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

TEST_F(FrameLoop, AWaveGoesOnAroundTheBlockThatTakesAnotherTurn) {
  std::vector<ScriptedBlock*> lone;
  bool pended = false;
  for (std::size_t i = 0; i < 4; ++i) {
    Scripts()[Numbered("b", i)].on["ProcessFrame"] = [&](ScriptedBlock* b) {
      if (b == lone[1] && !pended) {
        pended = true;
        return long{zelk::FRAME_PENDING};
      }
      return b == lone[1] ? long{zelk::FRAME_FADED_OUT} : 0L;
    };
  }
  lone = MakeLone(4);
  Lines wanted = Calls(lone, 4, ".ProcessFrame");
  wanted.push_back(lone[1]->Label() + ".ProcessFrame");
  EXPECT_EQ(wanted, With(Run(""), ".ProcessFrame"));
}

TEST_F(FrameLoop, ARingGoesRoundUntilABlockHasNothingToPassOn) {
  Scripts()["src"].on["ProcessFrame"] = Results({0, zelk::FRAME_END_OF_FILE});
  Scripts()["b"].on["ProcessFrame"] = Results({0, 0, 0, 0, 0, 0, 0, 0, 0, -3});
  src = New("src", true, false);
  auto* a = New("a", false, false);
  auto* b = New("b", false, false);
  Join(src, 0, a, 0);
  Join(a, 0, b, 0);
  Join(b, 0, a, 1);
  Lines wanted = {"src.ProcessFrame"};
  for (int round = 0; round < 10; ++round) {
    wanted.push_back("a.ProcessFrame");
    wanted.push_back("b.ProcessFrame");
  }
  wanted.push_back("src.ProcessFrame");
  EXPECT_EQ(wanted, With(Run(""), ".ProcessFrame"));
}

/// A random graph whose blocks answer from lists, and the order in which plain sets would call
/// them.
class RandomGraph {
 public:
  explicit RandomGraph(unsigned seed) : random(seed), count(2 + random() % 8), answers(count) {
    answers[0] = {0, -1, 0, 0, 0, zelk::FRAME_END_OF_FILE};
    for (std::size_t i = 1; i < count; ++i) {
      Connect(random() % i, i);
      for (int call = 0; call < 12; ++call)
        answers[i].push_back(std::array{0, 0, 0, 0, -1, -3}[random() % 6]);
    }
    for (std::size_t extra = random() % count; extra > 0; --extra)
      Connect(random() % count, 1 + random() % (count - 1));  // may close a ring
  }

  /// Runs out of other answers after some frames.
  long Answer(std::size_t block, std::size_t call) const {
    return call < answers[block].size() ? answers[block][call] : -3;
  }
  bool IsLast(std::size_t block) const {
    return std::none_of(joins.begin(), joins.end(),
                        [&](auto& join) { return join.first == block; });
  }

  Lines Expected(const std::vector<ScriptedBlock*>& blocks) const {
    using Wave = std::map<ScriptedBlock*, std::size_t, std::less<>>;
    Lines calls;
    std::vector<std::size_t> called(count);
    for (;;) {
      for (Wave current = {{blocks[0], 0}}, next; !current.empty(); current.swap(next)) {
        next.clear();
        for (const auto& [block, number] : current) {
          calls.push_back(block->Label() + ".ProcessFrame");
          const long answer = Answer(number, called[number]++);
          if (answer == zelk::FRAME_END_OF_FILE) return calls;
          if (answer == -1) next.emplace(block, number);
          for (const auto& [from, to] : joins)
            if (answer == 0 && from == number) next.emplace(blocks[to], to);
        }
      }
    }
  }

  std::mt19937 random;
  const std::size_t count;
  std::vector<std::pair<std::size_t, std::size_t>> joins;

 private:
  void Connect(std::size_t from, std::size_t to) { joins.emplace_back(from, to); }

  std::vector<std::vector<long>> answers;
};

TEST_F(FrameLoop, AnyGraphRunsInTheWavesOfPlainSets) {
  for (unsigned seed = 0; seed < 100; ++seed) {
    route->DeleteAll();
    const RandomGraph graph(seed);
    std::vector<ScriptedBlock*> blocks;
    for (std::size_t i = 0; i < graph.count; ++i) {
      Scripts()[Numbered("b", i)].on["ProcessFrame"] = [&graph, i, call = 0U](auto*) mutable {
        return graph.Answer(i, call++);
      };
      blocks.push_back(New(Numbered("b", i), i == 0, graph.IsLast(i)));
    }
    std::vector<unsigned long> outs(graph.count), ins(graph.count);
    for (const auto& [from, to] : graph.joins)
      ASSERT_NE(nullptr, Join(blocks[from], outs[from]++, blocks[to], ins[to]++));
    EXPECT_EQ(graph.Expected(blocks), With(Run(""), ".ProcessFrame")) << seed;
  }
}

}  // namespace
