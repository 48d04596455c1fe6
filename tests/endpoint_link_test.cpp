#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <numeric>
#include <stdexcept>

#include "Link/Link.h"
#include "support/LogRecorder.h"
#include "support/ScriptedBlock.h"

namespace {

using test::ScriptedBlock;
using test::Scripts;
using test::TakeTrace;
using Lines = std::vector<std::string>;
using zelk::SampleFormat;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool ALLOCATION_MAY_FAIL = false;
#elif defined(__has_feature)
constexpr bool ALLOCATION_MAY_FAIL =
    !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer);
#else
constexpr bool ALLOCATION_MAY_FAIL = true;
#endif

class Links : public ::testing::Test {
 protected:
  void SetUp() override {
    Scripts().clear();
    Make();
  }
  // Blocks read their scripts when they are made.
  void Make() {
    source = std::make_unique<ScriptedBlock>("src", true, false);
    sink = std::make_unique<ScriptedBlock>("dst", false, true);
    source->SetName("RouteA", "src_0", &noDump);
    sink->SetName("RouteA", "dst_0", &noDump);
    out = source->OutEp(3);
    in = sink->InEp(5);
    TakeTrace();
  }
  std::unique_ptr<zelk::Link> NewLink(SampleFormat format, unsigned channels, long samples,
                                      const char* name = "lnk_0") {
    return std::make_unique<zelk::Link>("RouteA", name, 48000, format, channels, samples);
  }
  void ExpectInactive() {
    EXPECT_FALSE(out->IsActive());
    EXPECT_FALSE(in->IsActive());
    EXPECT_TRUE(source->ActiveOutEps().empty());
    EXPECT_TRUE(sink->ActiveInEps().empty());
  }

  const std::string noDump;
  std::unique_ptr<ScriptedBlock> source, sink;
  zelk::OutputEndpoint* out = nullptr;
  zelk::InputEndpoint* in = nullptr;
};

TEST(SampleFormats, HaveTheirSizesAndNames) {
  const struct {
    std::uint32_t value;
    std::size_t bytes;
    const char* name;
  } formats[] = {{0, 1, "BYTE"},     {1, 2, "S16_LE"},  {2, 2, "S16_BE"},    {3, 4, "S32_LE"},
                 {4, 4, "S32_BE"},   {5, 3, "S24_3LE"}, {6, 3, "S24_3BE"},   {7, 4, "FLOAT_LE"},
                 {8, 4, "FLOAT_BE"}, {9, 0, "?"},       {0xFFFFFFFF, 0, "?"}};
  for (const auto& expected : formats) {
    const auto format = static_cast<SampleFormat>(expected.value);
    EXPECT_EQ(expected.bytes, BytesPerSample(format)) << expected.value;
    EXPECT_STREQ(expected.name, FormatToString(format)) << expected.value;
  }
}

TEST(Endpoints, StartUnnumberedInactiveAndEmpty) {
  const zelk::InputEndpoint ep;
  EXPECT_EQ(32u, ep.Index());
  EXPECT_FALSE(ep.IsActive());
  const zelk::FrameBuffer& fb = *ep.FB();
  EXPECT_EQ(nullptr, fb.data);
  EXPECT_EQ(0u, fb.format + fb.channels + fb.rate);
  EXPECT_EQ(0, fb.samplesPerFrame + fb.validSamples);
  EXPECT_EQ(-1, fb.timestamp);
  ScriptedBlock block("block", false, false);
  EXPECT_EQ(31u, block.InEp(31)->Index());
  EXPECT_EQ(0u, block.OutEp(0)->Index());
}

