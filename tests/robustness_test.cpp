// What clients and plug-ins may do wrong without taking the host down.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include "support/RouteTest.h"

namespace {

using namespace test;
using zelk::Route;

class Robustness : public RouteTest {};

TEST_F(Robustness, CallsFromTheRoutesOwnThreadAreRefused) {
  auto* block = New("b", true, true);
  Route::Action batch[3];
  batch[0].type = Route::STOP;
  batch[0].stop.ret = 4711;
  const auto callEverything = [&] {
    std::vector<std::string> texts;
    TakeTrace();
    EXPECT_EQ(nullptr, route->NewBlock("scripted.so", true, true, {}));
    EXPECT_EQ(nullptr, Join(block, 0, block, 0));
    EXPECT_EQ(-20, route->Start());
    EXPECT_EQ(-20, route->SetParameter(block, 1, {}));
    EXPECT_EQ(-20, route->GetParameter(block, 1, texts));
    EXPECT_EQ(-20, route->Reset(block));
    EXPECT_EQ(-20, route->Stop());
    EXPECT_EQ(-20, route->Delete(block));
    EXPECT_EQ(-20, route->DeleteAll());
    route->SetDump("/tmp");
    route->ExecuteActions(batch, 3);
    EXPECT_EQ(4711, batch[0].stop.ret);
    zelk::Zelk::Instance()->DeleteRoute(route);
    EXPECT_EQ(12u, TakeTrace("EWI").size());
  };
  callbacks.on["OnStarted"] = callbacks.on["OnStopped"] = callEverything;  // with and without lock
  Scripts()["b"].on["ProcessFrame"] = [&](ScriptedBlock*) {
    callEverything();
    return long{zelk::FRAME_FADED_OUT};
  };
  Scripts()["b"].on["SetParameter"] = [&](ScriptedBlock*) {
    callEverything();
    return 8;
  };
  auto* caller = New("b", true, true);
  EXPECT_EQ(8, route->SetParameter(caller, 1, {}));
  EXPECT_EQ(0, route->Start());
  WaitFor(STOPPED);
  ExpectUsable();
}

TEST_F(Robustness, ARoutesThreadMayDriveAnotherRoute) {
  auto* other = zelk::Zelk::Instance()->NewRoute("RouteB", nullptr);
  int result = -1;
  callbacks.on["OnStopped"] = [&] { result = other->Start() + other->Stop(); };
  Scripts()["b"].on["ProcessFrame"] = Results({});
  New("b", true, true);
  Run();
  EXPECT_EQ(0, result);
  zelk::Zelk::Instance()->DeleteRoute(other);
}

TEST_F(Robustness, NullPointersInClientBuiltActionsAreRefused) {
  MakePair();
  zelk::Block* slot = nullptr;
  zelk::Block* source = src;
  const std::vector<std::string> args = {"b"};
  Route::Action batch[9];
  for (auto& action : batch)
    action.type = Route::NEW_BLOCK;
  batch[0].newBlock = {nullptr, true, true, &args, &slot};
  batch[1].newBlock = {"scripted.so", true, true, nullptr, &slot};
  batch[2].newBlock = {"scripted.so", true, true, &args, nullptr};
  batch[3].type = batch[4].type = Route::NEW_LINK;
  batch[3].newLink = {1, zelk::BYTE, 1, 1, nullptr, 0, &source, 0, nullptr};
  batch[4].newLink = {1, zelk::BYTE, 1, 1, &source, 1, nullptr, 0, nullptr};
  batch[5].type = Route::SET_PARAMETER;
  batch[5].setParameter = {src, 1, nullptr, -20};
  batch[6].type = Route::GET_PARAMETER;
  batch[6].getParameter = {src, 1, nullptr, -20};
  batch[7].type = Route::RESET;
  batch[7].reset = {nullptr, 0};
  batch[8].type = Route::DELETE;
  batch[8].del = {nullptr, 0};
  TakeTrace();
  route->ExecuteActions(batch, 9);
  EXPECT_EQ(nullptr, slot);
  EXPECT_EQ(nullptr, batch[3].newLink.link);
  EXPECT_EQ(nullptr, batch[4].newLink.link);
  EXPECT_EQ(-20, batch[5].setParameter.ret);
  EXPECT_EQ(-20, batch[6].getParameter.ret);
  EXPECT_EQ(-20, batch[7].reset.ret);
  EXPECT_EQ(-20, batch[8].del.ret);
  EXPECT_EQ(9u, TakeTrace("E").size());
  ExpectUsable();
}

TEST_F(Robustness, PointersToNoBlockOfTheRouteAreNotFollowed) {
  auto* other = zelk::Zelk::Instance()->NewRoute("RouteB", nullptr);
  auto* foreign = other->NewBlock("libscripted.so", true, false, {"b"});
  MakePair();
  zelk::Block* stale = src;
  EXPECT_EQ(0, route->Delete(stale));
  std::vector<std::string> texts;
  int notABlock = 7;
  for (zelk::Block* block : {foreign, stale, reinterpret_cast<zelk::Block*>(&notABlock),
                             static_cast<zelk::Block*>(nullptr)}) {
    TakeTrace();
    EXPECT_EQ(-20, route->SetParameter(block, 1, {}));
    EXPECT_EQ(-20, route->GetParameter(block, 1, texts));
    EXPECT_EQ(-20, route->Reset(block));
    EXPECT_EQ(-20, route->Delete(block));
    EXPECT_EQ(nullptr, Join(block, 0, dst, 0));
    EXPECT_EQ(nullptr, Join(dst, 0, block, 0));
    const Lines trace = TakeTrace("E");
    ASSERT_EQ(6u, trace.size());
    if (block != foreign) continue;
    EXPECT_EQ(Record("E SetParam_l: RouteA: Block ") + PointerText(foreign) + " doesn't exist",
              trace[0]);
    EXPECT_EQ(Record("E GetParam_l: RouteA: Block scripted_0 doesn't exist"), trace[1]);
    EXPECT_NE(std::string::npos, trace[2].find(": RouteA: Block scripted_0 doesn't exist"));
  }
  EXPECT_TRUE(texts.empty());
  zelk::Zelk::Instance()->DeleteRoute(other);
  ExpectUsable();
}

TEST_F(Robustness, RouteThreadsLeaveTheHostsSignalsToTheHost) {
  sigset_t blocked;
  sigemptyset(&blocked);
  Scripts()["b"].on["Start"] = [&](ScriptedBlock*) {
    return pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  };
  Scripts()["b"].on["ProcessFrame"] = Results({});
  New("b", true, true);
  Run();
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGCHLD, SIGALRM, SIGPIPE}) {
    EXPECT_EQ(1, sigismember(&blocked, number)) << number;
  }
  for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
    EXPECT_EQ(0, sigismember(&blocked, number)) << number;
  }
}

}  // namespace
