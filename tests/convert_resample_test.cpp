// convert and resample against libsndfile's raw formats and closed forms.
#include "common/SampleClock.h"
#include "support/Graph.h"

#include <sndfile.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <numbers>
#include <numeric>
#include <random>

namespace {

using namespace zelk;
using test::Floats;
using test::Memory;
using test::Shorts;

class ConvertResample : public test::Graph {
 protected:
  void Refused(const std::string& name, const test::Format& in, const test::Format& out) {
    block = New({name});
    EXPECT_TRUE(Join(Source(unheard), 0, block, 0, in));
    EXPECT_TRUE(RefusesOutput(block, 0, out));
  }
  Memory unheard;
};

/// A sound file in memory, all of whose bytes are samples.
struct RawFile {
  std::vector<unsigned char> bytes;
  sf_count_t at = 0;

  static RawFile& Of(void* user) { return *static_cast<RawFile*>(user); }
  SF_VIRTUAL_IO io = {
      [](void* user) { return static_cast<sf_count_t>(Of(user).bytes.size()); },
      [](sf_count_t offset, int whence, void* user) {
        RawFile& file = Of(user);
        const sf_count_t from = whence == SEEK_SET   ? 0
                                : whence == SEEK_CUR ? file.at
                                                     : static_cast<sf_count_t>(file.bytes.size());
        return file.at = from + offset;
      },
      [](void* to, sf_count_t count, void* user) {
        RawFile& file = Of(user);
        count = std::min(count, static_cast<sf_count_t>(file.bytes.size()) - file.at);
        std::memcpy(to, file.bytes.data() + file.at, static_cast<std::size_t>(count));
        file.at += count;
        return count;
      },
      [](const void* from, sf_count_t count, void* user) {
        RawFile& file = Of(user);
        const auto* first = static_cast<const unsigned char*>(from);
        file.bytes.insert(file.bytes.end(), first, first + count);
        return count;
      },
      [](void* user) { return Of(user).at; }};
};

SF_INFO RawFormat(SampleFormat format) {
  static constexpr int SUBTYPES[] = {SF_FORMAT_PCM_S8, SF_FORMAT_PCM_16, SF_FORMAT_PCM_16,
                                     SF_FORMAT_PCM_32, SF_FORMAT_PCM_32, SF_FORMAT_PCM_24,
                                     SF_FORMAT_PCM_24, SF_FORMAT_FLOAT,  SF_FORMAT_FLOAT};
  const bool big = format == S16_BE || format == S32_BE || format == S24_3BE || format == FLOAT_BE;
  SF_INFO info = {};
  info.samplerate = 48000;
  info.channels = 1;
  info.format = SF_FORMAT_RAW | SUBTYPES[format] | (big ? SF_ENDIAN_BIG : SF_ENDIAN_LITTLE);
  return info;
}

std::vector<unsigned char> ToRaw(SampleFormat format, const std::vector<double>& samples) {
  RawFile file;
  SF_INFO info = RawFormat(format);
  SNDFILE* const handle = sf_open_virtual(&file.io, SFM_WRITE, &info, &file);
  sf_command(handle, SFC_SET_CLIPPING, nullptr, SF_TRUE);
  sf_write_double(handle, samples.data(), static_cast<sf_count_t>(samples.size()));
  sf_close(handle);
  return file.bytes;
}

std::vector<double> FromRaw(SampleFormat format, const std::vector<unsigned char>& bytes) {
  RawFile file;
  file.bytes = bytes;
  SF_INFO info = RawFormat(format);
  std::vector<double> samples(bytes.size() / BytesPerSample(format));
  SNDFILE* const handle = sf_open_virtual(&file.io, SFM_READ, &info, &file);
  sf_read_double(handle, samples.data(), static_cast<sf_count_t>(samples.size()));
  sf_close(handle);
  return samples;
}

/// What is left of a value in a format that holds it best.
double Rounded(SampleFormat format, double value) {
  if (format >= FLOAT_LE) return static_cast<double>(static_cast<float>(value));
  const double scale = std::ldexp(1, static_cast<int>(8 * BytesPerSample(format)) - 1);
  return std::clamp(std::nearbyint(value * scale), -scale, scale - 1) / scale;
}

TEST_F(ConvertResample, EveryFormatBecomesEveryOtherAtBothEndsOfItsRange) {
  std::vector<double> wanted = {-1, -1 + 0x1p-31, -0.5, -0x1p-31, 0, 0x1p-31, 0x1p-15, 0.5, 1};
  std::mt19937 random(1);
  while (wanted.size() < 8 * 131)
    wanted.push_back(std::uniform_real_distribution<double>(-1, 1)(random));
  unsigned int channels = 0;
  for (std::uint32_t from = 0; from < SAMPLE_FORMATS; ++from) {
    for (std::uint32_t to = 0; to < SAMPLE_FORMATS; ++to) {
      const auto in = static_cast<SampleFormat>(from);
      const auto out = static_cast<SampleFormat>(to);
      SCOPED_TRACE(std::string(FormatToString(in)) + " to " + FormatToString(out));
      channels = channels == 8 ? 1 : channels == 0 ? 1 : channels * 2;
      Memory source(ToRaw(in, wanted));
      source.sizes = {1, 37, 480, 5};
      const Memory sink = Through({"convert"}, source, {in, channels}, {out, channels});
      std::vector<double> expected = FromRaw(in, source.bytes);
      for (double& value : expected)
        value = Rounded(out, value);
      ASSERT_EQ(expected, FromRaw(out, sink.bytes));
    }
  }
}

TEST_F(ConvertResample, ChannelsAreSpreadAveragedOrMixedByAMatrix) {
  Memory mono(Shorts{100, -7});
  EXPECT_EQ((Shorts{100, 100, 100, -7, -7, -7}),
            Through({"convert"}, mono, {S16_LE, 1}, {S16_LE, 3}).As<short>());
  Memory eight(Shorts{80, 0, 8, 0, 0, 0, 0, -16});
  EXPECT_EQ((Shorts{9}), Through({"convert"}, eight, {S16_LE, 8}, {S16_LE, 1}).As<short>());
  EXPECT_EQ((Shorts{27, -5, 4}), Through({"convert"}, eight, {S16_LE, 8}, {S16_LE, 3}).As<short>());
  Memory stereo(Floats{1, 10, 2, 20});
  EXPECT_EQ((Floats{1, 10, 1, 2, 20, 2}),
            Through({"convert"}, stereo, {FLOAT_LE, 2}, {FLOAT_LE, 3}).As<float>());
}

TEST_F(ConvertResample, AMatrixChangesWithoutAClick) {
  Floats samples;
  for (int i = 0; i < 4800; ++i)
    samples.insert(samples.end(), {0.75F, -0.5F});
  Memory source(samples);
  source.sizes = {479};
  source.before = [this](std::size_t frame, FrameBuffer&) {
    Words words;
    if (frame == 2) {
      EXPECT_EQ(0, block->SetParameter(1, {"0", "1", "1", "0"}));
    }
    if (frame == 3) {
      EXPECT_EQ(0, block->SetParameter(1, {"-1", "0", "0.25", "0.5"}));  // on the way
    }
    EXPECT_EQ(-20, block->SetParameter(1, {"0", "1", "1", "x"}));
    EXPECT_EQ(0, block->GetParameter(1, words));
    EXPECT_EQ(frame < 2    ? (Words{"1", "0", "0", "1"})
              : frame == 2 ? (Words{"0", "1", "1", "0"})
                           : (Words{"-1", "0", "0.25", "0.5"}),
              words);
  };
  const Floats out = Through({"convert"}, source, {FLOAT_LE, 2}, {FLOAT_LE, 2}).As<float>();
  ASSERT_EQ(9600U, out.size());
  EXPECT_EQ(0.75F, out[0]);
  EXPECT_EQ(-0.75F, out[9598]);
  EXPECT_EQ(0.1875F - 0.25F, out[9599]);
  for (std::size_t i = 2; i < out.size(); ++i)
    ASSERT_LT(std::fabs(out[i] - out[i - 2]), 0.0016F) << i;  // 1.5 in 960 samples
}

TEST_F(ConvertResample, DitherTurnsRoundingIntoNoiseThatAveragesOut) {
  Memory source(Floats(48000, 0.3F / 32768));
  EXPECT_EQ(Shorts(48000), Through({"convert"}, source, {}, {S16_LE}).As<short>());
  const Shorts out = Through({"convert", "dither"}, source, {}, {S16_LE}).As<short>();
  double sum = 0;
  double squares = 0;
  for (const short sample : out) {
    sum += sample;
    squares += (sample - 0.3) * (sample - 0.3);
  }
  EXPECT_NEAR(0.3, sum / 48000, 0.01);
  EXPECT_NEAR(0.25, squares / 48000, 0.01);  // a triangle's 1/6 and rounding's 1/12 step²

  Memory exact(Shorts{-32768, 32767, 5});
  EXPECT_EQ((Shorts{-32768, 32767, 5}),
            Through({"convert", "dither"}, exact, {S16_LE}, {S16_LE}).As<short>());
  Memory loud(Floats{1, -1, 2, -2});
  for (const short sample : Through({"convert", "dither"}, loud, {}, {S16_LE}).As<short>())
    EXPECT_GE(std::abs(sample), 32766);
}

Floats Sine(std::size_t count, double hz, double rate, double level = 0.5) {
  Floats samples(count);
  for (std::size_t i = 0; i < count; ++i)
    samples[i] = static_cast<float>(
        level * std::sin(2 * std::numbers::pi * hz * static_cast<double>(i) / rate));
  return samples;
}

TEST_F(ConvertResample, EveryRateGivesTheExpectedNumberOfSamplesToTheLast) {
  const struct {
    unsigned int from, to;
    std::size_t samples, expected;
  } cases[] = {
      {44100, 48000, 44100, 48000}, {44100, 48000, 1, 1},         {44100, 48000, 44101, 48001},
      {44100, 48000, 7, 8},         {48000, 44100, 48000, 44100}, {48000, 8000, 100003, 16667},
      {48000, 8000, 2, 0},          {8000, 96000, 12345, 148140}, {44100, 44100, 12345, 12345},
      {48000, 48001, 48000, 48001}, {1000, 256000, 100, 25600}};
  for (const auto& c : cases) {
    for (const char* quality : {"quick", "hq", "vhq"}) {
      for (const long frame : {1L, 441L, 100000L}) {
        if (frame == 1 && c.samples > 20000) continue;
        SCOPED_TRACE(testing::Message() << c.from << " to " << c.to << ' ' << quality << ' '
                                        << c.samples << " by " << frame);
        Memory source(Floats(c.samples, 0.25F));
        source.sizes = {frame};
        const Memory sink =
            Through({"resample", quality}, source, {FLOAT_LE, 1, c.from}, {FLOAT_LE, 1, c.to});
        EXPECT_EQ(c.expected, sink.bytes.size() / 4);
      }
    }
  }
}

TEST_F(ConvertResample, ASineStaysOneAtItsPlaceAndInItsChannel) {
  const struct {
    const char* quality;
    double decibels;
  } cases[] = {{"quick", 40}, {"hq", 125}, {"vhq", 135}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.quality);
    const Floats left = Sine(44100, 1000, 44100);
    Floats both;
    for (const float sample : left)
      both.insert(both.end(), {sample, 0.0F});
    Memory source(both);
    source.sizes = {441, 100};
    const Memory sink =
        Through({"resample", c.quality}, source, {FLOAT_LE, 2, 44100}, {FLOAT_LE, 2, 48000});
    const Floats out = sink.As<float>();
    ASSERT_EQ(96000U, out.size());
    double noise = 0;
    for (std::size_t i = 4800; i < 43200; ++i) {
      const double error =
          out[2 * i] - 0.5 * std::sin(2 * std::numbers::pi * static_cast<double>(i) / 48);
      noise += error * error / 38400;
      ASSERT_EQ(0, out[2 * i + 1]);
    }
    EXPECT_GT(10 * std::log10(0.125 / noise), c.decibels);
    long long samples = 0;
    for (std::size_t i = 0; i < sink.sizes.size(); samples += sink.sizes[i++]) {
      EXPECT_EQ(blocks::Microseconds(samples, 48000), sink.times[i]);
      if (i + 1 < sink.sizes.size()) {
        EXPECT_LE(sink.sizes[i], 480);  // as even as the input, not in bursts
      }
    }
  }
}

TEST_F(ConvertResample, WhatCannotBeLinkedIsRefused) {
  Refused("convert", {S16_LE, 2, 48000}, {S16_LE, 2, 44100});
  Refused("convert", {S16_LE, 65}, {S16_LE, 1});
  Refused("resample", {S16_LE, 2, 48000}, {S16_LE, 1, 44100});
  Refused("resample", {S16_LE, 1, 1}, {S16_LE, 1, 48000});
  Refused("resample", {S16_LE, 257, 48000}, {S16_LE, 257, 44100});
  Refused("convert", {S16_LE, 1}, {static_cast<SampleFormat>(9), 1});
  EXPECT_EQ(-20, route->SetParameter(block, 1, {"1"}));
}

}  // namespace
