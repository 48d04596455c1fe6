#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>
#include <thread>

#include "support/Allocator.h"
#include "support/ConsoleClient.h"
#include "support/RouteTest.h"

namespace {

using namespace test;

class Server : public ::testing::Test {
 protected:
  /// Leaves the trace empty and the server waiting.
  void SetUp() override {
    {
      ConsoleClient client;
      client.Ask("hello");
      TakeTrace();
    }
    WaitFor("D src/Zelk DebugThreadLoop: Waiting for vosh ...");
    TakeTrace();
  }
  void TearDown() override { Scripts().clear(); }

  zelk::Zelk* const zelk = zelk::Zelk::Instance();
};

TEST_F(Server, RecordsWhatAClientDoes) {
  {
    ConsoleClient client;
    client.Send("  \t\n");
    WaitFor("D src/Zelk DebugThreadLoop: Unable to read string");
    EXPECT_EQ("Unknown command 'frob%s'\n", client.Ask("frob%s x y\n"));
    EXPECT_EQ("Unknown command 'STATUS'\n", client.Ask("STATUS"));
  }
  WaitFor("D src/Zelk DebugThreadLoop: Waiting for vosh ...");
  Lines trace = TakeTrace();
  ASSERT_FALSE(trace.empty());
  EXPECT_EQ(0u, trace[0].find("D src/Zelk DebugThreadLoop: Accepted vosh "));
  trace.erase(trace.begin());
  Lines wanted;
  for (const char* message :
       {"Reading from vosh ...", "Received command '  \t\n'", "Unable to read string",
        "Reading from vosh ...", "Received command 'frob%s x y\n'",
        "Unknown command 'frob%s x y\n'", "Reading from vosh ...", "Received command 'STATUS'",
        "Unknown command 'STATUS'", "Reading from vosh ...", "Read from vosh finished",
        "Waiting for vosh ..."})
    wanted.push_back(std::string("D src/Zelk DebugThreadLoop: ") + message);
  EXPECT_EQ(wanted, trace);
}

TEST_F(Server, TakesOneReadForOneCommandUpToItsFirstNul) {
  ConsoleClient client;
  EXPECT_EQ("Unknown command 'a'\n", client.Ask(std::string("a\0b", 3)));
  const std::string longest(1023, 'w');
  EXPECT_EQ("Unknown command '" + longest + "'\n", client.Ask(longest));
  client.Send(longest + "rest");
  WaitFor("D src/Zelk DebugThreadLoop: Reading from vosh ...", 5);
  EXPECT_EQ("Unknown command '" + longest + "'\n" + std::string(1, '\0') +
                "Unknown command 'rest'\n" + std::string(1, '\0') + "<more>",
            client.Receive());
}

TEST_F(Server, ServesASecondClientWhenTheFirstHasGone) {
  ConsoleClient first;
  EXPECT_EQ("Unknown command '1'\n", first.Ask("1"));
  ConsoleClient second;
  second.Send("2");
  EXPECT_EQ("Unknown command '3'\n", first.Ask("3"));
  EXPECT_EQ(0, CountOf(TakeTrace(), "D src/Zelk DebugThreadLoop: Received command '2'"));
  first.Close();
  EXPECT_EQ("Unknown command '2'\n", second.Receive());
}

TEST_F(Server, SendsALongReplyWholeOrSurvivesItsClient) {
  const std::string text(8 << 20, 'x');
  Scripts()["src"].values = Lines{text};
  auto* const route = zelk->NewRoute("RouteA", nullptr);
  route->NewBlock("scripted.so", true, false, {"src"});
  {
    ConsoleClient vanishing;
    vanishing.Send("getparam RouteA scripted_0 1");
    vanishing.AwaitReply();
  }
  WaitFor("D src/Zelk DebugThreadLoop: Write to vosh failed -1");
  ConsoleClient patient;
  patient.Send("getparam RouteA scripted_0 1");
  patient.AwaitReply();
  usleep(50000);
  EXPECT_TRUE(text + "\n" == patient.Receive());
  zelk->DeleteRoute(route);
}

TEST_F(Server, SendsTheFailureReplyOfAHandlerThatThrows) {
  // Each value is small, the reply that holds them all is not.
  Scripts()["src"].values = Lines(40, std::string(100000, 'x'));
  auto* const route = zelk->NewRoute("RouteA", nullptr);
  route->NewBlock("scripted.so", true, false, {"src"});
  TakeTrace();
  ConsoleClient client;
  mayAllocate = [](std::size_t size) { return size <= 1000000; };
  EXPECT_EQ("Failed to get parameter\n", client.Ask("getparam RouteA scripted_0 1"));
  mayAllocate = nullptr;
  EXPECT_EQ((Lines{"E src/Zelk DebugThreadLoop: Command 'getparam RouteA scripted_0 1' failed: "
                   "std::bad_alloc"}),
            With(TakeTrace("E"), "src/Zelk"));
  EXPECT_EQ(4000040u, client.Ask("getparam RouteA scripted_0 1").size());
  zelk->DeleteRoute(route);
}

TEST_F(Server, IsDeafToOtherUsers) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second user";
  // As if somebody had opened the file to all.
  ASSERT_EQ(0, chmod(SOCKET_PATH, 0666));
  const pid_t stranger = fork();
  if (stranger == 0) {
    if (setuid(65534) != 0) _exit(2);
    ConsoleClient client;
    _exit(client.Receive() == "<closed>" ? 0 : 1);
  }
  int status = 0;
  waitpid(stranger, &status, 0);
  ASSERT_EQ(0, seteuid(65534));  // a host of that user serves it
  EXPECT_EQ("Unknown command 'x'\n", ConsoleClient().Ask("x"));
  ASSERT_EQ(0, seteuid(0));
  ASSERT_EQ(0, chmod(SOCKET_PATH, 0600));
  if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "needs a second user";
  EXPECT_EQ(0, status);
  const Lines records = TakeTrace("W");
  ASSERT_EQ(1u, records.size());
  EXPECT_EQ(0u, records[0].find("W src/Zelk DebugThreadLoop: Refused vosh "));
  EXPECT_NE(std::string::npos, records[0].find(" of user 65534"));
}

