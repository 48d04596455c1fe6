
#include <algorithm>
#include <filesystem>
#include <limits>
#include <locale>
#include <numeric>

#include "support/LinkTest.h"
#include "support/TemporaryDirectory.h"

namespace {

using namespace test;
namespace fs = std::filesystem;

class Commits : public LinkTest {
 protected:
  void Join(std::size_t from, std::size_t to, zelk::SampleFormat format = zelk::S16_LE,
            unsigned channels = 2, long samples = 480) {
    links.push_back(NewLink(format, channels, samples));
    ASSERT_EQ(0, links.back()->Connect(source->OutEp(from), sink->InEp(to)));
    TakeTrace();
  }
  void CommitFrame(std::size_t port, long samples) {
    source->Out(port)->validSamples = samples;
    EXPECT_EQ(0, source->CommitFrame());
  }
  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  std::string Read(const std::string& name) {
    source->CloseDump();
    return ReadFile(folder + name);
  }

  static constexpr char FILE_0[] = "RouteA-src_0-O00-48000Hz-S16_LE-2ch.pcm";
  const TemporaryDirectory directory;
  const std::string& folder = directory.path;
  std::vector<std::unique_ptr<zelk::Link>> links;
};

void ExpectEqual(const zelk::FrameBuffer& wanted, const zelk::FrameBuffer& fb) {
  EXPECT_EQ(wanted.data, fb.data);
  EXPECT_EQ(wanted.format, fb.format);
  EXPECT_EQ(wanted.channels, fb.channels);
  EXPECT_EQ(wanted.samplesPerFrame, fb.samplesPerFrame);
  EXPECT_EQ(wanted.validSamples, fb.validSamples);
  EXPECT_EQ(wanted.rate, fb.rate);
  EXPECT_EQ(wanted.timestamp, fb.timestamp);
}

TEST_F(Commits, CarryWholeDescriptorsForwardToConsumersAndBackToProducers) {
  Join(0, 31);
  Join(31, 2);
  source->OutEp(31)->Resize(100);
  *source->Out(31) = {source->Out(31)->data, zelk::FLOAT_BE, 7, 100, 55, 8000, 123};
  CommitFrame(0, 480);
  ExpectEqual({source->Out(31)->data, zelk::FLOAT_BE, 7, 100, 55, 8000, 123}, *sink->In(2));
  EXPECT_EQ(480, sink->In(31)->validSamples);

  *sink->In(2) = {sink->In(2)->data, zelk::BYTE, 1, 100, 0, 9, -1};
  EXPECT_EQ(480, source->Out(0)->validSamples);
  EXPECT_EQ(0, sink->CommitFrame());
  ExpectEqual({source->Out(31)->data, zelk::BYTE, 1, 100, 0, 9, -1}, *source->Out(31));
  EXPECT_EQ(480, source->Out(0)->validSamples);
}

TEST_F(Commits, OfAnUnlinkedBlockDoNothing) {
  dumpPath = folder;
  EXPECT_EQ(0, source->CommitFrame());
  Join(0, 0);
  sink->In(0)->validSamples = 480;
  EXPECT_EQ(0, sink->CommitFrame());
  source->SetName("RouteA", "src_0", nullptr);  // no route, no dumps
  CommitFrame(0, 1);
  EXPECT_EQ((Lines{}), Files());
}

TEST_F(Commits, DumpFramesBackToBackInTheStreamsOwnFormat) {
  dumpPath = folder;
  Join(1, 0, zelk::S24_3LE, 2, 480);
  std::string wanted;
  for (int frame = 0; frame < 3; ++frame) {
    std::iota(source->Out(1)->data, source->Out(1)->data + 2880, static_cast<std::uint8_t>(frame));
    CommitFrame(1, 480);
    wanted.append(source->Out(1)->data, source->Out(1)->data + 2880);
  }
  CommitFrame(1, 1);
  wanted.append(wanted, 5760, 6);
  CommitFrame(1, 0);
  CommitFrame(1, -5);
  ASSERT_EQ((Lines{"RouteA-src_0-O01-48000Hz-S24_3LE-2ch.pcm"}), Files());
  EXPECT_EQ(wanted, Read("RouteA-src_0-O01-48000Hz-S24_3LE-2ch.pcm"));
}

TEST_F(Commits, OpenAFileForAnEmptyFrameToo) {
  dumpPath = folder;
  Join(31, 0, zelk::BYTE, 1, 480);
  Join(0, 1);
  CommitFrame(0, 0);
  EXPECT_EQ((Lines{FILE_0, "RouteA-src_0-O31-48000Hz-BYTE-1ch.pcm"}), Files());
  EXPECT_EQ("", Read(FILE_0));
}

TEST_F(Commits, ReportADumpThatCannotBeOpenedEveryTime) {
  dumpPath = folder + "missing/";
  Join(0, 0);
  CommitFrame(0, 480);
  CommitFrame(0, 480);
  const std::string line = "D src/Block CommitFrame: RouteA: src_0: Unable to open " + folder +
                           "missing/" + FILE_0 + " to dump data";
  EXPECT_EQ((Lines{line, line}), TakeTrace());
  EXPECT_EQ(480, sink->In(0)->validSamples);
  dumpPath = folder;
  CommitFrame(0, 1);
  EXPECT_EQ(4u, Read(FILE_0).size());
}

TEST_F(Commits, KeepTheFileUntilItIsClosedAndThenStartItAnew) {
  dumpPath = folder;
  Join(0, 0);
  CommitFrame(0, 1);
  dumpPath = "";  // suspended
  CommitFrame(0, 1);
  dumpPath = folder + "elsewhere/";  // still the open file
  CommitFrame(0, 1);
  links.clear();
  Join(0, 0, zelk::S16_LE, 1);  // a new format, still the open file
  CommitFrame(0, 1);
  EXPECT_EQ(10u, Read(FILE_0).size());

  dumpPath = folder;
  CommitFrame(0, 3);
  links.clear();
  Join(0, 0);
  source->CloseDump();
  CommitFrame(0, 3);
  EXPECT_EQ((Lines{"RouteA-src_0-O00-48000Hz-S16_LE-1ch.pcm", FILE_0}), Files());
  EXPECT_EQ(12u, Read(FILE_0).size());
}

TEST_F(Commits, CloseTheFilesWithTheBlock) {
  dumpPath = folder;
  Join(0, 0);
  CommitFrame(0, 2);
  links.clear();
  source.reset();
  EXPECT_EQ(8u, fs::file_size(folder + FILE_0));
}

TEST_F(Commits, NameDumpsWithoutTheProgramsLocale) {
  struct Grouped : std::numpunct<char> {
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
  };
  const auto old = std::locale::global(std::locale(std::locale(), new Grouped));
  dumpPath = folder;
  Join(0, 0);
  CommitFrame(0, 1);
  std::locale::global(old);
  EXPECT_EQ((Lines{FILE_0}), Files());
}

TEST_F(Commits, NeverDumpBytesFromOutsideTheBuffer) {
  dumpPath = folder;
  Join(0, 0, zelk::S16_LE, 2, 4);
  const long wild[] = {5, 1L << 40, std::numeric_limits<long>::max()};
  for (const long samples : wild)
    CommitFrame(0, samples);
  EXPECT_GE(3u * 16u, Read(FILE_0).size());

  *source->Out(0) = {source->Out(0)->data + 8, zelk::FLOAT_LE, 0xFFFFFFFF, 1L << 62, 0, 1, 0};
  CommitFrame(0, 1L << 62);
  source->Out(0)->data = nullptr;
  CommitFrame(0, 4);
  source->Out(0)->format = static_cast<zelk::SampleFormat>(0xFFFFFFF0);
  CommitFrame(0, 4);
  source->CloseDump();
  CommitFrame(0, 4);
  EXPECT_EQ((Lines{"RouteA-src_0-O00-1Hz-?-4294967295ch.pcm",
                   "RouteA-src_0-O00-1Hz-FLOAT_LE-4294967295ch.pcm", FILE_0}),
            Files());
}

}  // namespace
