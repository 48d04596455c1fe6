// The program `zelk-host`, with the library and its stock blocks as they are built.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "Client.h"
#include "StatusReport.h"
#include "support/Program.h"

using test::Program;
using test::ReadFile;
using test::WriteFile;

namespace {

// A second of tone; less of it with fewer SECONDS, for ever with 0.
std::string Graph(const std::string& file, const std::string& seconds) {
  return "newroute RouteA\n"
         "newblock RouteA siggen.so true false sine 440 -20 " +
         seconds + "\nnewblock RouteA filesink.so false true " + file +
         "\n"
         "newlink RouteA 48000 S16_LE 1 480 siggen_0 0 filesink_0 0\n"
         "start RouteA\n";
}

class ZelkHost : public testing::Test {
 protected:
  void TearDown() override { EXPECT_FALSE(std::filesystem::exists(vosh::kSocketPath)); }

  Program Start(const std::string& script, std::vector<std::string> options) {
    WriteFile(folder / "graph.vosh", script);
    options.insert(options.begin(), ZELK_HOST_PROGRAM);
    options.push_back(folder / "graph.vosh");
    return Program(folder.path, options);
  }

  int Run(const std::string& script, std::vector<std::string> options = {"-u", "-q", "-s"}) {
    Program program = Start(script, std::move(options));
    const int status = program.Wait();
    out = program.Out();
    err = program.Err();
    return status;
  }

  // Returns once the route of a host that is being started has made `frames`.
  static void AwaitFrames(std::uint64_t frames) {
    const vosh::Client client;
    for (int i = 0; i < 12000; ++i) {
      const vosh::StatusReport report = vosh::ParseStatus(client.Send("status").text);
      if (report.Find("RouteA") && report.Find("RouteA")->okFrames >= frames) return;
      client.Pause(std::chrono::milliseconds(5));
    }
    ADD_FAILURE() << "RouteA makes no frames";
  }

  // A wave file's header, written when it is closed, counts the bytes behind its 44 own.
  void ExpectClosedWave() const {
    const std::string bytes = ReadFile(wave);
    ASSERT_GT(bytes.size(), 44u);
    std::uint32_t counted = 0;
    for (int i = 3; i >= 0; --i) {
      counted = counted << 8 | static_cast<unsigned char>(bytes[40 + static_cast<std::size_t>(i)]);
    }
    EXPECT_EQ(bytes.size() - 44, counted);
  }

  test::TemporaryDirectory folder;
  const std::string wave = folder / "tone.wav";
  std::string out;
  std::string err;
};

TEST_F(ZelkHost, EndsWhenItsRoutesHaveStopped) {
  EXPECT_EQ(0, Run(Graph(wave, "0.5")));
  EXPECT_EQ("RouteA is STOPPED, 50 frames processed OK, 0 error frame\n", out);
  EXPECT_EQ(44u + 48000u, std::filesystem::file_size(wave));
  ExpectClosedWave();
}

TEST_F(ZelkHost, TellsOfFailedFramesAndBrokenRoutes) {
  const std::string late = "newroute RouteA\nnewblock RouteA late.so true true\nstart RouteA\n";
  EXPECT_EQ(3, Run(late));
  EXPECT_EQ("RouteA is STOPPED, 0 frame processed OK, 1 error frame\n", out);
  EXPECT_EQ(3, Run(late + "wait RouteA\ndelete RouteA !\n"));
  EXPECT_EQ("", out);
  EXPECT_EQ(4,
            Run("newroute RouteB\nnewblock RouteB siggen.so true false silence\nstart RouteB\n"));
  EXPECT_EQ("RouteB is BROKEN_RUNNING, 0 frame processed OK, 0 error frame\n", out);
}

TEST_F(ZelkHost, AFailingScriptEndsIt) {
  EXPECT_EQ(1, Run("newroute RouteA\nnewroute RouteA # again\nnewroute RouteB\n", {}));
  EXPECT_EQ("Created RouteA\n", out);
  EXPECT_NE(std::string::npos, err.find(folder / "graph.vosh:2: newroute RouteA: Failed to "
                                                 "create route\n"));
}

TEST_F(ZelkHost, ASignalEndsItWithItsFilesClosed) {
  // As scripts start what they put into the background.
  const auto before = std::signal(SIGINT, SIG_IGN);
  for (const int signal : {SIGTERM, SIGINT}) {
    for (const char* rest : {"", "wait RouteA\n"}) {
      Program host = Start(Graph(wave, "0") + rest, {"-u"});
      AwaitFrames(10);
      kill(host.Pid(), signal);
      EXPECT_EQ(0, host.Wait());
      EXPECT_NE(std::string::npos, host.Out().find("Started RouteA\n"));
      ExpectClosedWave();
    }
  }
  std::signal(SIGINT, before);
}

TEST_F(ZelkHost, LeavesAnotherHostItsConsole) {
  Program first = Start(Graph(wave, "0"), {"-q"});
  AwaitFrames(1);
  std::filesystem::create_directory(folder / "second");
  Program second(folder / "second", {ZELK_HOST_PROGRAM});
  EXPECT_EQ(2, second.Wait());
  EXPECT_EQ("zelk-host: another host serves the console at /tmp/voshsock\n", second.Err());
  AwaitFrames(1);
  kill(first.Pid(), SIGTERM);
  EXPECT_EQ(0, first.Wait());
}

}  // namespace