TEST_F(Server, LooksAndActsWhileTheHostEdits) {
  for (const char* label : {"src", "dst"}) {
    Scripts()[label].quietFrames = true;
    Scripts()[label].on["ProcessFrame"] = [](ScriptedBlock* b) -> long {
      b->In(0)->validSamples = 0;
      b->Out(0)->validSamples = 1;
      b->Out(0)->timestamp = 1;
      return 0;
    };
  }
  // Hosts overtake the console wherever it allocates: between a name and what it does with it, too.
  static const std::thread::id host = std::this_thread::get_id();
  static std::atomic<std::thread::id> ofConsole;
  mayAllocate = [](std::size_t) {
    if (std::this_thread::get_id() != host) ofConsole = std::this_thread::get_id();
    return true;
  };
  ConsoleClient().Ask("x");
  mayAllocate = [](std::size_t) {
    return std::this_thread::get_id() != ofConsole || usleep(100) == 0;
  };
  std::atomic<bool> ending{false};
  const auto edit = [&](const char* name) {
    for (int i = 0; !ending; ++i) {
      // The console may have been first.
      auto* const fifo = zelk->NewFIFO(48000, 4, 16, i % 16);
      if (auto* const route = zelk->NewRoute(name, nullptr)) {
        auto* const src = route->NewBlock("scripted.so", true, false, {"src"});
        auto* const dst = route->NewBlock("scripted.so", false, true, {"dst"});
        route->NewLink(48000, zelk::S16_LE, 2, 48, src, 0, dst, 0);
        route->Start();
        route->Delete(route->NewLink(48000, zelk::S16_LE, 2, 48, src, 1, dst, 1));
        route->Delete(dst);
        zelk->DeleteRoute(route);
      }
      zelk->DeleteFIFO(fifo);
    }
  };
  std::thread one(edit, "RouteA");
  std::thread two(edit, "RouteB");
  int seen = 0;
  for (int round = 0; round < 30 || seen == 0; ++round) {
    ConsoleClient client;
    const std::string report = client.Ask("status");
    EXPECT_TRUE(report.compare(0, 5, "Route") == 0 || report.compare(0, 9, "No route\n") == 0);
    EXPECT_EQ(0u, client.Ask("status --dot").find("digraph zelk {\n"));
    seen += report.find("lnk_0") != std::string::npos;
    for (const char* command :
         {"stop RouteA", "setparam RouteA scripted_0 1", "getparam RouteB scripted_1 1",
          "start RouteB", "delete RouteB lnk_0", "setdump --",
          "newlink RouteA 8000 S16_LE 1 8 scripted_0 2 scripted_1 2"})
      EXPECT_EQ('\n', client.Ask(command).back()) << command;
  }
  ending = true;
  one.join();
  two.join();
  mayAllocate = nullptr;
  EXPECT_EQ("No route\nNo fifo\n", ConsoleClient().Ask("status"));
}

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  TraceConsole(true);
  return RUN_ALL_TESTS();
}