TEST_F(Links, ConnectSharesOneZeroedBufferAndTellsTheSourceFirst) {
  auto link = NewLink(zelk::S16_LE, 2, 480);
  out->FB()->validSamples = 7;
  EXPECT_EQ(0, link->Connect(out, in));
  EXPECT_EQ((Lines{"src.OnOutEpLinked 3",
                   "D src/Block BaseOnOutEpLinked: RouteA: src_0: Output endpoint 3 linked",
                   "dst.OnInEpLinked 5",
                   "D src/Block BaseOnInEpLinked: RouteA: dst_0: Input endpoint 5 linked",
                   "I src/Link Connect: RouteA: lnk_0: Created src_0(O03) --> (I05)dst_0"}),
            TakeTrace());
  for (const auto* fb : {out->FB(), in->FB()}) {
    EXPECT_EQ(out->FB()->data, fb->data);
    EXPECT_EQ(zelk::S16_LE, fb->format);
    EXPECT_EQ(2u, fb->channels);
    EXPECT_EQ(480, fb->samplesPerFrame);
    EXPECT_EQ(0, fb->validSamples);
    EXPECT_EQ(48000u, fb->rate);
    EXPECT_EQ(-1, fb->timestamp);
  }
  EXPECT_EQ(0, std::accumulate(out->FB()->data, out->FB()->data + 1920, 0));
}

TEST_F(Links, ConnectRefusesNullAndActiveEndpoints) {
  auto first = NewLink(zelk::S16_LE, 2, 480);
  ASSERT_EQ(0, first->Connect(out, in));
  out->FB()->validSamples = 480;
  TakeTrace();

  auto second = NewLink(zelk::BYTE, 1, 10, "lnk_1");
  EXPECT_EQ(-20, second->Connect(nullptr, sink->InEp(6)));
  EXPECT_EQ(-20, second->Connect(source->OutEp(4), nullptr));
  EXPECT_EQ((Lines{}), TakeTrace());
  EXPECT_EQ(-20, second->Connect(out, in));
  EXPECT_EQ(-20, second->Connect(source->OutEp(4), in));
  EXPECT_EQ((Lines{"E src/Link Connect: RouteA: lnk_1: src_0's O03 has been already active",
                   "E src/Link Connect: RouteA: lnk_1: dst_0's I05 has been already active"}),
            TakeTrace());
  EXPECT_FALSE(source->OutEp(4)->IsActive());
  second.reset();
  EXPECT_EQ((Lines{"I src/Link ~Link: RouteA: lnk_1: Deleted"}), TakeTrace());
  EXPECT_EQ(480, out->FB()->validSamples);
  EXPECT_EQ(480, out->FB()->samplesPerFrame);
  EXPECT_TRUE(out->IsActive() && in->IsActive());
}

TEST_F(Links, ASourceThatRefusesIsRolledBackBeforeTheSinkHears) {
  Scripts()["src"].on["OnOutEpLinked"] = [](ScriptedBlock*) { return -7; };
  Make();
  auto link = NewLink(zelk::S16_LE, 2, 480);
  EXPECT_EQ(-7, link->Connect(out, in));
  EXPECT_EQ((Lines{"src.OnOutEpLinked 3",
                   "E src/Link Connect: RouteA: lnk_0: Failed to link to src_0's O03"}),
            TakeTrace());
  ExpectInactive();
  EXPECT_EQ(480, in->FB()->samplesPerFrame);
}

TEST_F(Links, ASinkThatRefusesUndoesTheSource) {
  for (const bool throws : {false, true}) {
    Scripts()["dst"].on["OnInEpLinked"] = [throws](ScriptedBlock*) -> long {
      if (throws) throw std::runtime_error("no");
      return -8;
    };
    Make();
    auto link = NewLink(zelk::S16_LE, 2, 480);
    EXPECT_EQ(throws ? -20 : -8, link->Connect(out, in));
    const auto trace = TakeTrace();
    const auto refusal =
        std::find(trace.begin(), trace.end(),
                  "E src/Link Connect: RouteA: lnk_0: Failed to link to dst_0's I05");
    EXPECT_EQ((Lines{"D src/Block BaseOnOutEpUnlinked: RouteA: src_0: Output endpoint 3 unlinked",
                     "src.OnOutEpUnlinked 3"}),
              Lines(refusal + (refusal == trace.end() ? 0 : 1), trace.end()));
    ExpectInactive();
  }
}

TEST_F(Links, ABlockThatCountsThePortAsLinkedRefusesIt) {
  source->BaseOnOutEpLinked(3);
  TakeTrace();
  EXPECT_EQ(-20, NewLink(zelk::S16_LE, 2, 480)->Connect(out, in));
  EXPECT_EQ((Lines{"E src/Block BaseOnOutEpLinked: RouteA: src_0: Output endpoint 3 existed",
                   "E src/Link Connect: RouteA: lnk_0: Failed to link to src_0's O03",
                   "I src/Link ~Link: RouteA: lnk_0: Deleted"}),
            TakeTrace());
  EXPECT_FALSE(out->IsActive());
  EXPECT_EQ(1u, source->ActiveOutEps().size());
}

