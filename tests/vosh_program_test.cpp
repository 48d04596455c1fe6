// The program `vosh` as scripts and shells use it.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/Program.h"
#include "support/ScriptedHost.h"

using test::Program;
using test::ReadFile;
using test::ScriptedHost;
using test::WriteFile;

namespace {

constexpr const char* kRunning = "RouteA is RUNNING, 10 frames processed OK, 0 error frame\n";
constexpr const char* kStopped = "RouteA is STOPPED, 20 frames processed OK, 0 error frame\n";
constexpr const char* kBroken = "RouteA is BROKEN_RUNNING, 0 frame processed OK, 0 error frame\n";

class Vosh : public testing::Test {
 protected:
  // Runs vosh to its end; `out` and `err` are what it wrote.
  int Run(std::vector<std::string> arguments, const std::string& input = {}) {
    arguments.insert(arguments.begin(), VOSH_PROGRAM);
    Program program(folder.path, std::move(arguments), input);
    const int status = program.Wait();
    out = program.Out();
    err = program.Err();
    return status;
  }

  std::string Script(const std::string& text) {
    WriteFile(folder / "graph.vosh", text);
    return folder / "graph.vosh";
  }

  test::TemporaryDirectory folder;
  std::string out;
  std::string err;
};

TEST_F(Vosh, OneCommandGivesItsReplyAndItsStatus) {
  {
    ScriptedHost host{{"newroute RouteA", {"Created RouteA\n", "Failed to create route\n"}},
                      {"getparam RouteA b_0 1", {"\x1b[2Jraw\n"}}};
    EXPECT_EQ(0, Run({"newroute", "RouteA"}));
    EXPECT_EQ("Created RouteA\n", out);
    EXPECT_EQ(1, Run({"newroute RouteA"}));
    EXPECT_EQ("Failed to create route\n", out);
    EXPECT_EQ("", err);
    EXPECT_EQ(0, Run({"getparam", "RouteA", "b_0", "1"}));
    EXPECT_EQ("\x1b[2Jraw\n", out);  // a pipe gets what the host sent
    EXPECT_EQ(1, Run({std::string(1024, 'x')}));
    EXPECT_EQ("The command has 1024 bytes; a host takes at most 1023\n", err);
    EXPECT_EQ(1, Run({"--json", "start", "RouteA"}));
  }
  EXPECT_EQ(2, Run({"status"}));
  EXPECT_EQ("", out);
  EXPECT_EQ(
      "No host answers at /tmp/voshsock: there is no such socket. Check that a process that uses "
      "zelk is running.\n",
      err);
  EXPECT_EQ(0, Run({"help", "newlink"}));
  EXPECT_EQ(0u, out.find("newlink ROUTE RATE FORMAT CHANNELS SAMPLES SRC OUTIDX SINK INIDX\n"));
  EXPECT_EQ(1, Run({"help", "nothing"}));
}

TEST_F(Vosh, AScriptStopsAtItsFirstFailureAndNamesTheLine) {
  ScriptedHost host{{"newroute RouteA", {"Created RouteA\n"}},
                    {"newblock RouteA #1.so true false", {"Created #1_0\n"}},
                    {"start RouteA", {"Failed to start route\n"}},
                    {"stop RouteA", {"Stopped RouteA\n"}}};
  const std::string script = Script(
      "# a comment\n\n  newroute   RouteA # the route\n\t# indented\nstart RouteA\nstop RouteA\n");
  EXPECT_EQ(1, Run({"-f", script}));
  EXPECT_EQ("Created RouteA\n", out);
  EXPECT_EQ(script + ":5: start RouteA: Failed to start route\n", err);
  EXPECT_EQ((std::vector<std::string>{"newroute RouteA", "start RouteA"}), host.Received());
  EXPECT_EQ(0, Run({}, "stop RouteA\nstop RouteA\n"));  // standard input is a script too
  EXPECT_EQ("Stopped RouteA\nStopped RouteA\n", out);
  EXPECT_EQ(1, Run({"-f", folder / "missing.vosh"}));
  EXPECT_EQ(folder / "missing.vosh: No such file or directory\n", err);
}

TEST_F(Vosh, WaitEndsWhenTheRouteHasStopped) {
  {
    // On its way from RUNNING to BROKEN_RUNNING a route may be seen STOPPED once.
    ScriptedHost host{{"status", {kRunning, kStopped, kRunning, kStopped}}};
    EXPECT_EQ(0, Run({"wait", "RouteA"}));
    EXPECT_EQ("RouteA has stopped, 20 frames processed OK, 0 error frame\n", out);
    EXPECT_EQ("", err);
    EXPECT_EQ(5u, host.Received().size());
    EXPECT_EQ(1, Run({"wait", "RouteB"}));
    EXPECT_EQ("Can't find RouteB\n", out);
  }
  ScriptedHost host{{"status", {kRunning, kStopped, kBroken}}};
  const std::string script = Script("wait RouteA\n");
  EXPECT_EQ(1, Run({"-f", script}));
  EXPECT_EQ(
      script + ":1: wait RouteA: RouteA is BROKEN_RUNNING, 0 frame processed OK, 0 error frame\n",
      err);
}

TEST_F(Vosh, ReportsAsJsonForPrograms) {
  ScriptedHost host{{"status", {kRunning}}};
  EXPECT_EQ(0, Run({"status", "--json"}));
  const std::string plain = out;
  EXPECT_EQ(R"({"routes":[{"name":"RouteA","state":"RUNNING","okFrames":10,"errorFrames":0,)"
            R"("blocks":[]}],"fifos":[]})"
            "\n",
            plain);
  EXPECT_EQ(0, Run({"--json", "status"}));
  EXPECT_EQ(plain, out);
  // The counters stand still for longer than a second.
  EXPECT_EQ(0, Run({"--json", "top", "-n", "2", "-d", "1"}));
  const std::string last = out.substr(out.find('\n') + 1);
  EXPECT_EQ(0u, last.find(R"({"routes":[{"name":"RouteA","state":"RUNNING","okFrames":10,)"
                          R"("errorFrames":0,"okFramesPerSecond":0.0,"errorFramesPerSecond":0.0,)"
                          R"("stillSince":"20)"));
  EXPECT_EQ(0, Run({"top", "-n1", "-d0.1"}));
  EXPECT_NE(std::string::npos, out.find("RouteA  RUNNING             0.0      0.0          10"));
  EXPECT_EQ(1, Run({"top", "-n", "0"}));
}

TEST_F(Vosh, DrawsTheGraph) {
  const std::string dot = "digraph zelk {\n\ta->b\n}\n";
  {
    ScriptedHost host{{"status --dot", {dot}}};
    EXPECT_EQ(0, Run({"graph"}));
    EXPECT_EQ(dot, out);
    EXPECT_EQ(0, Run({"graph", "-o", folder / "-g.dot"}));
    EXPECT_EQ(dot, ReadFile(folder / "-g.dot"));
    EXPECT_EQ(0, Run({"graph", "-o", folder / "g.svg"})) << err;
    EXPECT_NE(std::string::npos, ReadFile(folder / "g.svg").find("</svg>"));
    EXPECT_EQ(1, Run({"graph", "-o", folder / "g.txt"}));
    EXPECT_EQ("The graph's file must end in .svg, .png or .dot\n", err);
    EXPECT_EQ(1, Run({"graph", "-o", folder / "no/g.dot"}));
  }
  ScriptedHost host{{"status --dot", {"digraph {"}}};
  EXPECT_EQ(1, Run({"graph", "-o", folder / "bad.png"}));
  EXPECT_FALSE(std::filesystem::exists(folder / "bad.png"));
}

TEST_F(Vosh, OffersTheWordsThatMayFollow) {
  {
    ScriptedHost host(
        {{"status",
          {"RouteB is STOPPED, 0 frame processed OK, 0 error frame\n\tgain_0\n"
           "\t\t(I00) <-- lnk_0    48000Hz   S16_LE  2ch    480samples/frame\n\tsrc_0\n"
           "RouteA is STOPPED, 0 frame processed OK, 0 error frame\n"}},
         {"getparam RouteB gain_0 0", {"1 gain dB -60 12 0 -6\n12 fade ms 0 1000 10 10\n"}}});
    const auto offers = [this](const std::string& line, const std::string& words) {
      EXPECT_EQ(0, Run({"--complete", line}));
      EXPECT_EQ(words, out) << line;
    };
    offers("new", "newblock\nnewlink\nnewroute\n");
    offers("start ", "RouteA\nRouteB\n");
    offers("delete RouteB ", "!\ngain_0\nlnk_0\nsrc_0\n");
    offers("newlink RouteB 48000 S", "S16_BE\nS16_LE\nS32_BE\nS32_LE\n");
    offers("newlink RouteB 48000 S16_LE 2 480 s", "src_0\n");
    offers("setparam RouteB gain_0 1", "1\n12\n");
    offers("newblock RouteA x.so ", "false\ntrue\n");
    EXPECT_EQ(0, Run({"--complete", "newroute "}));
    EXPECT_EQ(0u, out.find("RouteC\nRouteD\n"));
    offers("start RouteA ", "");
    WriteFile(folder / "own.so", "");
    WriteFile(folder / "own.txt", "");
    std::filesystem::create_directory(folder / "other");
    offers("newblock RouteA " + folder / "o", folder / "other/\n" + folder / "own.so\n");
    offers("setdump " + folder.path, folder / "other/\n");
  }
  EXPECT_EQ(0, Run({"--complete", "start "}));
  EXPECT_EQ("", out);  // without a host there is nothing to offer, and nothing to complain about
  EXPECT_EQ("", err);
}

}  // namespace
