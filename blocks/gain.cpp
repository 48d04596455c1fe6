// gain [DB]: one input to one output, louder or softer, from any format to any format.
//
// Parameter 1 is the gain in dB, reached without a click. Parameter 2 starts a fade to silence of
// that many seconds; one frame after its last samples were passed on, the route stops normally.
#include "common/Arguments.h"
#include "common/Level.h"
#include "common/Log.h"
#include "common/Samples.h"
#include "common/StockBlock.h"

#include <algorithm>
#include <cmath>

namespace {

using namespace zelk;
using namespace zelk::blocks;

constexpr char LOG_TAG[] = "blocks/gain";
constexpr std::size_t PIECE = 1024;  // numbers
constexpr double MAX_DB = 60;
constexpr double MAX_FADE_SECONDS = 3600;

class Gain final : public StockBlock {
 public:
  Gain(bool first, bool last, double initialDb)
      : StockBlock(LOG_TAG, first, last, 1, 1), db(initialDb), level(DbToLinear(initialDb)) {
    parameters.Add({1, "gain", "dB", SILENT_DB, MAX_DB, initialDb, [this] { return db; },
                    [this](double value) { return SetGain(value); }});
    parameters.Add({2, "fade-out", "s", 0, MAX_FADE_SECONDS, 0, [this] { return fadeSeconds; },
                    [this](double value) { return FadeOut(value); }});
  }

  int Start() override {
    fading = faded = false;
    fadeSeconds = 0;
    level.Jump(DbToLinear(db));
    return StockBlock::Start();
  }

  long ProcessFrame() override {
    if (faded) return FRAME_FADED_OUT;
    if (auto answer = end.Answer()) return *answer;

    long samples = Available();
    if (fading) samples = static_cast<long>(std::min<long long>(samples, level.Left()));
    if (!MakeRoom(samples)) return -20;
    const long long time = TimeOf(In().timestamp);
    if (!level.Moving() && level.Current() == 1)
      Convert(In().format, In().data, Out().format, Out().data, Count(samples));
    else if (!level.Moving() && In().format == Out().format)
      Scale(In().format, In().data, Out().data, Count(samples), level.Current());
    else if (NeedsDouble(In().format) || NeedsDouble(Out().format))
      Amplify(wide, samples);
    else
      Amplify(narrow, samples);

    faded = fading && !level.Moving();
    const bool last = end.InputIsLast() || faded;
    end.Take();
    return end.Send(samples, time, last);
  }

 protected:
  int CheckInput(std::size_t) override { return CheckBoth(); }
  int CheckOutput(std::size_t) override { return CheckBoth(); }

 private:
  std::size_t Count(long samples) const {
    return static_cast<std::size_t>(samples) * In().channels;
  }

  /// By way of numbers, in pieces that stay in the nearest cache.
  template <class Real>
  void Amplify(std::vector<Real>& piece, long samples) {
    const unsigned int channels = In().channels;
    const long most = std::max(1L, static_cast<long>(PIECE / channels));
    piece.resize(static_cast<std::size_t>(most) * channels);
    const unsigned char* from = In().data;
    unsigned char* to = Out().data;
    for (long n; samples > 0; samples -= n) {
      n = std::min(samples, most);
      const std::size_t count = Count(n);
      if (level.Moving()) {
        Decode(In().format, from, piece.data(), count);
        Apply(level, piece.data(), n, channels);
      } else {
        Decode(In().format, from, piece.data(), count, static_cast<Real>(level.Current()));
      }
      Encode(Out().format, piece.data(), to, count);
      from += count * BytesPerSample(In().format);
      to += count * BytesPerSample(Out().format);
    }
  }

  int SetGain(double value) {
    if (fading) return -20;
    db = value;
    level.MoveTo(DbToLinear(value), Samples(RAMP_SECONDS));
    return 0;
  }

  int FadeOut(double seconds) {
    if (fading || !inEps[0].IsActive()) return -20;
    fading = true;
    fadeSeconds = seconds;
    level.MoveTo(0, std::max(1LL, Samples(seconds)));
    return 0;
  }

  long long Samples(double seconds) const { return std::llround(seconds * In().rate); }

  int CheckBoth() const {
    const FrameBuffer& in = *inEps[0].FB();
    const FrameBuffer& out = *outEps[0].FB();
    if (!inEps[0].IsActive() || !outEps[0].IsActive()) return 0;
    if (in.rate == out.rate && in.channels == out.channels) return 0;
    return Refuse(__func__, "input is " + Describe(in) + ", output " + Describe(out) +
                                ": rate and channels must be the same");
  }

  double db;
  double fadeSeconds = 0;
  bool fading = false;  // towards the end of the route
  bool faded = false;   // and its last samples were passed on
  Ramp level;
  std::vector<float> narrow;
  std::vector<double> wide;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  const auto db = args.empty() ? 0 : ParseNumber(args[0], SILENT_DB, MAX_DB);
  if (!db || args.size() > 1) {
    LOG_E("gain takes one number of dB from %g to %g, got %zu words, first \"%s\"", SILENT_DB,
          MAX_DB, args.size(), args[0].c_str());
    return nullptr;
  }
  return new Gain(first, last, *db);
}
