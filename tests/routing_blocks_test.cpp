// tee, mixer and pace: every sample arrives, at its place, once.
#include "common/SampleClock.h"
#include "support/Graph.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>
#include <numeric>

namespace {

using namespace zelk;
using test::Floats;
using test::Memory;
using test::Shorts;

class RoutingBlocks : public test::Graph {};

Floats Counting(std::size_t count, float step = 1.0F / 4096) {
  Floats samples(count);
  for (std::size_t i = 0; i < count; ++i)
    samples[i] = static_cast<float>(i + 1) * step;
  return samples;
}

Floats Sum(const std::vector<Floats>& inputs) {
  Floats sum;
  for (const auto& input : inputs) {
    if (sum.size() < input.size()) sum.resize(input.size());
    for (std::size_t i = 0; i < input.size(); ++i)
      sum[i] += input[i];
  }
  return sum;
}

TEST_F(RoutingBlocks, ATeeGivesEveryOutputAllSamplesInItsOwnFormat) {
  const Shorts samples = {-32768, 32767, 1, -1, 0, 12345, -12345, 2};
  Memory source(samples);
  source.sizes = {1, 2};
  Memory sinks[3];
  Block* const from = Source(source);
  Block* const tee = New({"tee"});
  ASSERT_TRUE(Join(from, 0, tee, 0, {S16_LE, 2}));
  ASSERT_TRUE(Join(tee, 0, Sink(sinks[0]), 0, {S16_LE, 2}));
  ASSERT_TRUE(Join(tee, 5, Sink(sinks[1]), 0, {S32_LE, 2}));
  ASSERT_TRUE(Join(tee, 31, Sink(sinks[2]), 0, {S16_BE, 2, 48000, 1}));
  EXPECT_TRUE(RefusesOutput(tee, 1, {S16_LE, 1}));
  EXPECT_TRUE(RefusesOutput(tee, 1, {S16_LE, 2, 44100}));
  EXPECT_TRUE(RefusesInput(tee, 1, {S16_LE, 2}));
  EXPECT_EQ(Route::END_OF_FILE, Run());
  EXPECT_EQ(samples, sinks[0].As<short>());
  const auto wide = sinks[1].As<int>();
  ASSERT_EQ(8U, wide.size());
  for (std::size_t i = 0; i < 8; ++i)
    EXPECT_EQ(samples[i] * 65536, wide[i]);
  EXPECT_EQ((std::vector<long>{1, 2, 1}), sinks[2].sizes);
  EXPECT_EQ(0x80, sinks[2].bytes[0]);
  EXPECT_EQ((std::vector<long long>{0, 20, 62}), sinks[2].times);
}

// Frames of any lengths, through paths of any depth, ended or empty early.
TEST_F(RoutingBlocks, AMixerAddsSampleToSampleWhateverTheFramesAndEndsWithTheLongest) {
  struct Case {
    std::vector<std::size_t> lengths;
    std::vector<std::vector<long>> sizes;
    std::vector<int> gains;  // blocks between source and mixer
  };
  const Case cases[] = {{{1000, 1000}, {{100}, {100}}, {0, 0}},
                        {{1000, 777, 5, 1}, {{100}, {128}, {3}, {1}}, {0, 1, 0, 2}},
                        {{500, 3000}, {{480}, {7, 160}}, {1, 0}},
                        {{3000, 500}, {{1, 999}, {480}}, {0, 3}},
                        {{1, 250, 1}, {{10}, {100}, {10}}, {0, 0, 1}},
                        {{960, 480, 961}, {{480}, {480}, {480}}, {2, 1, 0}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.lengths));
    std::vector<Floats> inputs;
    std::vector<Memory> sources;
    for (std::size_t i = 0; i < c.lengths.size(); ++i) {
      inputs.push_back(Counting(c.lengths[i], i % 2 ? -3.0F / 8192 : 1.0F / 4096));
      sources.emplace_back(inputs[i]).sizes = c.sizes[i];
    }
    Memory sink;
    Block* const mixer = New({"mixer"});
    for (std::size_t i = 0; i < sources.size(); ++i) {
      Block* from = Source(sources[i]);
      for (int g = 0; g < c.gains[i]; ++g) {
        Block* const gain = New({"gain"});
        ASSERT_TRUE(Join(from, 0, gain, 0));
        from = gain;
      }
      ASSERT_TRUE(Join(from, 0, mixer, 3 * i));
    }
    ASSERT_TRUE(Join(mixer, 0, Sink(sink), 0));
    EXPECT_EQ(Route::END_OF_FILE, Run());
    const Floats expected = Sum(inputs);
    const Floats out = sink.As<float>();
    EXPECT_EQ(expected.size(), out.size());
    const auto differ = std::mismatch(expected.begin(), expected.end(), out.begin(), out.end());
    EXPECT_EQ(expected.size(), static_cast<std::size_t>(differ.first - expected.begin()));
    long long samples = 0;
    for (std::size_t i = 0; i < sink.times.size(); samples += sink.sizes[i++])
      EXPECT_NEAR(static_cast<double>(blocks::Microseconds(samples, 48000)),
                  static_cast<double>(sink.times[i]), 2);
  }
}

