// Effects from LADSPA and LV2: what comes out, to the sample, and what they refuse.
#include "support/RouteFixture.h"

#include <lilv/lilv.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {

using namespace zelk;
using test::Floats;

const std::string ECHO = "http://drobilla.net/plugins/mda/Delay";

class EffectsBlocks : public test::RouteFixture {
 protected:
  static void SetUpTestSuite() { setenv("LV2_PATH", TEST_LV2_PATH, 1); }

  /// What an effect makes of `input`; and how the route ended.
  Floats Through(const Words& words, const Floats& input, unsigned int inChannels = 1,
                 unsigned int outChannels = 1, const std::string& tailSeconds = "10") {
    test::WriteWav(directory / "in.wav", input, static_cast<int>(inChannels));
    Block* const source = Source({"filesrc", directory / "in.wav"});
    Block* const effect = New(words);
    Block* const sink = Sink({"filesink", directory / "out.wav", "wavf"});
    EXPECT_NE(nullptr, effect);
    EXPECT_TRUE(Link(source, effect, {FLOAT_LE, inChannels}) &&
                Link(effect, sink, {FLOAT_LE, outChannels}));
    EXPECT_EQ(0, route->SetParameter(effect, 1, {tailSeconds}));
    EXPECT_EQ(Route::END_OF_FILE, Run());
    faults = Parameter(effect, 2);
    EXPECT_EQ(0, route->DeleteAll());
    return test::ReadWav<float>(directory / "out.wav");
  }

  Words faults;
};

Floats Times(Floats samples, float gain) {
  for (float& s : samples)
    s *= gain;
  return samples;
}

TEST_F(EffectsBlocks, LadspaControlsGoByNameOrNumberAndAddNoSamples) {
  const Floats noise = test::Noise(1000);
  EXPECT_EQ(Times(noise, 0.5F), Through({"ladspa", "amp", "amp_mono", "Gain=0.5"}, noise));
  EXPECT_EQ(Times(noise, 2), Through({"ladspa", "amp.so", "amp_mono", "0=2"}, noise));
  // One instance for each channel, or for each pair.
  const Floats six = test::Noise(6 * 701);
  EXPECT_EQ(Times(six, 0.25F), Through({"ladspa", "amp", "amp_mono", "Gain=0.25"}, six, 6, 6));
  EXPECT_EQ(Times(six, 0.25F), Through({"ladspa", "amp", "amp_stereo", "Gain=0.25"}, six, 6, 6));
}

TEST_F(EffectsBlocks, ATailReachesTheSinkUpToItsLastAudibleSample) {
  const Floats noise = test::Noise(1003);
  const Words delay = {"ladspa", "delay", "delay_5s", "Delay_(Seconds)=0.5", "Dry/Wet_Balance=1"};
  Floats delayed(24000, 0.0F);
  delayed.insert(delayed.end(), noise.begin(), noise.end());
  EXPECT_EQ(delayed, Through(delay, noise));
  // No longer than asked for, and not at all with 0.
  EXPECT_EQ(Floats(delayed.begin(), delayed.end() - 503),
            Through(delay, noise, 1, 1, "0.489520833333"));
  EXPECT_EQ(Floats(1003, 0.0F), Through(delay, noise, 1, 1, "0"));
}

TEST_F(EffectsBlocks, ATailHasATailInTheNextEffect) {
  const Floats noise = test::Noise(777);
  test::WriteWav(directory / "in.wav", noise);
  const Words delay = {"ladspa", "delay", "delay_5s", "0=0.5", "1=1"};
  Block* const blocks[] = {Source({"filesrc", directory / "in.wav"}), New(delay), New(delay),
                           Sink({"filesink", directory / "out.wav", "wavf"})};
  for (int i = 0; i < 3; ++i)
    ASSERT_TRUE(Link(blocks[i], blocks[i + 1], {FLOAT_BE, 1, 48000, 333}));
  EXPECT_EQ(Route::END_OF_FILE, Run());
  Floats expected(48000, 0.0F);
  expected.insert(expected.end(), noise.begin(), noise.end());
  EXPECT_EQ(expected, test::ReadWav<float>(directory / "out.wav"));
}

