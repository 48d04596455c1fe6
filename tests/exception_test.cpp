// Exceptions of plug-ins and hosts end at the boundary that they came through.
#include <gtest/gtest.h>

#include <stdexcept>

#include "support/RouteTest.h"

namespace {

using namespace test;

long ThrowError(ScriptedBlock*) {
  throw std::runtime_error("a plug-in's error");
}
long ThrowNumber(ScriptedBlock*) {
  throw 42;
}
const std::function<long(ScriptedBlock*)> THROWERS[] = {ThrowError, ThrowNumber};

class Exceptions : public RouteTest {};

TEST_F(Exceptions, ThrownInAHookThatCannotRefuseChangesNothing) {
  for (const auto& thrower : THROWERS) {
    for (const char* hook : {"OnInEpUnlinked", "OnOutEpUnlinked", "Reset"}) {
      Scripts()["src"].on[hook] = Scripts()["dst"].on[hook] = thrower;
    }
    src = New("src", true, false);
    dst = New("dst", false, true);
    auto* link = Join(src, 0, dst, 0);
    src->Out(0)->validSamples = 5;
    EXPECT_EQ(0, route->Reset(src));
    EXPECT_EQ(0, src->Out(0)->validSamples);
    EXPECT_EQ(0, route->Delete(link));
    EXPECT_FALSE(src->OutEp(0)->IsActive() || dst->InEp(0)->IsActive());
    ExpectUsable();
    Scripts()["b"].on["Subname"] = thrower;
    New("b", true, true);
    ExpectUsable();
  }
}

TEST_F(Exceptions, ThrownWhereABlockIsAskedAgainForItsNameLeaveItWithoutASubname) {
  Scripts()["b"].subname = "x";
  EXPECT_EQ("scripted_x_0", New("b", true, true)->Name());
  Scripts()["b"].on["Subname"] = [asked = 0](ScriptedBlock*) mutable {
    return asked++ == 0 ? 0 : ThrowError(nullptr);
  };
  EXPECT_EQ("scripted_1", New("b", true, true)->Name());
  Scripts()["b"] = {};
  EXPECT_EQ("scripted_0", New("b", true, true)->Name());
  EXPECT_EQ("scripted_2", New("b", true, true)->Name());
}

TEST_F(Exceptions, ThrownInAFrameFailsThatFrameAndResetsEveryBlock) {
  for (const auto& thrower : THROWERS) {
    Scripts()["src"].on["ProcessFrame"] = thrower;
    Scripts()["src"].on["Reset"] = Scripts()["dst"].on["Reset"] = thrower;
    MakePair();
    const auto trace = Run();
    EXPECT_EQ(
        1,
        CountOf(trace, "E src/Route MainThreadLoop: RouteA: scripted_0: Process frame failed -20"));
    EXPECT_EQ((Lines{"OnStarted", "OnStopped 1"}), With(trace, "OnSt"));
    EXPECT_EQ(2u, With(trace, ".Reset").size());
    ExpectUsable();
  }
}

TEST_F(Exceptions, ThrownInACallbackIsLoggedAndEndsThere) {
  Scripts()["b"].on["ProcessFrame"] = Results({0});
  New("b", true, true);
  for (const char* callback : {"OnStarted", "OnStopped", "OnExit"}) {
    callbacks.on[callback] = [] { throw std::runtime_error("a host's error"); };
  }
  EXPECT_EQ((Lines{"b.Start", "OnStarted",
                   "E src/Route OnStarted: RouteA: OnStarted threw: a host's error",
                   "b.ProcessFrame", "b.ProcessFrame", "b.Stop", "OnStopped 0",
                   "E src/Route OnStopped: RouteA: OnStopped threw: a host's error"}),
            Run("E"));
  zelk::Zelk::Instance()->DeleteRoute(route);
  route = nullptr;
  EXPECT_EQ(1u, With(TakeTrace("E"), "E src/Route").size());
}

}  // namespace
