// Sources and sinks on a real JACK server.
#include "support/JackServer.h"
#include "support/RouteFixture.h"

#include <thread>

namespace {

using namespace zelk;
using test::Floats;

class JackBlock : public test::RouteFixture {
 protected:
  void SetUp() override {
    if (!server.running) GTEST_SKIP() << "no JACK server can be started here";
  }
  ~JackBlock() override { Zelk::Instance()->DeleteRoute(recorder); }

  test::JackServer server{"test"};
  Route* const recorder = Zelk::Instance()->NewRoute("RouteB", nullptr);
};

/// What is left without silence, which a busy machine may have put in.
Floats Sound(Floats samples) {
  std::erase(samples, 0.0F);
  return samples;
}

TEST_F(JackBlock, EverySampleThatIsPlayedIsRecordedInAnyFormat) {
  const Floats noise = test::Noise(3 * 20011);
  test::WriteWav(directory / "in.wav", noise, 3);
  // Frames that are longer than the server's, and shorter.
  for (const auto& [format, frame, word] :
       {std::tuple{FLOAT_BE, 1000L, "wavf"}, std::tuple{S24_3LE, 77L, "wav24"}}) {
    Block* const listen = recorder->NewBlock("jack.so", true, false, {"rec", server.name, "-"});
    Block* const file =
        recorder->NewBlock("filesink.so", false, true, {directory / "out.wav", word});
    ASSERT_NE(nullptr, recorder->NewLink(48000, format, 3, frame, listen, 0, file, 0));
    ASSERT_EQ(0, recorder->Start());

    Block* const source = Source({"filesrc", directory / "in.wav"});
    Block* const play = Sink({"jack", "play", server.name, "rec:in_1", "rec:in.2", "rec:in_3"});
    ASSERT_TRUE(Link(source, play, {format, 3, 48000, frame}));
    EXPECT_EQ((Words{"play:out_1", "play:out_2", "play:out_3"}), Parameter(play, 4));
    ASSERT_EQ(Route::END_OF_FILE, Run());
    EXPECT_EQ("play:out_2 rec:in_2", Parameter(play, 4)[1]);
    ASSERT_EQ(0, route->DeleteAll());
    ASSERT_EQ(0, recorder->Stop());
    ASSERT_EQ(0, recorder->DeleteAll());

    EXPECT_EQ(noise, Sound(test::ReadWav<float>(directory / "out.wav")));
  }
}

TEST_F(JackBlock, ARouteIsHeldToTheServersPace) {
  route->SetDump(directory.path.c_str());
  Block* const source = Source({"jack", "rec", server.name});
  Block* const sink = Sink({"jack", "play", server.name});
  ASSERT_TRUE(Link(source, sink, {FLOAT_LE, 2}));
  const auto before = std::chrono::steady_clock::now();
  ASSERT_EQ(0, route->Start());
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  ASSERT_EQ(0, route->Stop());
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - before;
  route->SetDump(nullptr);
  const double frames = static_cast<double>(std::filesystem::file_size(
                            directory / "RouteA-jack_0-O00-48000Hz-FLOAT_LE-2ch.pcm")) /
                        8;
  EXPECT_GT(frames, 0);
  EXPECT_LE(frames, took.count() * 48000 + 1024);
}

TEST_F(JackBlock, AServerThatDiesFailsTheRoute) {
  for (const int signal : {SIGKILL, SIGTERM, SIGSTOP}) {
    for (const bool plays : {false, true}) {
      SCOPED_TRACE(signal);
      test::JackServer mortal("mortal");
      ASSERT_TRUE(mortal.running);
      Block* const source = plays ? Source({"siggen", "sine"}) : Source({"jack", "a", mortal.name});
      Block* const sink =
          plays ? Sink({"jack", "a", mortal.name}) : Sink({"filesink", directory / "out.wav"});
      ASSERT_TRUE(Link(source, sink));
      ASSERT_EQ(0, route->Start());
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      mortal.Signal(signal);
      EXPECT_EQ(Route::FAILURE, WaitForEnd());
      mortal.Signal(SIGCONT);
      if (signal != SIGSTOP) {
        EXPECT_EQ(-20, route->Start());
      }
      EXPECT_EQ(0, route->DeleteAll());
    }
  }
}

TEST_F(JackBlock, WhatDoesNotFitIsRefused) {
  EXPECT_EQ(nullptr, Sink({"jack"}));
  EXPECT_EQ(nullptr, Sink({"jack", std::string(500, 'x'), server.name}));
  EXPECT_EQ(nullptr, Sink({"jack", "a", "no-such-server"}));
  EXPECT_EQ(nullptr, New({"jack", "a", server.name}));
  EXPECT_EQ(nullptr, route->NewBlock("jack.so", true, true, {"a", server.name}));

  Block* const source = Source({"siggen", "sine"});
  Block* const sink = Sink({"jack", "a", server.name, "-", "no_such_port"});
  EXPECT_FALSE(Link(source, sink, {S16_LE, 2, 44100}));  // not the server's rate
  EXPECT_FALSE(Link(source, sink, {FLOAT_LE, 65}));
  EXPECT_FALSE(Link(source, sink, {FLOAT_LE, 1}));  // fewer than PORTs
  ASSERT_TRUE(Link(source, sink, {FLOAT_LE, 2}));
  EXPECT_EQ(-20, route->Start());  // no such port
}

}  // namespace