TEST_F(Links, ConnectRefusesSizesThatNoBufferCanHave) {
  const long max = std::numeric_limits<long>::max();
  const struct {
    SampleFormat format;
    unsigned channels;
    long samples;
    bool allocates;
  } sizes[] = {{zelk::S16_LE, 2, -1, false},
               {zelk::S16_LE, 2, std::numeric_limits<long>::min(), false},
               {zelk::S16_LE, 2, 1L << 62, false},  // 2^64 bytes: zero, if it wrapped
               {zelk::S24_3LE, 1, max, false},
               {zelk::S16_LE, 0xFFFFFFFF, max, false},
               {zelk::S32_LE, 1, 1L << 61, false},  // fits a size_t, not a vector
               {zelk::BYTE, 1, 1L << 62, true}};
  for (const auto& size : sizes) {
    if (size.allocates && !ALLOCATION_MAY_FAIL) continue;
    auto link = NewLink(size.format, size.channels, size.samples);
    EXPECT_EQ(-20, link->Connect(out, in)) << size.samples;
    const auto trace = TakeTrace("E");
    ASSERT_EQ(1u, trace.size()) << size.samples;
    EXPECT_EQ(0u, trace[0].find("E src/Link Connect: RouteA: lnk_0: ")) << trace[0];
    ExpectInactive();
  }
  auto link = NewLink(zelk::S16_LE, 2, 480);
  EXPECT_EQ(0, link->Connect(out, in));
}

TEST_F(Links, DisconnectTellsTheSourceFirstAndKeepsTheDescriptors) {
  auto link = NewLink(zelk::S16_LE, 2, 480);
  ASSERT_EQ(0, link->Connect(out, in));
  out->FB()->timestamp = 99;
  TakeTrace();
  const Lines unlinked = {
      "D src/Block BaseOnOutEpUnlinked: RouteA: src_0: Output endpoint 3 unlinked",
      "src.OnOutEpUnlinked 3",
      "D src/Block BaseOnInEpUnlinked: RouteA: dst_0: Input endpoint 5 unlinked",
      "dst.OnInEpUnlinked 5"};
  link->Disconnect();
  EXPECT_EQ(unlinked, TakeTrace());
  ExpectInactive();
  EXPECT_EQ(99, out->FB()->timestamp);
  EXPECT_EQ(480, out->FB()->samplesPerFrame);
  link->Disconnect();
  EXPECT_EQ((Lines{}), TakeTrace());

  ASSERT_EQ(0, link->Connect(out, in));
  TakeTrace();
  link.reset();
  Lines deleted = unlinked;
  deleted.push_back("I src/Link ~Link: RouteA: lnk_0: Deleted");
  EXPECT_EQ(deleted, TakeTrace());
  ExpectInactive();
}

TEST_F(Links, ResizeToTheSameSizeKeepsEvenEditedDescriptors) {
  auto link = NewLink(zelk::S16_LE, 2, 480);
  ASSERT_EQ(0, link->Connect(out, in));
  out->FB()->data = nullptr;
  in->FB()->samplesPerFrame = 7;
  out->Resize(480);
  EXPECT_EQ(nullptr, out->FB()->data);
  EXPECT_EQ(7, in->FB()->samplesPerFrame);
}

TEST_F(Links, ResizeKeepsOldBytesZeroesNewOnesAndTellsBothEnds) {
  auto link = NewLink(zelk::S16_LE, 2, 2);
  ASSERT_EQ(0, link->Connect(out, in));
  std::fill_n(out->FB()->data, 8, std::uint8_t{0xAA});
  out->FB()->validSamples = 2;
  out->FB()->timestamp = 1234;
  out->Resize(1);
  out->Resize(5000);
  for (const auto* fb : {out->FB(), in->FB()}) {
    EXPECT_EQ(out->FB()->data, fb->data);
    EXPECT_EQ(5000, fb->samplesPerFrame);
  }
  EXPECT_EQ(2, out->FB()->validSamples);
  EXPECT_EQ(1234, out->FB()->timestamp);
  EXPECT_EQ(0, in->FB()->validSamples);
  EXPECT_EQ(4 * 0xAA, std::accumulate(out->FB()->data, out->FB()->data + 20000, 0));
}

