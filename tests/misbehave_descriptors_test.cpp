// What the wild descriptors of a bad neighbour do to the stock blocks.
#include <climits>

#include "support/JackServer.h"
#include "support/Misbehaviour.h"

namespace {

using namespace test;

// The descriptors that a bad neighbour leaves, one per frame.
long Scribble(zelk::FrameBuffer& fb, long frame) {
  static unsigned char outside[16] = {};
  const zelk::FrameBuffer wild[] = {
      {fb.data, fb.format, fb.channels, fb.samplesPerFrame, LONG_MAX, fb.rate, 0},
      {fb.data, fb.format, fb.channels, fb.samplesPerFrame, LONG_MIN, fb.rate, LLONG_MIN},
      {fb.data, fb.format, 4000000000u, fb.samplesPerFrame, 480, fb.rate, 0},
      {fb.data, fb.format, 37, fb.samplesPerFrame, 480, fb.rate, LLONG_MAX},
      {fb.data, fb.format, 0, fb.samplesPerFrame, 480, fb.rate, 0},
      {fb.data, static_cast<zelk::SampleFormat>(99), 2, 480, 480, fb.rate, 0},
      {fb.data, zelk::FLOAT_BE, 2, 480, 480, fb.rate, 0},
      {fb.data, fb.format, 2, LONG_MAX, LONG_MAX, fb.rate, 0},
      {fb.data, fb.format, 2, LONG_MIN, 0, fb.rate, 0},
      {fb.data, fb.format, 2, 1 << 20, 0, fb.rate, 0},
      {fb.data, fb.format, 2, 480, 480, 0, 0},
      {fb.data, fb.format, 2, 480, 0, 0xFFFFFFFF, 0},
      {outside, fb.format, 2, 480, 480, fb.rate, 0},
      {outside, fb.format, 2, 480, 0, fb.rate, 0},
      {nullptr, fb.format, 2, 480, 480, fb.rate, 0},
      {nullptr, fb.format, 2, 480, 0, fb.rate, 0},
  };
  fb = wild[static_cast<std::size_t>(frame) % std::size(wild)];
  return 0;
}
constexpr long SCRIBBLES = 16;
constexpr long IN_TURN = -1;

// A bad source before a stock block, and a bad sink behind it, with one wild descriptor in every
// frame.
std::string Neighbour(const char* name, const std::vector<std::string>& args, bool before,
                      bool behind, long scribble) {
  return InChild([=] {
    Host host;
    for (const char* bad : {"source", "sink"}) {
      host.Spoil(bad, "ProcessFrame", [=, &host](ScriptedBlock* block) {
        zelk::FrameBuffer& fb = *(block->First() ? block->Out(0) : block->In(0));
        ++host.frames;
        return fb.validSamples == 0 && !block->First()
                   ? -1L * (host.frames % 20 != 0)
                   : Scribble(fb, scribble == IN_TURN ? host.frames.load() : scribble);
      });
    }
    host.route->SetDump("/tmp");
    auto* stock = host.route->NewBlock((std::string(name) + ".so").c_str(), !before, !behind, args);
    if (stock == nullptr) return std::string("no block");
    if (before) host.Join(host.route->NewBlock("scripted.so", true, false, {"source"}), stock);
    if (behind) host.Join(stock, host.route->NewBlock("scripted.so", false, true, {"sink"}), 8);
    if (host.route->Start() != 0) return std::string("no start");
    Host::Await([&] { return host.stopped || host.frames > 20; });
    Host::ExpectOthersRun();
    host.Delete();
    return std::string("lives");
  });
}

TEST(WildDescriptors, OfTheirNeighboursAreSurvivedByStockBlocks) {
  const struct {
    const char* name;
    std::vector<std::string> args;
    bool before, behind;
  } blocks[] = {
      {"siggen", {"sine"}, false, true},
      {"gain", {"6"}, true, true},
      {"convert", {"dither"}, true, true},
      {"resample", {"quick"}, true, true},
      {"tee", {}, true, true},
      {"mixer", {}, true, true},
      {"meter", {}, true, true},
      {"pace", {}, true, true},
      {"filesink", {"/tmp/misbehave.wav"}, true, false},
      {"ladspa", {"amp", "amp_mono"}, true, true},
      {"lv2", {"http://drobilla.net/plugins/mda/Delay"}, true, true},
  };
  int tested = 0;
  for (const auto& block : blocks) {
    // Some are built only where the libraries that they need are.
    if (std::string(STOCK_BLOCKS).find(block.name) == std::string::npos) continue;
    ++tested;
    for (long scribble = 0; scribble < SCRIBBLES; ++scribble) {
      EXPECT_EQ("lives", Neighbour(block.name, block.args, block.before, block.behind, scribble))
          << block.name << " " << scribble;
    }
  }
  EXPECT_GE(tested, 2);
}

#if defined(WITH_JACK)
// Devices are those of a JACK server, which outlives its clients.
TEST(WildDescriptors, OfTheirNeighboursAreSurvivedByDevices) {
  const JackServer server("wild");
  if (!server.running) GTEST_SKIP() << "no JACK server can be started here";
  setenv("JACK_DEFAULT_SERVER", server.name.c_str(), 1);
  for (const bool sink : {false, true})
    EXPECT_EQ("lives", Neighbour("jack", {"wild", server.name, "-"}, sink, !sink, IN_TURN));
  EXPECT_EQ("lives", Neighbour("audio", {"system"}, true, false, IN_TURN));
}
#endif

}  // namespace
