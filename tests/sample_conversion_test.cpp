// Every format at both ends of its range, between the steps, and there and back.
#include "common/Samples.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <ostream>
#include <random>
#include <vector>

namespace {

using namespace zelk;
using namespace zelk::blocks;

using Bytes = std::vector<unsigned char>;

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
constexpr double ENDLESS = std::numeric_limits<double>::infinity();

/// `values` in `format`, through float or double, written to an odd address.
template <class Real>
Bytes Encoded(SampleFormat format, const std::vector<double>& values) {
  const std::vector<Real> in(values.begin(), values.end());
  Bytes out(1 + values.size() * BytesPerSample(format) + 1, 0xEE);
  Encode(format, in.data(), out.data() + 1, in.size());
  EXPECT_EQ(0xEE, out.front());
  EXPECT_EQ(0xEE, out.back());
  return Bytes(out.begin() + 1, out.end() - 1);
}

template <class Real>
std::vector<Real> Decoded(SampleFormat format, const Bytes& bytes) {
  std::vector<Real> out(bytes.size() / BytesPerSample(format));
  Decode(format, bytes.data(), out.data(), out.size());
  return out;
}

struct Case {
  SampleFormat format;
  Bytes bytes;  // of -1, the largest value (a float: 10), 0.25, and the smallest step
};
void PrintTo(const Case& c, std::ostream* out) {
  *out << FormatToString(c.format);
}

class Format : public testing::TestWithParam<Case> {};

TEST_P(Format, KeepsBothEndsInItsOwnByteOrder) {
  const Case& c = GetParam();
  const double step = std::ldexp(1.0, 1 - 8 * static_cast<int>(BytesPerSample(c.format)));
  const std::vector<double> values = c.format < FLOAT_LE
                                         ? std::vector<double>{-1.0, 1 - step, 0.25, step}
                                         : std::vector<double>{-1.0, 10.0, 0.25, 0x1p-125};
  EXPECT_EQ(c.bytes, Encoded<double>(c.format, values));
  EXPECT_EQ(values, Decoded<double>(c.format, c.bytes));
  const std::vector<float> narrow(values.begin(), values.end());
  EXPECT_EQ(narrow, Decoded<float>(c.format, c.bytes));
}

INSTANTIATE_TEST_SUITE_P(
    All, Format,
    testing::Values(
        Case{BYTE, {0x80, 0x7F, 0x20, 0x01}}, Case{S16_LE, {0, 0x80, 0xFF, 0x7F, 0, 0x20, 1, 0}},
        Case{S16_BE, {0x80, 0, 0x7F, 0xFF, 0x20, 0, 0, 1}},
        Case{S24_3LE, {0, 0, 0x80, 0xFF, 0xFF, 0x7F, 0, 0, 0x20, 1, 0, 0}},
        Case{S24_3BE, {0x80, 0, 0, 0x7F, 0xFF, 0xFF, 0x20, 0, 0, 0, 0, 1}},
        Case{S32_LE, {0, 0, 0, 0x80, 0xFF, 0xFF, 0xFF, 0x7F, 0, 0, 0, 0x20, 1, 0, 0, 0}},
        Case{S32_BE, {0x80, 0, 0, 0, 0x7F, 0xFF, 0xFF, 0xFF, 0x20, 0, 0, 0, 0, 0, 0, 1}},
        Case{FLOAT_LE, {0, 0, 0x80, 0xBF, 0, 0, 0x20, 0x41, 0, 0, 0x80, 0x3E, 0, 0, 0, 1}},
        Case{FLOAT_BE, {0xBF, 0x80, 0, 0, 0x41, 0x20, 0, 0, 0x3E, 0x80, 0, 0, 1, 0, 0, 0}}));

class IntegerFormat : public testing::TestWithParam<SampleFormat> {};

TEST_P(IntegerFormat, ClipsToItsRangeAndMakesNoNumberSilence) {
  const SampleFormat format = GetParam();
  const double largest = 1 - std::ldexp(1.0, 1 - 8 * static_cast<int>(BytesPerSample(format)));
  const std::vector<double> wild = {1.0,     1.5,   1e30,     ENDLESS,
                                    -1.0001, -1e30, -ENDLESS, NOT_A_NUMBER};
  const std::vector<double> tame = {largest, largest, largest, largest, -1, -1, -1, 0};
  EXPECT_EQ(tame, Decoded<double>(format, Encoded<double>(format, wild)));
  EXPECT_EQ(tame, Decoded<double>(format, Encoded<float>(format, wild)));
}

TEST_P(IntegerFormat, RoundsToTheNearestStepAndTiesToEven) {
  const SampleFormat format = GetParam();
  const double step = std::ldexp(1.0, 1 - 8 * static_cast<int>(BytesPerSample(format)));
  std::vector<double> in = {0.49,  0.5,   0.51, 1.49, 1.5,   2.5,
                            -0.49, -0.51, -1.5, -2.5, 100.4, -100.6};
  std::vector<double> out = {0, 0, 1, 1, 2, 2, 0, -1, -2, -2, 100, -101};
  for (std::size_t i = 0; i < in.size(); ++i) {
    in[i] *= step;
    out[i] *= step;
  }
  EXPECT_EQ(out, Decoded<double>(format, Encoded<double>(format, in)));
  EXPECT_EQ(out, Decoded<double>(format, Encoded<float>(format, in)));
}

TEST_P(IntegerFormat, ReturnsEveryBitPatternThroughDoubleAndUpTo24BitsThroughFloat) {
  std::minstd_rand random(1);
  Bytes bytes(12 * 5003);  // an odd number of samples, for the tail of a vector loop
  for (auto& byte : bytes)
    byte = static_cast<unsigned char>(random());
  const auto wide = Decoded<double>(GetParam(), bytes);
  EXPECT_EQ(bytes, Encoded<double>(GetParam(), wide));
  if (BytesPerSample(GetParam()) == 4) return;
  const auto narrow = Decoded<float>(GetParam(), bytes);
  EXPECT_EQ(bytes, Encoded<float>(GetParam(), std::vector<double>(narrow.begin(), narrow.end())));
}

INSTANTIATE_TEST_SUITE_P(All, IntegerFormat,
                         testing::Values(BYTE, S16_LE, S16_BE, S24_3LE, S24_3BE, S32_LE, S32_BE));

TEST(SampleConversion, FloatsPassBeyondFullScaleAndAsNoNumber) {
  EXPECT_EQ((Bytes{0, 0, 0xC0, 0x7F}), Encoded<float>(FLOAT_LE, {NOT_A_NUMBER}));
  EXPECT_EQ((std::vector<float>{2.5F}), Decoded<float>(FLOAT_BE, {0x40, 0x20, 0, 0}));
}

TEST(SampleConversion, ConvertWidensExactlyAndNarrowsByRounding) {
  const Bytes s16 = {0x34, 0x12, 0x00, 0x80};
  Bytes s32(8);
  Convert(S16_LE, s16.data(), S32_BE, s32.data(), 2);
  EXPECT_EQ((Bytes{0x12, 0x34, 0, 0, 0x80, 0, 0, 0}), s32);
  const Bytes deep = {0x7F, 0xFF, 0xFF, 0xFF, 0x00, 0x01, 0x7F, 0xFF, 0x00, 0x01, 0x80, 0x01};
  Bytes shallow(6);
  Convert(S32_BE, deep.data(), S16_BE, shallow.data(), 3);
  EXPECT_EQ((Bytes{0x7F, 0xFF, 0x00, 0x01, 0x00, 0x02}), shallow);
}

// One sample at a time, by the definition: what the vectorised loops must come to, whatever the
// number of samples and wherever they lie.
double Value(SampleFormat format, const unsigned char* p) {
  const std::size_t bytes = BytesPerSample(format);
  const bool bigEndian =
      format == S16_BE || format == S24_3BE || format == S32_BE || format == FLOAT_BE;
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < bytes; ++i)
    word |= std::uint32_t{p[bigEndian ? bytes - 1 - i : i]} << (8 * (4 - bytes + i));
  if (format == FLOAT_LE || format == FLOAT_BE) {
    float number = 0;
    std::memcpy(&number, &word, 4);
    return double{number};
  }
  return static_cast<std::int32_t>(word) * 0x1p-31;
}

