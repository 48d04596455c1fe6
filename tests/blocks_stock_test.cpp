// The stock blocks by what they write and refuse.
#include "common/Arguments.h"
#include "support/RouteFixture.h"

#include <zelk/Ioctl.h>

#include <clocale>
#include <cmath>

namespace {

using namespace zelk;
using test::Counting;
using test::ReadWav;
using test::Shorts;

TEST(Arguments, NumbersFillTheWordAndAreFinite) {
  EXPECT_EQ(-6.5, blocks::ParseNumber("-6.5"));
  EXPECT_EQ(1000, blocks::ParseNumber("+1e3"));
  for (const char* word :
       {"", "x", "1,5", "1.5x", " 1", "1 ", "nan", "inf", "1e999", "+-1", "0x10"})
    EXPECT_EQ(std::nullopt, blocks::ParseNumber(word)) << '"' << word << '"';
  EXPECT_EQ("-0.1", blocks::FormatNumber(-0.1));
}

TEST(Arguments, FileUrlsAreDecodedAndOtherWordsAreThePath) {
  EXPECT_EQ("/a b%.wav", blocks::PathFromWord("file:///a%20b%25.wav"));
  EXPECT_EQ("/a.wav", blocks::PathFromWord("file://localhost/a.wav"));
  EXPECT_EQ("a.wav", blocks::PathFromWord("file:a.wav"));
  EXPECT_EQ("100%.wav", blocks::PathFromWord("100%.wav"));
  for (const char* word :
       {"", "file:", "file://", "file://host/a", "file:/a%2", "file:/%g0", "file:/%00"})
    EXPECT_EQ(std::nullopt, blocks::PathFromWord(word)) << word;
}

/// RouteA as a chain of blocks, each one's output 0 into the next one's input 0.
class StockBlocks : public test::RouteFixture {
 protected:
  /// The chain's blocks; `formats` are those of its links, the last of which repeats.
  std::vector<Block*> Chain(const std::vector<Words>& chain, std::vector<SampleFormat> formats,
                            unsigned int channels = 1, long frame = 480) {
    std::vector<Block*> made;
    for (const auto& words : chain) {
      made.push_back(New(words, made.empty(), made.size() + 1 == chain.size()));
      EXPECT_NE(nullptr, made.back()) << words[0];
    }
    for (std::size_t i = 0; i + 1 < made.size(); ++i) {
      const auto format = formats[std::min(i, formats.size() - 1)];
      EXPECT_TRUE(Link(made[i], made[i + 1], {format, channels, 48000, frame}));
    }
    return made;
  }

