// What one bad hook does to its route and to everybody else.
#include "support/Misbehaviour.h"

namespace {

using namespace test;

constexpr char FINE[] = "start 0, set 0, get 0, reset 0, stop 0, stopped";

std::string LifeWith(const std::string& hook, const Deed& deed) {
  return InChild([&] {
    Host host;
    host.Spoil("middle", hook, deed);
    const std::string life = host.Live();
    Host::ExpectOthersRun();
    if (life.find("stuck") == std::string::npos) host.Delete();
    return life;
  });
}

TEST(Misbehaviour, OfEveryHookEndsItsOwnRouteAtWorst) {
  const struct {
    const char* hook;
    std::string refused;   // the life with a negative answer, "%"
    std::string positive;  // the life with 7
  } cases[] = {
      {"CreateBlock", "no block", FINE},
      {"OnInEpLinked", "no link", FINE},
      {"OnOutEpLinked", "no link", FINE},
      {"Start", "start %, set 0, get 0, reset 0, stop 0, stopped", FINE},
      {"ProcessFrame", FINE, FINE},
      {"Stop", "start 0, set 0, get 0, reset 0, stop %, not stopped", FINE},
      {"SetParameter", "start 0, set %, get 0, reset 0, stop 0, stopped",
       "start 0, set 7, get 0, reset 0, stop 0, stopped"},
      {"GetParameter", "start 0, set 0, get %, reset 0, stop 0, stopped",
       "start 0, set 0, get 7, reset 0, stop 0, stopped"},
      {"Reset", FINE, FINE},
      {"Subname", FINE, FINE},
      {"OnInEpUnlinked", FINE, FINE},
      {"OnOutEpUnlinked", FINE, FINE},
  };
  for (const auto& [hook, refused, positive] : cases) {
    const auto refusedWith = [&, text = refused](const char* code) {
      return text.find('%') == text.npos ? text
                                         : std::string(text).replace(text.find('%'), 1, code);
    };
    EXPECT_EQ(refusedWith("-20"), LifeWith(hook, Throw)) << hook;
    if (hook != std::string("ProcessFrame")) {
      EXPECT_EQ(refusedWith("-1"), LifeWith(hook, Answer(-1))) << hook;
    }
    EXPECT_EQ(refusedWith("-2"), LifeWith(hook, Answer(-2))) << hook;
    EXPECT_EQ(refusedWith("-20"), LifeWith(hook, Answer(-20))) << hook;
    EXPECT_EQ(refusedWith("-30"), LifeWith(hook, Answer(-30))) << hook;
    EXPECT_EQ(positive, LifeWith(hook, Answer(7))) << hook;
  }
  EXPECT_EQ("start 0, stuck: RouteA is RUNNING", LifeWith("ProcessFrame", Answer(-1)));
}

// Adds a block to the running route whose start fails, and tells what the console then sees.
std::string LifeAfterAddedBlock(const Deed& start, const std::function<void(Host&)>& after) {
  return InChild([&] {
    Host host;
    host.Live();
    host.route->Start();
    host.Spoil("late", "Start", start);
    host.route->NewBlock("scripted.so", true, true, {"late"});
    after(host);
    Host::ExpectOthersRun();
    return Host::Look("RouteA");
  });
}

TEST(Misbehaviour, ARefusedStartInARunningRouteTakesItsThreadAndNothingElse) {
  static std::atomic<bool> ended{false};
  struct Sentry {
    ~Sentry() { ended = true; }
    bool posted = false;
  };
  for (const int code : {-1, -30}) {
    const Deed start = [code](ScriptedBlock*) {
      static thread_local Sentry sentry;
      sentry.posted = true;
      return long{code};
    };
    EXPECT_EQ("RouteA is RUNNING",
              LifeAfterAddedBlock(start, [](Host&) { Host::Await([] { return ended.load(); }); }));
  }
}

TEST(Misbehaviour, ARefusedStartWithTheOtherCodesLeavesTheRouteToItsHost) {
  EXPECT_EQ("RouteA is STOPPED", LifeAfterAddedBlock(Throw, [](Host& host) {
              Host::Await([&] { return host.stopped.load(); });
              host.Delete();
              host.route = zelk::Zelk::Instance()->NewRoute("RouteA", nullptr);
            }));
  // -2 is asked again and again, and requests are served in between.
  EXPECT_EQ("RouteA is STOPPED", LifeAfterAddedBlock(Answer(-2), [](Host& host) {
              Host::Await([&] { return host.calls > 100; });
              EXPECT_EQ(0, host.route->Stop());
            }));
}

}  // namespace
