#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "support/RouteTest.h"

namespace {

using namespace test;
using zelk::Block;
using zelk::Route;

const std::vector<std::string> NO_ARGS;

Route::Action NewBlockAction(const char* file, bool first, bool last,
                             const std::vector<std::string>* args, Block** block) {
  Route::Action action;
  action.type = Route::NEW_BLOCK;
  action.newBlock = {file, first, last, args, block};
  return action;
}

Route::Action NewLinkAction(Block** source, unsigned long out, Block** sink, unsigned long in) {
  Route::Action action;
  action.type = Route::NEW_LINK;
  action.newLink = {48000, zelk::S16_LE, 2, 480, source, out, sink, in, nullptr};
  return action;
}

class ActionQueue : public RouteTest {};

TEST(Actions, AreZeroInEveryByteWhenDefaultConstructed) {
  alignas(Route::Action) unsigned char bytes[sizeof(Route::Action)];
  std::memset(bytes, 0xFF, sizeof bytes);
  new (bytes) Route::Action;
  for (const auto byte : bytes)
    EXPECT_EQ(0, byte);
  EXPECT_EQ(10u, Route::SET_DUMP);
}

TEST_F(ActionQueue, AnEmptyBatchReturnsAtOnceAndQueuesNothing) {
  Route::Action action;
  action.type = Route::STOP;
  route->ExecuteActions(nullptr, 3);
  route->ExecuteActions(&action, 0);
  EXPECT_EQ((Lines{}), TakeTrace());
}

TEST_F(ActionQueue, EveryOperationIsOneActionOfItsKind) {
  auto* block = New("b", true, true);
  std::vector<std::string> texts;
  Block* other = route->NewBlock("scripted.so", true, false, NO_ARGS);
  route->NewLink(1, zelk::BYTE, 1, 1, other, 0, block, 0);
  route->SetParameter(block, 1, {});
  route->GetParameter(block, 1, texts);
  route->Reset(block);
  route->SetDump(nullptr);
  route->Delete(other);
  route->Delete(block);
  route->DeleteAll();
  route->Start();
  route->Stop();
  EXPECT_EQ((Lines{Processing("NEW_BLOCK"), Processing("NEW_BLOCK"), Processing("NEW_LINK"),
                   Processing("SET_PARAMETER"), Processing("GET_PARAMETER"), Processing("RESET"),
                   Processing("SET_DUMP"), Processing("DELETE"), Processing("DELETE"),
                   Processing("DELETE_ALL"), Processing("START"), Processing("STOP")}),
            With(TakeTrace(), "Processing action"));
}

TEST_F(ActionQueue, OneBatchBuildsLinksAndRunsAGraph) {
  Block *source = nullptr, *sink = nullptr;
  const std::vector<std::string> sourceArgs = {"src"}, sinkArgs = {"dst"};
  Scripts()["src"].on["ProcessFrame"] = Results({0, zelk::FRAME_END_OF_FILE});
  Route::Action batch[] = {NewBlockAction("scripted.so", true, false, &sourceArgs, &source),
                           NewBlockAction("scripted.so", false, true, &sinkArgs, &sink),
                           NewLinkAction(&source, 31, &sink, 31),
                           {}};
  batch[3].type = Route::START;
  batch[3].start.ret = -20;
  route->ExecuteActions(batch, 4);
  ASSERT_TRUE(source != nullptr && sink != nullptr);
  EXPECT_NE(nullptr, batch[2].newLink.link);
  EXPECT_EQ(0, batch[3].start.ret);
  WaitFor(STOPPED);
  const auto trace = TakeTrace();
  EXPECT_EQ((Lines{Processing("NEW_BLOCK"), Processing("NEW_BLOCK"), Processing("NEW_LINK"),
                   Processing("START"), STOPPED}),
            With(trace, "D src/Route Pr"));
  EXPECT_EQ(1, CountOf(trace, "dst.ProcessFrame"));
}

TEST_F(ActionQueue, ALinkOfABlockThatCouldNotBeMadeIsRefused) {
  Block *source = reinterpret_cast<Block*>(16), *sink = nullptr;
  Route::Action batch[] = {NewBlockAction("missing.so", true, false, &NO_ARGS, &source),
                           NewBlockAction("scripted.so", false, true, &NO_ARGS, &sink),
                           NewLinkAction(&source, 0, &sink, 0),
                           NewLinkAction(&sink, 0, &source, 0)};
  route->ExecuteActions(batch, 4);
  EXPECT_EQ(nullptr, source);
  EXPECT_NE(nullptr, sink);
  EXPECT_EQ(nullptr, batch[2].newLink.link);
  EXPECT_EQ(nullptr, batch[3].newLink.link);
  const auto errors = With(TakeTrace("E"), "E src/Route NewLink_l: RouteA: ");
  ASSERT_EQ(2u, errors.size());
  EXPECT_EQ(0u, errors[0].find("E src/Route NewLink_l: RouteA: source "));
  EXPECT_EQ(0u, errors[1].find("E src/Route NewLink_l: RouteA: sink "));
  for (const auto& error : errors)
    EXPECT_NE(std::string::npos, error.rfind(" doesn't exist"));
}

TEST_F(ActionQueue, UnknownActionsAreLoggedSkippedAndAnswered) {
  Route::Action batch[3];
  batch[0].type = static_cast<Route::ActionType>(11);
  batch[0].start.ret = 4711;
  batch[1].type = Route::STOP;
  batch[1].stop.ret = -20;
  batch[2].type = static_cast<Route::ActionType>(0xFFFFFFFF);
  route->ExecuteActions(batch, 3);
  EXPECT_EQ(4711, batch[0].start.ret);
  EXPECT_EQ(0, batch[1].stop.ret);
  const auto errors = TakeTrace("E");
  ASSERT_EQ(2u, errors.size());
  for (const auto& error : errors) {
    EXPECT_EQ(0u, error.find("E src/Route ProcessActions: RouteA: Unknown action: ")) << error;
  }
}

TEST_F(ActionQueue, ArgumentsAreCheckedBeforeAnythingIsQueued) {
  auto* a = New("a", true, false);
  auto* b = New("b", false, true);
  TakeTrace();
  EXPECT_EQ(nullptr, route->NewBlock(nullptr, true, true, {}));
  EXPECT_EQ((Lines{"E src/Route NewBlock: RouteA: so file name is nullptr"}), TakeTrace());
  const struct {
    Block *source, *sink;
    unsigned long out, in;
    const char* message;
  } cases[] = {
      {nullptr, nullptr, 32, 32, "Source block is nullptr"},
      {a, nullptr, 32, 32, "Sink block is nullptr"},
      {a, b, 32, 33, "Invalid source block output endpoint index 32"},
      {a, b, 31, 32, "Invalid sink block input endpoint index 32"},
      {a, b, 0, ~0ul, "Invalid sink block input endpoint index 18446744073709551615"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(nullptr, Join(c.source, c.out, c.sink, c.in));
    EXPECT_EQ((Lines{std::string("E src/Route NewLink: RouteA: ") + c.message}), TakeTrace());
  }
  EXPECT_NE(nullptr, Join(a, 31, b, 31));
}

TEST_F(ActionQueue, BatchesOfManyThreadsRunWholeAndInOrderWhateverTheState) {
  Scripts()["b"].on["ProcessFrame"] = [](ScriptedBlock*) {
    std::this_thread::yield();
    return 0L;
  };
  auto* block = New("b", true, true);
  constexpr unsigned THREADS = 4, BATCHES = 60;
  for (const bool running : {false, true}) {
    EXPECT_EQ(0, running ? route->Start() : 0);
    TakeTrace();
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < THREADS; ++t) {
      threads.emplace_back([&, t] {
        for (unsigned i = 0; i < BATCHES; ++i) {
          Route::Action batch[3];
          for (unsigned k = 0; k < 3; ++k) {
            batch[k].type = Route::SET_PARAMETER;
            batch[k].setParameter = {block, t * 1000 + i * 3 + k, &NO_ARGS, -20};
          }
          route->ExecuteActions(batch, 3);
          for (const auto& action : batch)
            EXPECT_EQ(0, action.setParameter.ret);
        }
      });
    }
    for (auto& thread : threads)
      thread.join();

    Lines hooks = With(TakeTrace(""), "b.");  // parameters and, while running, frames
    std::size_t batches = 0;
    unsigned next[THREADS] = {};
    for (std::size_t i = 0; i < hooks.size(); ++i) {
      if (hooks[i] == "b.ProcessFrame" || hooks[i] == "b.Start") continue;
      const auto id = static_cast<unsigned>(std::stoul(hooks[i].substr(15)));
      EXPECT_EQ(next[id / 1000], id % 1000);
      next[id / 1000] += 3;
      ASSERT_LT(i + 2, hooks.size());
      EXPECT_EQ("b.SetParameter " + std::to_string(id + 1), hooks[i + 1]);
      EXPECT_EQ("b.SetParameter " + std::to_string(id + 2), hooks[i + 2]);
      i += 2;
      ++batches;
    }
    EXPECT_EQ(THREADS * BATCHES, batches);
  }
}

}  // namespace