TEST_F(EffectsBlocks, AnLv2EchoIsWhatTheEffectItselfComputes) {
  const Floats noise = test::Noise(5000);
  const Floats out = Through({"lv2", ECHO, "fx_mix=0.5", "feedback=0.5"}, noise, 1, 2);

  LilvWorld* world = lilv_world_new();
  lilv_world_load_all(world);
  LilvNode* uri = lilv_new_uri(world, ECHO.c_str());
  const LilvPlugin* plugin = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world), uri);
  ASSERT_NE(nullptr, plugin);
  LilvInstance* instance = lilv_plugin_instantiate(plugin, 48000, nullptr);
  float controls[] = {0.5F, 0.27F, 0.5F, 0.5F, 0.5F, 0.5F};
  for (std::uint32_t i = 0; i < 6; ++i)
    lilv_instance_connect_port(instance, i, &controls[i]);
  const std::size_t length = out.size() / 2;
  Floats in = noise, left(length), right(length);
  in.resize(length);
  float* const audio[] = {in.data(), in.data(), left.data(), right.data()};
  lilv_instance_activate(instance);
  for (std::size_t done = 0; done < length;) {
    // The same runs as in the route: some effects compute once per run.
    const std::size_t n =
        std::min<std::size_t>({480, length - done, done < 5000 ? 5000 - done : 480});
    for (std::uint32_t i = 0; i < 4; ++i)
      lilv_instance_connect_port(instance, 6 + i, audio[i] + done);
    lilv_instance_run(instance, static_cast<std::uint32_t>(n));
    done += n;
  }
  lilv_instance_free(instance);
  lilv_node_free(uri);
  lilv_world_free(world);

  Floats expected;
  for (std::size_t i = 0; i < length; ++i)
    expected.insert(expected.end(), {left[i], right[i]});
  ASSERT_GT(length, 40000U);  // several echoes
  EXPECT_EQ(expected, out);
}

TEST_F(EffectsBlocks, AnLv2EffectGetsEveryFeatureThatItRequires) {
  const Floats noise = test::Noise(3000);
  Floats expected = Times(noise, 3);
  // The worker's answer comes after the first run.
  std::copy_n(noise.begin(), 480, expected.begin());
  EXPECT_EQ(expected, Through({"lv2", "urn:zelk:probe", "gain=3.2"}, noise));
  std::fill(expected.begin() + 480, expected.end(), 0.0F);
  for (std::size_t i = 480; i < 3000; ++i)
    expected[i] = noise[i] * 4;  // clamped
  EXPECT_EQ(expected, Through({"lv2", "urn:zelk:probe", "2=100"}, noise));
}

TEST_F(EffectsBlocks, WhatIsNotANumberBecomesSilence) {
  EXPECT_EQ(Floats(960, 0.0F),
            Through({"lv2", "urn:zelk:probe", "fault=1"}, test::Noise(960), 1, 1, "0"));
  EXPECT_EQ(Words{"2"}, faults);
}

TEST_F(EffectsBlocks, ALiveChangeOfAControlDoesNotClick) {
  Block* const source = Source({"siggen", "impulse", "48000", "0"});
  Block* const effect = New({"ladspa", "amp", "amp_mono", "Gain=1"});
  Block* const sink = Sink({"filesink", directory / "out.wav", "wavf"});
  ASSERT_TRUE(Link(source, effect) && Link(effect, sink));
  ASSERT_EQ(0, route->Start());
  EXPECT_EQ(0, route->SetParameter(effect, 10, {"0"}));
  EXPECT_EQ(Words{"0"}, Parameter(effect, 10));
  EXPECT_EQ(0, route->SetParameter(effect, 0, {"Gain=-7"}));  // clamped
  EXPECT_EQ(Words{"0"}, Parameter(effect, 10));
  Words list = Parameter(effect, 0);
  ASSERT_EQ(3U, list.size());
  EXPECT_EQ("1 tail s 0 600 10 10", list[0]);
  EXPECT_EQ("10 Gain - 0 1e+06 1 0", list[2]);
  LetFramesPass(source);
  ASSERT_EQ(0, route->Stop());
  const Floats out = test::ReadWav<float>(directory / "out.wav");
  EXPECT_EQ(1.0F, out.front());
  EXPECT_EQ(0.0F, out.back());
  EXPECT_LT(test::LargestStep(out), 0.02F);
}

TEST_F(EffectsBlocks, WhatDoesNotFitIsRefused) {
  ExpectNoBlocks(
      {"ladspa", "ladspa amp", "ladspa amp no_such_label", "ladspa no_such_file amp_mono",
       "ladspa amp amp_mono Gain", "ladspa amp amp_mono Gain=loud", "ladspa amp amp_mono 1=1",
       "ladspa noise noise_white", "lv2", "lv2 urn:zelk:unknown", "lv2 urn:zelk:demanding",
       "lv2 " + ECHO + " left_in=1", "lv2 " + ECHO + " fx_mix=inf"});
  EXPECT_EQ(nullptr, New({"lv2", "not a URI"}));

  Block* const source = Source({"siggen", "silence"});
  Block* const stereo = New({"ladspa", "amp", "amp_stereo"});
  Block* const sink = Sink({"filesink", directory / "out.wav"});
  ASSERT_TRUE(Link(source, stereo, {FLOAT_LE, 3}));
  EXPECT_FALSE(Link(stereo, sink, {FLOAT_LE, 3}));
  EXPECT_FALSE(Link(stereo, sink, {FLOAT_LE, 2}));
}

}  // namespace