  std::optional<Route::StopReason> RunChain(const std::vector<Words>& chain,
                                            std::vector<SampleFormat> formats,
                                            unsigned int channels = 1, long frame = 480) {
    Chain(chain, std::move(formats), channels, frame);
    const auto why = Run();
    route->DeleteAll();
    return why;
  }
};

TEST_F(StockBlocks, AFilePassesEveryFormatUnchangedAndEveryFileTypeComesOut) {
  const Shorts extremes = {-32768, 32767, 0, -1, 1, 12345, -20000, 32766, 77, -32767};
  test::WriteWav(directory / "in put.wav", extremes, 2);
  const std::string in = "file://" + directory.path + "in%20put.wav";
  for (std::uint32_t f = S16_LE; f < SAMPLE_FORMATS; ++f) {
    const auto format = static_cast<SampleFormat>(f);
    SCOPED_TRACE(FormatToString(format));
    const std::string out = directory / "out.wav";
    EXPECT_EQ(Route::END_OF_FILE,
              RunChain({{"filesrc", in}, {"gain"}, {"filesink", out}}, {format, S32_BE}, 2, 3));
    EXPECT_EQ(extremes, ReadWav<short>(out));
  }
  for (const auto& [name, word, type] : std::vector<std::tuple<std::string, std::string, int>>{
           {"a.flac", "", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
           {"b.WAV", "flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
           {"c.flac", "wav24", SF_FORMAT_WAV | SF_FORMAT_PCM_24},
           {"d", "wavf", SF_FORMAT_WAV | SF_FORMAT_FLOAT},
           {"e", "", SF_FORMAT_WAV | SF_FORMAT_PCM_16}}) {
    Words sink = {"filesink", directory / name, word};
    if (word.empty()) sink.pop_back();
    EXPECT_EQ(Route::END_OF_FILE, RunChain({{"filesrc", in}, sink}, {FLOAT_LE}, 2));
    int format = 0;
    const auto samples = ReadWav<double>(directory / name, &format);
    EXPECT_EQ(type, format & (SF_FORMAT_TYPEMASK | SF_FORMAT_SUBMASK)) << name;
    ASSERT_EQ(extremes.size(), samples.size()) << name;
    for (std::size_t i = 0; i < samples.size(); ++i)
      EXPECT_EQ(extremes[i] / 32768.0, samples[i]) << name << ' ' << i;
  }
}

TEST_F(StockBlocks, FilesThatAreCutShortGiveTheSamplesThatAreThere) {
  const std::string wave = directory / "in.wav", flac = directory / "in.flac";
  const auto play = [&](const std::string& path) {
    EXPECT_NE(std::nullopt,
              RunChain({{"filesrc", path}, {"filesink", directory / "out"}}, {S16_LE}));
    return ReadWav<short>(directory / "out");
  };
  test::WriteWav(wave, Counting(30000));
  // The header of 44 bytes still promises all; the last sample is cut in half.
  std::filesystem::resize_file(wave, 44 + 2 * 12345 + 1);
  EXPECT_EQ(Counting(12345), play(wave));

  RunChain({{"siggen", "sine", "440", "-6", "1"}, {"filesink", flac}}, {S16_LE});
  const Shorts whole = play(flac);
  ASSERT_EQ(48000U, whole.size());
  std::filesystem::resize_file(flac, std::filesystem::file_size(flac) / 2);
  const Shorts half = play(flac);
  ASSERT_LT(half.size(), whole.size());
  EXPECT_TRUE(std::equal(half.begin(), half.end(), whole.begin()));
}

TEST_F(StockBlocks, DeepSamplesKeepTheirLowestBitAtZeroDecibels) {
  const std::vector<int> deep = {0x7FFFFF00, -0x7FFFFFFF - 1, 0x00000100, 0x12345600};
  test::WriteWav(directory / "in.wav", deep);
  EXPECT_EQ(Route::END_OF_FILE, RunChain({{"filesrc", directory / "in.wav"},
                                          {"gain", "0"},
                                          {"filesink", directory / "out.wav", "wav24"}},
                                         {S32_LE, S24_3BE}));
  EXPECT_EQ(deep, ReadWav<int>(directory / "out.wav"));
}

TEST_F(StockBlocks, GainMultipliesAndClips) {
  test::WriteWav(directory / "in.wav", Shorts{100, -100, 20000, -20000});
  RunChain({{"filesrc", directory / "in.wav"},
            {"gain", "6.020599913279624"},
            {"filesink", directory / "out.wav"}},
           {S16_LE});
  EXPECT_EQ((Shorts{200, -200, 32767, -32768}), ReadWav<short>(directory / "out.wav"));
}

TEST_F(StockBlocks, AFadeOutIsAStraightLineThatEndsTheRouteWithItsLastSample) {
  const auto chain =
      Chain({{"siggen", "impulse", "48000", "0"}, {"gain"}, {"filesink", directory / "out.wav"}},
            {FLOAT_LE, S16_LE}, 1, 300);
  ASSERT_EQ(0, route->SetParameter(chain[1], 2, {"0.025"}));
  EXPECT_EQ(-20, route->SetParameter(chain[1], 1, {"-3"}));
  // `Start` begins without a fade; this one is asked for while the route runs.
  ASSERT_EQ(0, route->Start());
  ASSERT_EQ(0, route->SetParameter(chain[1], 2, {"0.025"}));
  EXPECT_EQ(Route::NORMAL, WaitForEnd());
  const auto out = ReadWav<short>(directory / "out.wav");
  ASSERT_GE(out.size(), 1200U);
  EXPECT_EQ(0U, (out.size() - 1200) % 300);
  for (std::size_t i = 0; i < 1200; ++i)
    ASSERT_NEAR(32768.0 * static_cast<double>(1199 - i) / 1200, out[out.size() - 1200 + i], 1) << i;
}

TEST_F(StockBlocks, AChangeOfGainIsARamp) {
  const auto chain =
      Chain({{"siggen", "impulse", "48000", "0"}, {"gain"}, {"filesink", directory / "out.wav"}},
            {FLOAT_LE, S16_LE});
  ASSERT_EQ(0, route->Start());
  ASSERT_EQ(0, route->SetParameter(chain[1], 1, {"-120"}));
  LetFramesPass(chain[1]);
  ASSERT_EQ(0, route->Stop());
  const auto out = ReadWav<short>(directory / "out.wav");
  EXPECT_EQ(0, out.back());
  for (std::size_t i = 1; i < out.size(); ++i)
    ASSERT_LE(std::abs(out[i] - out[i - 1]), 35) << i;
}

TEST_F(StockBlocks, SiggenMakesWhatItIsAskedFor) {
  RunChain({{"siggen", "sine", "1000", "-6.020599913279624", "0.1"},
            {"filesink", directory / "sine.wav"}},
           {S16_BE}, 2, 77);
  const auto sine = ReadWav<short>(directory / "sine.wav");
  ASSERT_EQ(9600U, sine.size());
  for (std::size_t i = 0; i < 4800; ++i) {
    ASSERT_EQ(std::lrint(16384 * std::sin(2 * M_PI * static_cast<double>(i) / 48)), sine[2 * i]);
    ASSERT_EQ(sine[2 * i], sine[2 * i + 1]);
  }
  RunChain({{"siggen", "impulse", "100", "0", "1"}, {"filesink", directory / "impulse.wav"}},
           {S16_LE});
  const auto impulses = ReadWav<short>(directory / "impulse.wav");
  for (std::size_t i = 0; i < impulses.size(); ++i)
    ASSERT_EQ(i % 480 == 0 ? 32767 : 0, impulses[i]) << i;
  RunChain({{"siggen", "noise", "0", "0", "1"}, {"filesink", directory / "noise.wav"}}, {S16_LE});
  const auto noise = ReadWav<short>(directory / "noise.wav");
  double power = 0, mean = 0;
  for (const short sample : noise) {
    power += sample * sample / 48000.0;
    mean += sample / 48000.0;
  }
  EXPECT_NEAR(32768 / std::sqrt(3.0), std::sqrt(power), 200);
  EXPECT_NEAR(0, mean, 300);
}

TEST_F(StockBlocks, ArgumentsAndLinksThatDoNotFitAreRefused) {
  ExpectNoBlocks({"filesrc", "filesrc /nowhere.wav", "filesrc /etc/passwd", "filesrc /dev/null",
                  "filesrc /", "filesrc file:/%zz", "filesink", "filesink a mp3",
                  "filesink a flac x", "gain loud", "gain 0 1", "gain 1e9", "siggen", "siggen saw",
                  "siggen sine -1", "siggen sine 1 3", "siggen sine 1 -3 x", "fifosrc drop",
                  "fifosink pad"});

  test::WriteWav(directory / "in.wav", Counting(10), 2, 44100);
  Block* source = New({"filesrc", directory / "in.wav"}, true);
  Block* gain = New({"gain"});
  Block* sink = New({"filesink", directory / "out.wav"}, false, true);
  for (const test::Format& bad : {test::Format{S16_LE, 2, 48000, 10},
                                  {S16_LE, 1, 44100, 10},
                                  {SampleFormat(12), 2, 44100, 10},
                                  {S16_LE, 2, 44100, 0}})
    EXPECT_FALSE(Link(source, gain, bad));
  EXPECT_FALSE(Join(source, 1, gain, 0, {S16_LE, 2, 44100, 10}));
  EXPECT_FALSE(Link(gain, sink, {S16_LE, 0, 44100, 10}));
  EXPECT_TRUE(Link(source, gain, {BYTE, 2, 44100, 10}));
  EXPECT_FALSE(Link(gain, sink, {S16_LE, 1, 44100, 10}));
  EXPECT_TRUE(Link(gain, sink, {FLOAT_BE, 2, 44100, 3}));  // smaller frames: resized
  EXPECT_EQ(Route::END_OF_FILE, Run());
  EXPECT_EQ(10U, ReadWav<short>(directory / "out.wav").size());
}

TEST_F(StockBlocks, ParameterZeroListsTheOthers) {
  Block* gain = New({"gain", "-6"});
  Words words = {"left from before"};
  ASSERT_EQ(0, route->SetParameter(gain, 1, {"-3.5"}));
  ASSERT_EQ(0, route->GetParameter(gain, 0, words));
  EXPECT_EQ((Words{"1 gain dB -144 60 -6 -3.5", "2 fade-out s 0 3600 0 0"}), words);
  ASSERT_EQ(0, route->GetParameter(gain, 1, words));
  EXPECT_EQ(Words{"-3.5"}, words);
  EXPECT_EQ(-20, route->GetParameter(gain, 9, words));
  for (const Words& bad : {Words{}, Words{"x"}, Words{"61"}, Words{"1", "2"}})
    EXPECT_EQ(-20, route->SetParameter(gain, 1, bad));
  EXPECT_EQ(-20, route->SetParameter(gain, 0, {"1"}));
  EXPECT_EQ(-20, route->SetParameter(gain, 2, {"1"}));  // not linked: nothing to fade
}

TEST_F(StockBlocks, AFullDiskFailsTheRouteAndALostDirectoryItsStart) {
  Chain({{"siggen", "noise"}, {"filesink", "/dev/full", "wav16"}}, {S16_LE});
  if (route->Start() == 0) {
    EXPECT_EQ(Route::FAILURE, WaitForEnd());
  }
  route->DeleteAll();
  Chain({{"siggen", "noise"}, {"filesink", directory / "none/out.wav"}}, {S16_LE});
  EXPECT_EQ(-20, route->Start());
}

TEST_F(StockBlocks, AFileBeginsAnewAfterItsEndAndGoesOnAfterAStop) {
  test::WriteWav(directory / "in.wav", Counting(1000));
  Chain({{"filesrc", directory / "in.wav"}, {"filesink", directory / "out.wav"}}, {S16_LE});
  for (int run = 0; run < 2; ++run) {
    EXPECT_EQ(Route::END_OF_FILE, Run());
    EXPECT_EQ(Counting(1000), ReadWav<short>(directory / "out.wav"));
  }
  route->DeleteAll();

  const auto runAWhile = [this](Block* source) {
    ASSERT_EQ(0, route->Start());
    LetFramesPass(source);
    ASSERT_EQ(0, route->Stop());
    WaitForEnd();
  };
  Block* source =
      Chain({{"siggen", "silence"}, {"filesink", directory / "out.wav"}}, {S16_LE}).front();
  std::size_t before = 0;
  for (int i = 0; i < 3; ++i) {
    runAWhile(source);
    const std::size_t now = ReadWav<short>(directory / "out.wav").size();
    EXPECT_GT(now, before);
    before = now;
  }
  route->DeleteAll();

  source = Chain({{"siggen", "silence"}, {"filesink", directory / "out.flac"}}, {S16_LE}).front();
  runAWhile(source);
  EXPECT_NE(0U, ReadWav<short>(directory / "out.flac").size());
  EXPECT_EQ(-20, route->Start());  // FLAC does not go on
}

TEST_F(StockBlocks, AnAnnouncedTotalTrimsTheLastFrameOnTheWayThroughTwoFifos) {
  FIFO* in = Zelk::Instance()->NewFIFO(48000, 2, 480, 0);
  FIFO* out = Zelk::Instance()->NewFIFO(48000, 2, 2000, 0);
  const auto chain = Chain({{"fifosrc"}, {"gain"}, {"fifosink"}}, {S16_LE});
  EXPECT_EQ(-20, route->Start());  // nothing is bound
  ASSERT_EQ(0, chain[0]->ioctl(IOCTL_BIND_FIFO, in));
  ASSERT_EQ(0, chain[2]->ioctl(IOCTL_BIND_FIFO, out));
  const long long total = 1111;
  ASSERT_EQ(0, chain[0]->ioctl(IOCTL_TOTAL_SAMPLES, const_cast<long long*>(&total)));
  EXPECT_EQ(-20, chain[2]->ioctl(IOCTL_TOTAL_SAMPLES, nullptr));
  ASSERT_EQ(0, route->Start());
  const auto samples = Counting(1111);
  for (long at = 0; at < 1111; at += 101)
    ASSERT_EQ(0, in->Consume(samples.data() + at, 101, true, 5'000'000 + at * 1'000'000 / 48000));
  EXPECT_EQ(Route::END_OF_FILE, WaitForEnd());
  Shorts got(1112);
  long long time = 0;
  EXPECT_EQ(0, out->Produce(got.data(), 1112, false, &time));
  EXPECT_EQ(0, got.back());
  got.pop_back();
  EXPECT_EQ(samples, got);
  EXPECT_EQ(5'000'000, time);

  // A FIFO that is shut down ends the source; the one of a sink fails its frame.
  in->Shutdown();
  EXPECT_EQ(Route::END_OF_FILE, Run());
  ASSERT_EQ(0, route->DeleteAll());
  const auto second = Chain({{"siggen", "noise"}, {"fifosink", "drop"}}, {S16_LE});
  second[1]->ioctl(IOCTL_BIND_FIFO, out);
  out->Shutdown();
  EXPECT_EQ(Route::FAILURE, Run());
  ASSERT_EQ(0, route->DeleteAll());
  Zelk::Instance()->DeleteFIFO(in);
  Zelk::Instance()->DeleteFIFO(out);
}

}  // namespace