TEST_F(RoutingBlocks, ATeeAndAMixerAroundUnequalBranchesDoubleEverySampleInAnyOrderOfAddresses) {
  const Floats input = Counting(2345);
  Floats doubled = Sum({input, input});
  std::vector<std::string> order = {"gain0", "gain1", "mixer", "sink", "tee"};
  int run = 0;
  do {
    if (run++ % 5 != 0) continue;  // 24 of the 120
    Memory source(input);
    source.sizes = {480, 33};
    Memory sink;
    std::map<std::string, Block*> made = {{"source", Source(source)}};
    for (const auto& name : order)
      made[name] = name == "sink" ? Sink(sink) : New({name.substr(0, name.find_first_of("01"))});
    ASSERT_TRUE(Join(made["source"], 0, made["tee"], 0));
    ASSERT_TRUE(Join(made["tee"], 0, made["mixer"], 0));
    ASSERT_TRUE(Join(made["tee"], 1, made["gain0"], 0));
    ASSERT_TRUE(Join(made["gain0"], 0, made["gain1"], 0));
    ASSERT_TRUE(Join(made["gain1"], 0, made["mixer"], 1));
    ASSERT_TRUE(Join(made["mixer"], 0, made["sink"], 0));
    EXPECT_EQ(Route::END_OF_FILE, Run());
    ASSERT_EQ(doubled, sink.As<float>());
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(RoutingBlocks, AResampledBranchMeetsAnotherOneAtTheSampleWithoutASampleLost) {
  const Floats direct = Counting(30000, 1.0F / 65536);
  for (const std::size_t length : {11025UL, 44100UL}) {
    Memory sources[] = {Memory(Floats(length)), Memory(direct)};
    sources[0].sizes = {512};
    sources[1].sizes = {512};
    Memory sink;
    Block* const rate = New({"resample"});
    Block* const mixer = New({"mixer"});
    ASSERT_TRUE(Join(Source(sources[0]), 0, rate, 0, {FLOAT_LE, 1, 44100}));
    ASSERT_TRUE(Join(rate, 0, mixer, 0));
    ASSERT_TRUE(Join(Source(sources[1]), 0, mixer, 1));
    ASSERT_TRUE(Join(mixer, 0, Sink(sink), 0));
    EXPECT_EQ(Route::END_OF_FILE, Run());
    ASSERT_EQ(Sum({direct, Floats(length * 160 / 147)}), sink.As<float>());
  }
}

TEST_F(RoutingBlocks, LevelsAndMutesOfAMixerMoveWithoutAClick) {
  Memory sources[] = {Memory(Floats(48000, 0.5F)), Memory(Floats(48000, 0.25F))};
  Memory sink;
  Block* const mixer = New({"mixer", "-6.0206"});
  const auto set = [&](unsigned int id, const char* value) {
    EXPECT_EQ(0, mixer->SetParameter(id, {value})) << id;
  };
  sources[0].before = [&](std::size_t frame, FrameBuffer&) {
    if (frame == 10) set(1, "0");
    if (frame == 20) set(100, "-20");
    if (frame == 30) set(201, "1");
    if (frame == 40) set(201, "0");
    if (frame == 41) set(201, "1");  // on the way
  };
  ASSERT_TRUE(Join(Source(sources[0]), 0, mixer, 0));
  ASSERT_TRUE(Join(Source(sources[1]), 0, mixer, 1));
  ASSERT_TRUE(Join(mixer, 0, Sink(sink), 0));
  EXPECT_EQ(-20, route->SetParameter(mixer, 132, {"0"}));
  EXPECT_EQ(-20, route->SetParameter(mixer, 100, {"61"}));
  const Words list = RouteFixture::Parameter(mixer, 0);
  EXPECT_EQ(65U, list.size());
  EXPECT_EQ("1 master dB -144 60 -6.0206 -6.0206", list[0]);
  EXPECT_EQ("131 gain31 dB -144 60 0 0", list[63]);
  EXPECT_EQ(Route::END_OF_FILE, Run());
  const Floats out = sink.As<float>();
  ASSERT_EQ(48000U, out.size());
  EXPECT_NEAR(0.375, out[4000], 1e-5);
  EXPECT_NEAR(0.75, out[8000], 1e-6);
  EXPECT_NEAR(0.3, out[12000], 1e-6);
  EXPECT_NEAR(0.05, out[17000], 1e-6);
  EXPECT_NEAR(0.05, out[47999], 1e-6);
  EXPECT_LT(test::LargestStep(out), 0.0005F);  // 0.45 in 960 samples
}

TEST_F(RoutingBlocks, IntegersAreMixedExactlyAndClip) {
  Memory sources[] = {Memory(std::vector<int>{INT_MAX, 1, INT_MIN, 7}),
                      Memory(Shorts{1, 0, -1, 2})};
  Memory sink;
  Block* const mixer = New({"mixer"});
  ASSERT_TRUE(Join(Source(sources[0]), 0, mixer, 0, {S32_LE, 1}));
  ASSERT_TRUE(Join(Source(sources[1]), 0, mixer, 31, {S16_LE, 1}));
  EXPECT_TRUE(RefusesInput(mixer, 30, {S16_LE, 2}));
  ASSERT_TRUE(Join(mixer, 0, Sink(sink), 0, {S32_LE, 1}));
  EXPECT_EQ(Route::END_OF_FILE, Run());
  EXPECT_EQ((std::vector<int>{INT_MAX, 1, INT_MIN, 131079}), sink.As<int>());
}

TEST_F(RoutingBlocks, PaceNeverPassesAFrameBeforeItsTime) {
  const Floats input = Counting(4800);
  Memory source(input);
  std::vector<std::chrono::steady_clock::time_point> arrived;
  Memory sink;
  Block* const pace = New({"pace"});
  source.before = [&](std::size_t, FrameBuffer&) {
    arrived.push_back(std::chrono::steady_clock::now());
  };
  ASSERT_TRUE(Join(Source(source), 0, pace, 0));
  ASSERT_TRUE(Join(pace, 0, Sink(sink), 0));
  EXPECT_EQ(Route::END_OF_FILE, Run(true));
  EXPECT_EQ(input, sink.As<float>());
  ASSERT_EQ(10U, arrived.size());
  // Frame n is made when frame n - 1 was passed on, 10 ms times n - 1 after the first.
  for (std::size_t i = 2; i < arrived.size(); ++i)
    EXPECT_GE(arrived[i] - arrived[0], std::chrono::milliseconds(10 * (i - 1)));
  EXPECT_LE(0, Parameter(pace, 1));
  EXPECT_LE(Parameter(pace, 1), Parameter(pace, 2));
}

TEST_F(RoutingBlocks, WordsThatDoNotFitMakeNoBlock) {
  ExpectNoBlocks({"tee 1", "pace x", "meter x", "mixer loud", "mixer 0 0", "convert undither",
                  "resample slow", "resample hq hq"});
}

}  // namespace
