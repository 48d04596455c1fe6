// convert [dither]: one input to one output of the same rate, from any format and channels to any.
//
// Parameter 1 is the channel matrix: for each output channel the factors of all input channels;
// common/ChannelMatrix.h says what it is until one is set. Parameter 2 (0 or 1) adds triangular
// noise of one step where an integer format loses precision.
#include "common/Arguments.h"
#include "common/ChannelMatrix.h"
#include "common/InPlace.h"
#include "common/Log.h"
#include "common/Noise.h"
#include "common/Samples.h"
#include "common/StockBlock.h"

#include <algorithm>
#include <cmath>

namespace {

using namespace zelk;
using namespace zelk::blocks;

constexpr char LOG_TAG[] = "blocks/convert";
constexpr std::size_t PIECE = 1024;  // numbers converted at once: they stay in the nearest cache
constexpr unsigned int MAX_CHANNELS = 64;
constexpr double MAX_FACTOR = 1000;

/// Steps from zero to full scale; 0 for floating point.
double Steps(SampleFormat format) {
  if (format == FLOAT_LE || format == FLOAT_BE) return 0;
  return std::ldexp(1.0, static_cast<int>(8 * BytesPerSample(format)) - 1);
}

class Converter final : public StockBlock {
 public:
  Converter(bool first, bool last, bool withDither)
      : StockBlock(LOG_TAG, first, last, 1, 1), dither(withDither) {
    parameters.Add(
        {1, "matrix", "-", -MAX_FACTOR, MAX_FACTOR, 0, {}, {}, [this] { return Words(); }});
    parameters.Add({2, "dither", "-", 0, 1, withDither ? 1.0 : 0.0,
                    [this] { return dither ? 1.0 : 0.0; },
                    [this](double value) { return dither = value >= 0.5, 0; }});
  }

  int SetParameter(unsigned int paramId, const std::vector<std::string>& words) override {
    return paramId == 1 ? SetMatrix(words) : StockBlock::SetParameter(paramId, words);
  }

  int Start() override {
    matrix.Settle();
    return StockBlock::Start();
  }

  long ProcessFrame() override {
    if (auto answer = end.Answer()) return *answer;
    const FrameBuffer in = Frame();
    if (!MakeRoom(in.validSamples)) return -20;
    const double from = Steps(in.format);
    const double to = Steps(Out().format);
    const bool same = matrix.Passes();
    step = dither && to != 0 && (!same || from == 0 || from > to) ? 1 / to : 0;
    if (same && step == 0)
      Convert(in.format, in.data, Out().format, Out().data,
              static_cast<std::size_t>(in.validSamples) * in.channels);
    else if (NeedsDouble(in.format) || NeedsDouble(Out().format) || (step != 0 && to > 32768))
      Run<double>(in);
    else
      Run<float>(in);
    const bool last = end.InputIsLast();
    end.Take();
    return end.Send(in.validSamples, TimeOf(in.timestamp), last);
  }

 protected:
  int CheckInput(std::size_t) override { return CheckBoth("OnInEpLinked"); }
  int CheckOutput(std::size_t) override { return CheckBoth("OnOutEpLinked"); }

 private:
  template <class Real>
  void Run(const FrameBuffer& in) {
    Real scratch[PIECE];
    Real scratch2[PIECE];
    const unsigned int outs = Out().channels;
    const bool same = matrix.Passes();
    const long most = static_cast<long>(PIECE / std::max(in.channels, outs));
    const unsigned char* from = in.data;
    unsigned char* to = Out().data;
    for (long left = in.validSamples; left > 0;) {
      const std::size_t n = static_cast<std::size_t>(std::min(left, most));
      Real* const numbers = ToEncode(Out().format, to, scratch2);
      if (same)
        Decode(in.format, from, numbers, n * in.channels);
      else
        matrix.Multiply(Decoded(in.format, from, scratch, n * in.channels), numbers, n);
      if (step != 0) noise.AddTo(numbers, step, n * outs);
      Encoded(Out().format, numbers, to, n * outs);
      from += n * in.channels * BytesPerSample(in.format);
      to += n * outs * BytesPerSample(Out().format);
      left -= static_cast<long>(n);
    }
  }

  int SetMatrix(const std::vector<std::string>& words) {
    const std::size_t size = matrix.Factors().size();
    if (size == 0) return Refuse("SetParameter", "the matrix can be set when both links are there");
    std::vector<double> factors;
    for (const auto& word : words)
      if (const auto factor = ParseNumber(word, -MAX_FACTOR, MAX_FACTOR))
        factors.push_back(*factor);
    if (words.size() != size || factors.size() != size)
      return Refuse("SetParameter", "the matrix takes " + std::to_string(size) +
                                        " numbers from -1000 to 1000, output by output");
    matrix.MoveTo(factors, std::llround(RAMP_SECONDS * OutLink().rate));
    return 0;
  }

  std::vector<std::string> Words() const {
    std::vector<std::string> words;
    for (const double factor : matrix.Factors())
      words.push_back(FormatNumber(factor));
    return words;
  }

  int CheckBoth(const char* function) {
    if (!inEps[0].IsActive() || !outEps[0].IsActive()) return 0;
    const unsigned int ins = InLink().channels;
    const unsigned int outs = OutLink().channels;
    if (ins > MAX_CHANNELS || outs > MAX_CHANNELS)
      return Refuse(function, "more than " + std::to_string(MAX_CHANNELS) + " channels");
    matrix.Begin(ins, outs);
    return CheckAlike(function, SAME_RATE);
  }

  bool dither;
  double step = 0;  // of the output's format; 0 without dither
  TriangularNoise noise;
  ChannelMatrix matrix;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  if (args.size() > 1 || (args.size() == 1 && args[0] != "dither")) {
    LOG_E("convert takes dither or nothing, got %zu words, first \"%s\"", args.size(),
          args[0].c_str());
    return nullptr;
  }
  return new Converter(first, last, !args.empty());
}
