// Sound files that are cut short or are none.
#include "support/RouteFixture.h"

#include <cmath>
#include <fstream>
#include <numbers>

namespace {

class BrokenFiles : public test::RouteFixture {
 protected:
  /// A second of a 440 Hz sine, mono, 16 bit.
  static std::vector<short> Sine() {
    std::vector<short> samples(48000);
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const double phase = 2 * std::numbers::pi * 440 * static_cast<double>(i) / 48000;
      samples[i] = static_cast<short>(std::lround(16000 * std::sin(phase)));
    }
    return samples;
  }

  /// What comes out of `path`, and why the route stopped.
  std::vector<short> Played(const std::string& path, std::optional<zelk::Route::StopReason>& why) {
    zelk::Block* source = Source({"filesrc", path});
    zelk::Block* sink = Sink({"filesink", directory / "out.wav", "wav16"});
    EXPECT_TRUE(source && sink && Link(source, sink, {zelk::S16_LE}));
    why = Run();
    EXPECT_EQ(0, route->DeleteAll());
    return test::ReadWav<short>(directory / "out.wav");
  }
};

TEST_F(BrokenFiles, ATruncatedFileGivesTheSamplesThatAreThereAndThenEnds) {
  const std::vector<short> sine = Sine();
  test::WriteWav(directory / "whole.wav", sine);
  std::optional<zelk::Route::StopReason> why;
  ASSERT_EQ(sine, Played(directory / "whole.wav", why));
  std::filesystem::copy_file(directory / "whole.wav", directory / "cut.wav");
  // The header of 44 bytes still promises a second; the last sample is cut in half.
  std::filesystem::resize_file(directory / "cut.wav", 44 + 2 * 12345 + 1);
  const std::vector<short> cut = Played(directory / "cut.wav", why);
  EXPECT_EQ(zelk::Route::END_OF_FILE, why);
  EXPECT_EQ(std::vector<short>(sine.begin(), sine.begin() + 12345), cut);
}

TEST_F(BrokenFiles, ADamagedFlacFileEndsTheRouteWithoutHarm) {
  zelk::Block* source = Source({"siggen", "sine", "440", "-6", "1"});
  zelk::Block* sink = Sink({"filesink", directory / "whole.flac"});
  ASSERT_TRUE(source && sink && Link(source, sink, {zelk::S16_LE}));
  ASSERT_EQ(zelk::Route::END_OF_FILE, Run());
  ASSERT_EQ(0, route->DeleteAll());
  std::optional<zelk::Route::StopReason> why;
  const std::vector<short> whole = Played(directory / "whole.flac", why);
  ASSERT_EQ(48000U, whole.size());
  std::filesystem::resize_file(directory / "whole.flac",
                               std::filesystem::file_size(directory / "whole.flac") / 2);
  const std::vector<short> cut = Played(directory / "whole.flac", why);
  EXPECT_TRUE(why.has_value());
  ASSERT_LT(cut.size(), whole.size());
  EXPECT_TRUE(std::equal(cut.begin(), cut.end(), whole.begin()));
}

TEST_F(BrokenFiles, WhatIsNoSoundFileMakesNoBlock) {
  std::ofstream(directory / "text.wav") << "RIFF, she said, is not all it takes\n";
  std::ofstream(directory / "empty.wav");
  for (const std::string& path :
       {directory / "text.wav", directory / "empty.wav", directory.path, directory / "missing.wav"})
    EXPECT_EQ(nullptr, Source({"filesrc", path})) << path;
}

}  // namespace
