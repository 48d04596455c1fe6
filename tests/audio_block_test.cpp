// Sources and sinks on sound devices: real ones are rare where tests run, so these are the clients
// of a JACK server, which PortAudio lists as devices.
#include "support/JackServer.h"
#include "support/RouteFixture.h"

#include <memory>
#include <thread>

// PortAudio's own JACK client never joins its thread once the server is gone.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
  return "report_thread_leaks=0";
}

namespace {

using namespace zelk;
using test::Floats;

class AudioBlock : public test::RouteFixture {
 protected:
  static void SetUpTestSuite() {
    server = std::make_unique<test::JackServer>("audio");
    setenv("JACK_DEFAULT_SERVER", server->name.c_str(), 1);
  }
  static void TearDownTestSuite() { server.reset(); }

  // PortAudio looks for devices once.
  void SetUp() override {
    if (!server->running) GTEST_SKIP() << "no JACK server can be started here";
    test::WriteWav(directory / "in.wav", noise, 2);
    speaker = Device("RouteB", "speaker", true);
    microphone = Device("RouteC", "microphone", false);
  }
  ~AudioBlock() override {
    Zelk::Instance()->DeleteRoute(speaker);
    Zelk::Instance()->DeleteRoute(microphone);
  }

  /// A device whose samples are known: a jack block in a route of its own.
  Route* Device(const std::string& routeName, const std::string& name, bool records) {
    Route* const other = Zelk::Instance()->NewRoute(routeName.c_str(), nullptr);
    Block* const jack = other->NewBlock("jack.so", records, !records, {name, server->name, "-"});
    Block* const file =
        records ? other->NewBlock("filesink.so", false, true, {directory / "out.wav", "wavf"})
                : other->NewBlock("filesrc.so", true, false, {directory / "in.wav"});
    EXPECT_NE(nullptr, other->NewLink(48000, FLOAT_LE, 2, 480, records ? jack : file, 0,
                                      records ? file : jack, 0));
    return other;
  }

  Floats Recorded() const {
    Floats samples = test::ReadWav<float>(directory / "out.wav");
    std::erase(samples, 0.0F);  // silence before, behind, and where the machine was busy
    return samples;
  }

  static inline std::unique_ptr<test::JackServer> server;
  Route* speaker = nullptr;
  Route* microphone = nullptr;
  const Floats noise = test::Noise(2 * 20011);
};

TEST_F(AudioBlock, EverySampleOfARouteReachesTheDevice) {
  ASSERT_EQ(0, speaker->Start());
  Block* const source = Source({"filesrc", directory / "in.wav"});
  Block* const play = Sink({"audio", "speaker", "30"});
  ASSERT_NE(nullptr, play);
  bool listed = false;
  for (const std::string& line : Parameter(play, 3))
    listed = listed || line.find(":speaker 0 2 48000") != std::string::npos;
  EXPECT_TRUE(listed) << testing::PrintToString(Parameter(play, 3));
  ASSERT_TRUE(Link(source, play, {S24_3BE, 2, 48000, 333}));
  ASSERT_EQ(Route::END_OF_FILE, Run());
  ASSERT_EQ(0, speaker->Stop());
  EXPECT_EQ(noise, Recorded());
}

TEST_F(AudioBlock, EverySampleOfTheDeviceReachesARoute) {
  Block* const listen = Source({"audio", "microphone"});
  ASSERT_NE(nullptr, listen);
  Block* const sink = Sink({"filesink", directory / "out.wav", "wavf"});
  ASSERT_TRUE(Link(listen, sink, {FLOAT_LE, 2}));
  ASSERT_EQ(0, route->Start());
  ASSERT_EQ(0, microphone->Start());
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (Recorded().size() < noise.size() && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  ASSERT_EQ(0, route->Stop());
  EXPECT_EQ(noise, Recorded());
}

TEST_F(AudioBlock, WhatDoesNotFitIsRefused) {
  EXPECT_EQ(nullptr, Sink({"audio"}));
  EXPECT_EQ(nullptr, Sink({"audio", "no such device"}));
  EXPECT_EQ(nullptr, Sink({"audio", "999"}));
  EXPECT_EQ(nullptr, Sink({"audio", "system", "-1"}));
  EXPECT_EQ(nullptr, New({"audio", "system"}));
  Block* const source = Source({"siggen", "sine"});
  Block* const sink = Sink({"audio", "system"});
  EXPECT_FALSE(Link(source, sink, {FLOAT_LE, 64}));
  EXPECT_FALSE(Link(source, sink, {S16_LE, 1, 12345}));
}

// The last one: there is no server any more.
TEST_F(AudioBlock, ADeviceThatGoesFailsTheRoute) {
  Block* const source = Source({"audio", "system"});
  Block* const sink = Sink({"filesink", directory / "out.wav"});
  ASSERT_TRUE(Link(source, sink));
  ASSERT_EQ(0, route->Start());
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  server->End(SIGTERM);
  EXPECT_EQ(Route::FAILURE, WaitForEnd());
}

}  // namespace
