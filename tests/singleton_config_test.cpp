// Every case needs a singleton of its own and so a process of its own: a child, forked before this
// process has any thread, whose trace comes back through a pipe.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "support/Child.h"
#include "support/RouteTest.h"

namespace {

using namespace test;

class Configuration : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::getenv("ZELK_ISOLATED") == nullptr) GTEST_SKIP() << "the machine has one profile";
  }
  void TearDown() override {
    if (!IsSkipped()) std::remove("/etc/zelk.conf");
  }
  /// The trace of a process that runs `body` and exits, and last what became of it.
  template <typename Body>
  Lines InChild(Body body) {
    const Child child = RunChild([&](int out) {
      TakeTrace();
      MirrorTrace(out);
      body();
      return 0;  // with the singleton's destruction
    });
    std::istringstream stream(child.text);
    Lines lines;
    for (std::string line; std::getline(stream, line);)
      lines.push_back(line);
    lines.push_back(child.status == 0 ? "ended well" : "ended badly");
    return lines;
  }
  static void WriteProfile(const std::string& text) { std::ofstream("/etc/zelk.conf") << text; }
};

const Lines DEFAULTS = {"vantrel_enable_options(16386)", "vantrel_set_level(4)"};

TEST_F(Configuration, IsReadFromTheProfileAndNothingElse) {
  const struct {
    const char* keys;
    Lines calls;
  } cases[] = {
      {"", {}},
      {"logtostdout=true", {"vantrel_enable_options(1)"}},
      {"logtostdout=false", {"vantrel_disable_options(1)"}},
      {"logtostdout=TRUE", {}},
      {"logtostdout=yes\nlogtostderr=1\nloglevel=x", {}},
      {"logtostderr=true", {"vantrel_enable_options(2)"}},
      {"logtostderr=false", {"vantrel_disable_options(2)"}},
      {"loglevel=0", {"vantrel_set_level(0)"}},
      {"loglevel=4", {"vantrel_set_level(4)"}},
      {"loglevel=57", {"vantrel_set_level(5)", "vantrel_disable_options(16384)"}},
      {"loglevel=6", {"vantrel_set_level(6)", "vantrel_disable_options(16384)"}},
      {"loglevel=10", {"vantrel_set_level(1)"}},
      {"loglevel=7", {}},
      {"loglevel=9", {}},
      {"loglevel=-1", {}},
      {"dumppath=/var/tmp", {"vantrel_set_file(/var/tmp/zelk.log)"}},
      {"dumppath=/var/tmp/", {"vantrel_set_file(/var/tmp/zelk.log)"}},
      {"dumppath=", {"vantrel_set_file(zelk.log)"}},
      // Look-ups share one buffer: a key without a value takes over what an earlier key left there.
      {"logtostderr=true\nloglevel=", {"vantrel_enable_options(2)"}},
      {"loglevel=5\ndumppath=",
       {"vantrel_set_level(5)", "vantrel_disable_options(16384)", "vantrel_set_file(5/zelk.log)"}},
      {"logtostdout=true\nlogtostderr=",
       {"vantrel_enable_options(1)", "vantrel_enable_options(2)"}},
      {"dumppath=/d\nloglevel=3\nlogtostderr=false\nlogtostdout=false",
       {"vantrel_disable_options(1)", "vantrel_disable_options(2)", "vantrel_set_level(3)",
        "vantrel_set_file(/d/zelk.log)"}},
  };
  const auto construct = [] { zelk::Zelk::Instance(); };
  Lines wanted = DEFAULTS;
  wanted.push_back("ended well");
  EXPECT_EQ(wanted, InChild(construct));  // no profile at all
  for (const auto& c : cases) {
    WriteProfile(std::string("[other]\nloglevel=2\n[config]\n") + c.keys + "\n");
    wanted = DEFAULTS;
    wanted.insert(wanted.end(), c.calls.begin(), c.calls.end());
    wanted.push_back("ended well");
    Lines seen = InChild(construct);
    // The console's own records are not this test's.
    seen.erase(std::remove_if(seen.begin(), seen.end(),
                              [](const std::string& line) { return line[1] == ' '; }),
               seen.end());
    EXPECT_EQ(wanted, seen) << c.keys;
  }
}

