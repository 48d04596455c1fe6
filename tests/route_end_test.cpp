#include <gtest/gtest.h>
#include <pthread.h>

#include "support/Child.h"
#include "support/RouteTest.h"
#include "support/quick_exit.h"

namespace {

using namespace test;
using zelk::Block;
using zelk::Route;

class RouteEnd : public RouteTest {};

TEST_F(RouteEnd, DeletingARunningRouteStopsEmptiesAndEndsItInThatOrder) {
  Scripts()["src"].quietFrames = Scripts()["dst"].quietFrames = true;
  MakePair();
  EXPECT_EQ(0, route->Start());
  TakeTrace();
  const bool srcIsLower = std::less<Block*>()(src, dst);
  const std::string low = srcIsLower ? "src" : "dst", high = srcIsLower ? "dst" : "src";
  const std::string lowName = srcIsLower ? "0" : "1", highName = srcIsLower ? "1" : "0";
  zelk::Zelk::Instance()->DeleteRoute(route);
  route = nullptr;
  EXPECT_EQ(
      (Lines{Processing("STOP"),
             "I src/Route Stop_l: RouteA: Stopping",
             low + ".Stop",
             high + ".Stop",
             "I src/Route Stop_l: RouteA: Stopped",
             "OnStopped 0",
             STOPPED,
             Processing("DELETE_ALL"),
             "D src/Block BaseOnOutEpUnlinked: RouteA: scripted_0: Output endpoint 0 unlinked",
             "src.OnOutEpUnlinked 0",
             "D src/Block BaseOnInEpUnlinked: RouteA: scripted_1: Input endpoint 0 unlinked",
             "dst.OnInEpUnlinked 0",
             "I src/Link ~Link: RouteA: lnk_0: Deleted",
             low + ".~",
             "I src/Block ~Block: RouteA: scripted_" + lowName + ": Deleted",
             high + ".~",
             "I src/Block ~Block: RouteA: scripted_" + highName + ": Deleted",
             STOPPED,
             Processing("EXIT"),
             "OnExit",
             "I src/Route Preprocess: RouteA: Status is EXIT",
             "I src/Route ~RouteImpl: RouteA: Deleted"}),
      TakeTrace("EWID"));
}

TEST_F(RouteEnd, ARouteWithoutCallbacksLivesAndDiesToo) {
  auto* quiet = zelk::Zelk::Instance()->NewRoute("RouteB", nullptr);
  Scripts()["b"].on["ProcessFrame"] = Results({0});
  EXPECT_NE(nullptr, quiet->NewBlock("scripted.so", true, true, {"b"}));
  EXPECT_EQ(0, quiet->Start());
  WaitFor("I src/Route Stop_l: RouteB: Stopped");
  zelk::Zelk::Instance()->DeleteRoute(quiet);
  EXPECT_EQ(1, CountOf(TakeTrace(), "I src/Route ~RouteImpl: RouteB: Deleted"));
}

// A route whose thread has ended can never be deleted, so each of these has a process of its own.
void InChild(const std::function<bool()>& goesWell) {
  EXPECT_EQ(0, RunChild([&](int) -> int { QuickExit(goesWell() ? 0 : 1); }).status);
}

// Death tests are run first, when this process has no thread yet.
TEST(RouteEndDeathTest, AnExitActionEndsTheThreadAfterOnExit) {
  InChild([] {
    NotingCallbacks callbacks;
    callbacks.on["OnExit"] = NoteTheEndOfThisThread;
    auto* route = zelk::Zelk::Instance()->NewRoute("RouteA", &callbacks);
    TakeTrace();
    Route::Action batch[2];
    batch[0].type = Route::EXIT;
    batch[1].type = Route::DELETE_ALL;
    batch[1].deleteAll.ret = -20;
    route->ExecuteActions(batch, 2);
    WaitFor("thread ended");
    const Lines wanted = {Processing("EXIT"), "OnExit", Processing("DELETE_ALL"),
                          "I src/Route Preprocess: RouteA: Status is EXIT", "thread ended"};
    Lines trace = TakeTrace();
    if (trace.size() == 6) trace.erase(trace.begin());  // STOPPED, if the thread was quick
    EXPECT_EQ(wanted, trace);
    return trace == wanted && batch[1].deleteAll.ret == 0;
  });
}

TEST(RouteEndDeathTest, AnyOtherRefusalToStartWhileRunningEndsTheThread) {
  InChild([] {
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
    return CountOf(TakeTrace(), STOPPING) == 0;
  });
}

TEST(RouteEndDeathTest, ABlockThatEndsItsThreadIsNoException) {
  InChild([] {
    Scripts()["b"].on["ProcessFrame"] = [](ScriptedBlock*) -> long {
      NoteTheEndOfThisThread();
      pthread_exit(nullptr);
    };
    auto* route = zelk::Zelk::Instance()->NewRoute("RouteA", nullptr);
    route->NewBlock("scripted.so", true, true, {"b"});
    route->Start();
    WaitFor("thread ended");
    return With(TakeTrace("E"), "threw").empty();
  });
}

}  // namespace
