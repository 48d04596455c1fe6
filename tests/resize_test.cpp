#include <algorithm>
#include <cstdint>
#include <limits>
#include <numeric>

#include "support/LinkTest.h"

namespace {

using namespace test;
using zelk::SampleFormat;

class Resizes : public LinkTest {};

TEST_F(Resizes, ToTheSameSizeKeepEvenEditedDescriptors) {
  auto link = NewLink(zelk::S16_LE, 2, 480);
  ASSERT_EQ(0, link->Connect(out, in));
  out->FB()->data = nullptr;
  in->FB()->samplesPerFrame = 7;
  out->Resize(480);
  EXPECT_EQ(nullptr, out->FB()->data);
  EXPECT_EQ(7, in->FB()->samplesPerFrame);
}

TEST_F(Resizes, KeepOldBytesZeroNewOnesAndTellBothEnds) {
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

TEST_F(Resizes, ThatPublishCopyExactlyOneFrameOfEveryFormat) {
  const std::size_t bytes[] = {1, 2, 2, 4, 4, 3, 3, 4, 4, 0};
  for (std::uint32_t format = 0; format < 10; ++format) {
    auto link = NewLink(static_cast<SampleFormat>(format), 2, 1);
    ASSERT_EQ(0, link->Connect(out, in));
    std::vector<std::uint8_t> frame(100 * 2 * bytes[format]);  // a byte too many is out of bounds
    std::iota(frame.begin(), frame.end(), std::uint8_t{1});
    out->Resize(100, frame.empty() ? bytes : static_cast<void*>(frame.data()), 77);
    EXPECT_TRUE(std::equal(frame.begin(), frame.end(), out->FB()->data)) << format;
    EXPECT_EQ(100, out->FB()->validSamples);
    EXPECT_EQ(77, out->FB()->timestamp);
    EXPECT_EQ(100, in->FB()->samplesPerFrame);
    EXPECT_EQ(0, in->FB()->validSamples);
    EXPECT_EQ(-1, in->FB()->timestamp);
  }
}

TEST_F(Resizes, ThatPublishTakeTheirOwnBufferAndNull) {
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

TEST_F(Resizes, ThatCannotBeDoneChangeNothing) {
  source->OutEp(9)->Resize(10);  // inactive
  source->OutEp(9)->Resize(10, nullptr, 1);
  EXPECT_EQ(0, source->Out(9)->samplesPerFrame);
  EXPECT_EQ(0, source->Out(9)->validSamples);
  source->Out(9)->validSamples = 7;
  EXPECT_EQ(0, source->OutEp(9)->Available());

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

TEST_F(Resizes, ThatPublishStayInsideTheBufferOfAWildDescriptor) {
  auto link = NewLink(zelk::BYTE, 1, 4);
  ASSERT_EQ(0, link->Connect(out, in));
  const std::vector<std::uint8_t> bytes(4 * 1000 * 4, 1);
  out->FB()->channels = 1000;
  out->FB()->format = zelk::S32_LE;
  out->Resize(4, bytes.data(), 1);  // 16000 bytes by the descriptor, 4 in the link
  EXPECT_EQ(4, out->FB()->samplesPerFrame);
}

}  // namespace