TEST_F(Configuration, ThreadsThatRaceForTheSingletonGetTheSame) {
  const auto trace = InChild([] {
    std::vector<zelk::Zelk*> seen(8);
    std::vector<std::thread> threads;
    for (auto& one : seen)
      threads.emplace_back([&one] { one = zelk::Zelk::Instance(); });
    for (auto& thread : threads)
      thread.join();
    for (auto* one : seen) {
      if (one == nullptr || one != seen[0]) Note("different");
    }
  });
  EXPECT_EQ(1, CountOf(trace, "vantrel_set_level(4)"));
  EXPECT_EQ(0, CountOf(trace, "different"));
  EXPECT_EQ("ended well", trace.back());
}

TEST_F(Configuration, TheDumpPathReachesNewRoutes) {
  mkdir("/tmp/dumps", 0700);
  WriteProfile("[config]\ndumppath=/tmp/dumps\n");
  const auto trace = InChild([] {
    Scripts()["b"].on["ProcessFrame"] = Results({});
    auto* route = zelk::Zelk::Instance()->NewRoute("RouteA", nullptr);
    auto* source = route->NewBlock("scripted.so", true, true, {"b"});
    route->NewLink(48000, zelk::S16_LE, 2, 480, source, 0,
                   route->NewBlock("scripted.so", false, true, {}), 0);
    route->Start();
    WaitFor("I src/Route Stop_l: RouteA: Stopped");
  });
  EXPECT_EQ("ended well", trace.back());
  EXPECT_TRUE(std::ifstream("/tmp/dumps/RouteA-scripted_0-O00-48000Hz-S16_LE-2ch.pcm").good());
}

TEST_F(Configuration, WhatIsLeftAtExitIsDeletedNewestFirstRoutesBeforeFifos) {
  const auto trace = InChild([] {
    auto* zelk = zelk::Zelk::Instance();
    zelk->NewFIFO(48000, 4, 100, 0);
    static auto* const callbacks = new NotingCallbacks;  // must outlive the singleton
    Scripts()["b"].quietFrames = true;
    auto* route = zelk->NewRoute("RouteA", callbacks);
    route->NewBlock("scripted.so", true, true, {"b"});
    route->Start();
    zelk->NewRoute("RouteC", nullptr);
    zelk->NewRoute("RouteB", nullptr);
  });
  EXPECT_EQ(
      (Lines{"I src/Route ~RouteImpl: RouteB: Deleted", "I src/Route ~RouteImpl: RouteC: Deleted",
             "I src/Block ~Block: RouteA: scripted_0: Deleted",
             "I src/Route ~RouteImpl: RouteA: Deleted"}),
      With(trace, ": Deleted"));
  EXPECT_EQ((Lines{"OnStarted", "OnStopped 0", "OnExit"}), With(trace, "On"));
  EXPECT_EQ("ended well", trace.back());
}

TEST_F(Configuration, AConsoleWhosePathIsTakenFailsAlone) {
  ASSERT_EQ(0, mkdir("/tmp/voshsock", 0700));
  const auto trace = InChild([] {
    TraceConsole(true);
    EXPECT_NE(nullptr, zelk::Zelk::Instance()->NewRoute("RouteA", nullptr));
    WaitFor("E src/Zelk DebugThreadLoop: Failed to bind, can't listen to vosh -1");
    if (HasFailure()) _exit(1);
  });
  EXPECT_EQ("ended well", trace.back());
  EXPECT_EQ((Lines{}), With(trace, "vosh ..."));
  EXPECT_EQ(0, rmdir("/tmp/voshsock"));
}

}  // namespace