/// Samples of all sizes with the ends of the range among them, at an odd address.
Bytes Various(SampleFormat format, std::size_t count, unsigned int seed) {
  std::minstd_rand random(seed);
  std::vector<double> values(count);
  for (std::size_t i = 0; i < count; ++i)
    values[i] = i % 7 == 3 ? (random() % 2 == 0 ? -1.0 : 1.0)
                           : std::ldexp(static_cast<double>(random()), -31) - 0.3;
  Bytes bytes = {0};
  for (const unsigned char byte : Encoded<double>(format, values))
    bytes.push_back(byte);
  return bytes;
}

class Loops : public testing::TestWithParam<SampleFormat> {
 protected:
  const SampleFormat format = GetParam();
  const std::size_t unit = BytesPerSample(format);
};

TEST_P(Loops, ComeToTheSameForEveryLengthAndPair) {
  for (std::size_t count = 0; count <= 70; ++count) {
    const Bytes in = Various(format, count, static_cast<unsigned int>(count));
    for (std::uint32_t f = 0; f < SAMPLE_FORMATS; ++f) {
      const auto to = static_cast<SampleFormat>(f);
      std::vector<double> values;
      for (std::size_t i = 0; i < count; ++i)
        values.push_back(Value(format, &in[1 + i * unit]));
      const Bytes expected = Encoded<double>(to, values);
      Bytes out(1 + expected.size() + 1, 0xEE);
      Convert(format, &in[1], to, &out[1], count);
      ASSERT_EQ(0xEE, out.front());
      ASSERT_EQ(0xEE, out.back());
      ASSERT_EQ(expected, Bytes(out.begin() + 1, out.end() - 1))
          << count << " to " << FormatToString(to);
    }
  }
}