TEST_F(Links, PublishingResizeCopiesExactlyOneFrameOfEveryFormat) {
  const std::size_t bytes[] = {1, 2, 2, 4, 4, 3, 3, 4, 4, 0};
  for (std::uint32_t format = 0; format < 10; ++format) {
    auto link = NewLink(static_cast<SampleFormat>(format), 2, 1);
    ASSERT_EQ(0, link->Connect(out, in));
    std::vector<std::uint8_t> frame(100 * 2 * bytes[format]);  // a byte too many is out of bounds
    std::iota(frame.begin(), frame.end(), std::uint8_t{1});
    out->Resize(100, frame.data(), 77);
    EXPECT_TRUE(std::equal(frame.begin(), frame.end(), out->FB()->data)) << format;
    EXPECT_EQ(100, out->FB()->validSamples);
    EXPECT_EQ(77, out->FB()->timestamp);
    EXPECT_EQ(100, in->FB()->samplesPerFrame);
    EXPECT_EQ(0, in->FB()->validSamples);
    EXPECT_EQ(-1, in->FB()->timestamp);
  }
}

TEST_F(Links, PublishingResizeTakesItsOwnBufferAndNull) {
  auto link = NewLink(zelk::BYTE, 1, 8);
  ASSERT_EQ(0, link->Connect(out, in));
  std::iota(out->FB()->data, out->FB()->data + 8, std::uint8_t{0});
  out->Resize(6, out->FB()->data + 2, 5);  // overlapping
  EXPECT_EQ((std::vector<std::uint8_t>{2, 3, 4, 5, 6, 7}),
            std::vector<std::uint8_t>(out->FB()->data, out->FB()->data + 6));
  out->Resize(100000, out->FB()->data + 3, 5);  // the buffer moves; only 3 bytes are there to copy
  EXPECT_EQ((std::vector<std::uint8_t>{5, 6, 7}),
            std::vector<std::uint8_t>(out->FB()->data, out->FB()->data + 3));
  out->Resize(3, nullptr, 9);
  EXPECT_EQ(3, out->FB()->validSamples);
  EXPECT_EQ(9, out->FB()->timestamp);
  EXPECT_EQ(5, out->FB()->data[0]);
}

TEST_F(Links, ResizeThatCannotBeDoneChangesNothing) {
  source->OutEp(9)->Resize(10);  // inactive
  source->OutEp(9)->Resize(10, nullptr, 1);
  EXPECT_EQ(0, source->Out(9)->samplesPerFrame);
  EXPECT_EQ(0, source->Out(9)->validSamples);

  auto link = NewLink(zelk::S16_LE, 2, 4);
  ASSERT_EQ(0, link->Connect(out, in));
  out->FB()->data[0] = 42;
  TakeTrace();
  const std::uint8_t bytes[4] = {};
  for (const long samples : {-1L, std::numeric_limits<long>::min(), 1L << 62}) {
    out->Resize(samples);
    out->Resize(samples, bytes, 5);
    EXPECT_EQ(2u, TakeTrace("E").size()) << samples;
    EXPECT_EQ(4, out->FB()->samplesPerFrame);
    EXPECT_EQ(0, out->FB()->validSamples);
    EXPECT_EQ(-1, out->FB()->timestamp);
    EXPECT_EQ(42, out->FB()->data[0]);
  }
}

TEST_F(Links, PublishingResizeStaysInsideTheBufferOfAWildDescriptor) {
  auto link = NewLink(zelk::BYTE, 1, 4);
  ASSERT_EQ(0, link->Connect(out, in));
  const std::vector<std::uint8_t> bytes(4 * 1000 * 4, 1);
  out->FB()->channels = 1000;
  out->FB()->format = zelk::S32_LE;
  out->Resize(4, bytes.data(), 1);  // 16000 bytes by the descriptor, 4 in the link
  EXPECT_EQ(4, out->FB()->samplesPerFrame);
}

}  // namespace
