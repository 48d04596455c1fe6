// `vosh` in front of an operator: the prompt, its completion and history, the full screen of `top`.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/ScriptedHost.h"
#include "support/Terminal.h"

using test::ScriptedHost;
using test::Terminal;

namespace {

constexpr const char* kReport =
    "RouteB is BROKEN_RUNNING, 0 frame processed OK, 0 error frame\n"
    "RouteA is RUNNING, 1200 frames processed OK, 2 error frames\n"
    "\tsource_0\n"
    "\t\t(O00) --> lnk_0    48000Hz   S16_LE  2ch    480samples/frame             1.500000\n"
    "\tsink_0\n"
    "\t\t(I00) <-- lnk_0    48000Hz   S16_LE  2ch    480samples/frame\n"
    "fifo_0 250/1000 (25%)\n";

class Operator : public testing::Test {
 protected:
  Operator() { setenv("XDG_STATE_HOME", folder.path.c_str(), 1); }

  test::TemporaryDirectory folder;
};

TEST_F(Operator, TypesCommandsAndKeepsTheirHistory) {
  ScriptedHost host{{"newroute RouteA", {"Created RouteA\n"}},
                    {"getparam RouteA b_0 1", {"\x1b]0;owned\x07\n"}}};
  {
    Terminal terminal({VOSH_PROGRAM}, 24, 80);
    ASSERT_TRUE(terminal.Shows("vosh>"));
    terminal.Type("   \rnewroute RouteA\r");
    EXPECT_TRUE(terminal.Shows("Created RouteA"));
    terminal.Type("getparam RouteA b_0 1\r");
    EXPECT_TRUE(terminal.Shows("\\x1b]0;owned\\x07"));
    EXPECT_EQ(std::string::npos, terminal.Raw().find("\x1b]0;"));
    terminal.Type("help wait\r");
    EXPECT_TRUE(terminal.Shows("wait until a route has stopped"));
    terminal.Type("quit\r");
    EXPECT_EQ(0, terminal.Wait());
  }
  EXPECT_EQ((std::vector<std::string>{"newroute RouteA", "getparam RouteA b_0 1"}),
            host.Received());  // the blank line was not sent
  Terminal terminal({VOSH_PROGRAM}, 24, 80);
  ASSERT_TRUE(terminal.Shows("vosh>"));
  terminal.Type("\x10\x10\x10");  // up, up, up
  EXPECT_TRUE(terminal.Shows("vosh> getparam RouteA b_0 1"));
  terminal.Type("\x15\x04");  // clear the line, end of input
  EXPECT_EQ(0, terminal.Wait());
  const auto mode = std::filesystem::status(folder / "vosh/history").permissions();
  EXPECT_EQ(std::filesystem::perms(0600), mode);
}

TEST_F(Operator, InterruptsACommandWithoutLeavingThePrompt) {
  ScriptedHost host{{"status", {"RouteA is RUNNING, 10 frames processed OK, 0 error frame\n"}},
                    {"start RouteA", {"Started RouteA\n"}}};
  Terminal terminal({VOSH_PROGRAM}, 24, 80);
  ASSERT_TRUE(terminal.Shows("vosh>"));
  terminal.Type("wait RouteA\r");
  ASSERT_TRUE(terminal.Shows("RouteA: 10 frames processed OK, 0 error frame"));
  terminal.Type("\x03");
  EXPECT_TRUE(terminal.Shows("Cancelled"));
  terminal.Type("start RouteA\r");
  EXPECT_TRUE(terminal.Shows("Started RouteA"));
  terminal.Type("quit\r");
  EXPECT_EQ(0, terminal.Wait());
}

TEST_F(Operator, CompletesWithTheTabKey) {
  ScriptedHost host{{"status", {kReport}}, {"delete RouteA source_0", {"Deleted source_0\n"}}};
  Terminal terminal({VOSH_PROGRAM}, 24, 80);
  ASSERT_TRUE(terminal.Shows("vosh>"));
  terminal.Type("del\tRouteA so\t");
  ASSERT_TRUE(terminal.Shows("vosh> delete RouteA source_0"));
  terminal.Type("\r");
  EXPECT_TRUE(terminal.Shows("Deleted source_0"));
  terminal.Type("delete RouteA \t\t");
  EXPECT_TRUE(terminal.Shows("lnk_0"));
  terminal.Type("\x15quit\r");
  EXPECT_EQ(0, terminal.Wait());
}

TEST_F(Operator, WatchesTheHostInFullScreen) {
  ScriptedHost host{{"status", {kReport}},
                    {"start RouteA", {"Started RouteA\n"}},
                    {"stop RouteB", {"Failed to stop route\n"}}};
  Terminal terminal({VOSH_PROGRAM, "top"}, 24, 80);
  // The counters do not move; a paused screen holds still for the comparison.
  ASSERT_TRUE(terminal.Shows("1200         2  still "));
  terminal.Type(" ");
  ASSERT_TRUE(terminal.Shows(" PAUSED   routes 2, running 1   FIFOs 1   every 1 s   by name\n"));
  const std::string screen = terminal.Screen();
  EXPECT_EQ(0u, screen.find("vosh top "));
  EXPECT_NE(std::string::npos,
            screen.find("ROUTE   STATE              OK/s    ERR/s          OK    ERRORS\n"
                        "RouteA  RUNNING             0.0      0.0        1200         2  still "));
  EXPECT_NE(std::string::npos,
            screen.find("  source_0 sink_0\n"
                        "    lnk_0  source_0:0 -> sink_0:0  48000 Hz S16_LE 2 ch 480 samples\n"
                        "RouteB  BROKEN_RUNNING      0.0      0.0           0         0\n"
                        "FIFO\n"
                        "fifo_0    [||||||||                      ]  25%  250/1000\n"))
      << screen;
  terminal.Type("s");
  EXPECT_TRUE(terminal.Shows("Started RouteA"));
  terminal.Type("jt");
  EXPECT_TRUE(terminal.Shows("Failed to stop route"));
  terminal.Type("o");
  EXPECT_TRUE(terminal.Shows("by state"));
  terminal.Type("q");
  EXPECT_EQ(0, terminal.Wait());
}

TEST_F(Operator, TopTellsThatItsHostIsGoneAndPicksUpTheNext) {
  Terminal terminal({VOSH_PROGRAM, "top", "-d", "0.2"}, 24, 100);
  EXPECT_TRUE(terminal.Shows("No host answers at /tmp/voshsock"));
  ScriptedHost host{{"status", {kReport}}};
  EXPECT_TRUE(terminal.Shows("q end"));
  EXPECT_TRUE(terminal.Shows("RouteB  BROKEN_RUNNING"));
  terminal.Type("q");
  EXPECT_EQ(0, terminal.Wait());
}

}  // namespace
