// The meter against the closed-form cases that the standard's own test set is made of.
#include "support/Graph.h"

#include <climits>
#include <cmath>
#include <limits>
#include <numbers>

namespace {

using namespace zelk;
using test::Floats;
using test::Memory;

enum Id : unsigned int { MOMENTARY = 1, SHORT_TERM, INTEGRATED, RANGE, TRUE_PEAK };

class Meter : public test::Graph {
 protected:
  /// Measures `samples` of all channels together; the meter stays.
  void Measure(const Floats& samples, const test::Format& format,
               const test::Format& out = {FLOAT_LE, 2}) {
    source = Memory(samples);
    sink = Memory();
    if (!meter) {
      meter = New({"meter"});
      ASSERT_TRUE(Join(Source(source), 0, meter, 0, format));
      ASSERT_TRUE(Join(meter, 0, Sink(sink), 0, out));
    }
    ASSERT_EQ(Route::END_OF_FILE, Run(true));
  }
  Memory source;
  Memory sink;
  Block* meter = nullptr;
};

void AddSine(Floats& samples, double seconds, double dbfs, double hz = 1000, double phase = 0,
             unsigned int channels = 2) {
  const double level = std::pow(10, dbfs / 20);
  for (int i = 0; i < static_cast<int>(seconds * 48000); ++i)
    samples.insert(
        samples.end(), channels,
        static_cast<float>(level * std::sin(2 * std::numbers::pi * (hz * i / 48000.0) + phase)));
}

TEST_F(Meter, AStereoSineReadsItsLevelAndPassesAsItIs) {
  Floats tone;
  AddSine(tone, 20, -23);
  Measure(tone, {FLOAT_LE, 2});
  EXPECT_EQ(tone, sink.As<float>());
  EXPECT_NEAR(-23, Parameter(meter, MOMENTARY), 0.1);
  EXPECT_NEAR(-23, Parameter(meter, SHORT_TERM), 0.1);
  EXPECT_NEAR(-23, Parameter(meter, INTEGRATED), 0.1);
  EXPECT_NEAR(0, Parameter(meter, RANGE), 0.1);
  EXPECT_NEAR(-23, Parameter(meter, TRUE_PEAK), 0.2);
  EXPECT_EQ(-20, route->SetParameter(meter, INTEGRATED, {"0"}));
  const Words list = RouteFixture::Parameter(meter, 0);
  ASSERT_EQ(5U, list.size());
  EXPECT_EQ(0U, list[2].find("3 integrated LUFS -144 60 -144 -2"));

  // A start after the end of the input begins anew; silence is below every gate.
  Measure(Floats(2 * 48000), {FLOAT_LE, 2});
  for (const unsigned int id : {MOMENTARY, INTEGRATED, TRUE_PEAK})
    EXPECT_EQ(-144, Parameter(meter, id));
}

TEST_F(Meter, QuietPassagesAreGatedAndTheRangeIsTheirDistance) {
  Floats tones;
  AddSine(tones, 5, -36);
  AddSine(tones, 30, -23);
  AddSine(tones, 5, -36);
  Measure(tones, {FLOAT_LE, 2});
  EXPECT_NEAR(-23, Parameter(meter, INTEGRATED), 0.1);

  tones.clear();
  AddSine(tones, 20, -20);
  AddSine(tones, 20, -30);
  Measure(tones, {FLOAT_LE, 2});
  EXPECT_NEAR(10, Parameter(meter, RANGE), 1);
  EXPECT_NEAR(-30, Parameter(meter, SHORT_TERM), 0.1);
}

TEST_F(Meter, TheTruePeakLiesBetweenTheSamples) {
  Floats tone;
  AddSine(tone, 1, -6, 12000, std::numbers::pi / 4, 1);
  Measure(tone, {FLOAT_LE, 1}, {FLOAT_LE, 1});
  EXPECT_NEAR(-6, Parameter(meter, TRUE_PEAK), 0.4);  // the samples themselves reach -9 only
}

TEST_F(Meter, WhatIsNoNumberPassesButSpoilsNoMeasurement) {
  Floats tone = {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::infinity(),
                 3e38F, -3e38F};
  AddSine(tone, 10, -23);
  Measure(tone, {FLOAT_LE, 2});
  EXPECT_TRUE(std::isnan(sink.As<float>()[0]));
  EXPECT_EQ(3e38F, sink.As<float>()[2]);
  EXPECT_NEAR(-23, Parameter(meter, INTEGRATED), 0.1);
}

TEST_F(Meter, IntegersMeasureAlikeAndTooManyChannelsAreRefused) {
  std::vector<short> tone;
  for (int i = 0; i < 480000; ++i)
    tone.insert(tone.end(), 2,
                static_cast<short>(std::lrint(2320 * std::sin(2 * std::numbers::pi * i / 48))));
  Memory shorts(tone);
  Memory heard;
  meter = New({"meter"});
  EXPECT_TRUE(RefusesInput(meter, 0, {S16_LE, 65}));
  EXPECT_TRUE(RefusesInput(meter, 0, {S16_LE, 2, 15}));
  ASSERT_TRUE(Join(Source(shorts), 0, meter, 0, {S16_LE, 2}));
  ASSERT_TRUE(Join(meter, 0, Sink(heard), 0, {S16_BE, 2}));
  ASSERT_EQ(Route::END_OF_FILE, Run(true));
  EXPECT_NEAR(-23, Parameter(meter, INTEGRATED), 0.1);
  EXPECT_EQ(tone.size() * 2, heard.bytes.size());
}

}  // namespace