TEST_P(Loops, DecodeAddAndScaleByAFactor) {
  for (std::size_t count = 0; count <= 70; ++count) {
    const Bytes a = Various(format, count, 5);
    const Bytes b = Various(format, count, 6);
    std::vector<double> decoded(count), added(count, 0.25), sum(count), scaled;
    Decode(format, &a[1], decoded.data(), count, 0.5);
    AddTo(added.data(), format, &a[1], count, 0.5);
    Sum(format, &a[1], 0.5, &b[1], 0.125, sum.data(), count);
    for (std::size_t i = 0; i < count; ++i) {
      const double half = Value(format, &a[1 + i * unit]) / 2;
      ASSERT_EQ(half, decoded[i]) << count;
      ASSERT_EQ(0.25 + half, added[i]) << count;
      ASSERT_EQ(half + Value(format, &b[1 + i * unit]) / 8, sum[i]) << count;
      scaled.push_back(half);
    }
    Bytes out(1 + count * unit + 1, 0xEE);
    Scale(format, &a[1], &out[1], count, 0.5);
    ASSERT_EQ(0xEE, out.back());
    ASSERT_EQ(Encoded<double>(format, scaled), Bytes(out.begin() + 1, out.end() - 1)) << count;
  }
}

INSTANTIATE_TEST_SUITE_P(All, Loops,
                         testing::Values(BYTE, S16_LE, S16_BE, S32_LE, S32_BE, FLOAT_LE, FLOAT_BE,
                                         S24_3LE, S24_3BE));

TEST(SampleConversion, AFormatOutsideTheNineTouchesNothing) {
  const auto wild = static_cast<SampleFormat>(12);
  float value = 0.5F;
  unsigned char byte = 7;
  Decode(wild, &byte, &value, 1);
  Encode(wild, &value, &byte, 1);
  Convert(wild, &byte, wild, &byte, 1);
  Convert(wild, &byte, BYTE, &byte, 0);
  EXPECT_EQ(0.5F, value);
  EXPECT_EQ(7, byte);
}

}  // namespace
