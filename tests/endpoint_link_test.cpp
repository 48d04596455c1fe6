#include <algorithm>
#include <cstdint>
#include <limits>
#include <numeric>
#include <stdexcept>

#include "support/LinkTest.h"

namespace {

using namespace test;
using zelk::SampleFormat;

class Links : public LinkTest {};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool ALLOCATION_MAY_FAIL = false;
#elif defined(__has_feature)
constexpr bool ALLOCATION_MAY_FAIL =
    !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer);
#else
constexpr bool ALLOCATION_MAY_FAIL = true;
#endif

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

}  // namespace
