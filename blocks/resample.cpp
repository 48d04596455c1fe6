// resample [quick|hq|vhq]: one input to one output of the same channels, from any rate and format
// to any.
//
// The whole input gives round(samples * output rate / input rate) samples, none of them late: the
// filter's delay is cut off at the beginning and made up for at the end. What the filter gives in
// bursts is sent on evenly, so that a join with another branch finds a frame in every frame.
#include "common/Log.h"
#include "common/RateFilter.h"
#include "common/SampleClock.h"
#include "common/Samples.h"
#include "common/StockBlock.h"

#include <algorithm>
#include <atomic>

namespace {

using namespace zelk;
using namespace zelk::blocks;

constexpr char LOG_TAG[] = "blocks/resample";
constexpr unsigned int MAX_CHANNELS = 256;
constexpr unsigned int MAX_RATIO = 256;

class Resample final : public StockBlock {
 public:
  Resample(bool first, bool last, unsigned long soxrRecipe)
      : StockBlock(LOG_TAG, first, last, 1, 1), recipe(soxrRecipe) {}

  int Start() override {
    if (ended) Restart();
    return StockBlock::Start();
  }

  long ProcessFrame() override {
    if (auto answer = end.Answer()) return *answer;
    const FrameBuffer in = Frame();
    const bool last = end.InputIsLast();
    if (filter.Fed() == 0) clock.Start(TimeOf(in.timestamp));
    const long long due = filter.Expected(filter.Fed() + in.validSamples) -  //
                          filter.Expected(filter.Fed());
    if (!Feed(in) || (last && !filter.Drain())) return Refuse(__func__, "the filter failed");
    const long ready = static_cast<long>(filter.Ready());
    const long samples = last ? ready : std::min(ready, static_cast<long>(due));
    if (!MakeRoom(samples)) return -20;
    Encode(Out().format, filter.Take(static_cast<std::size_t>(samples)), Out().data,
           static_cast<std::size_t>(samples) * in.channels);
    const long long time = clock.Now(OutLink().rate);
    clock.Advance(samples);
    delay.store(static_cast<long>(filter.Expected(filter.Fed()) - filter.Taken()),
                std::memory_order_relaxed);
    ended = last;
    end.Take();
    return end.Send(samples, time, last);
  }

  void Reset() override { Restart(); }

  long Delay() const override { return delay.load(std::memory_order_relaxed); }

 protected:
  int CheckInput(std::size_t) override { return CheckBoth("OnInEpLinked"); }
  int CheckOutput(std::size_t) override { return CheckBoth("OnOutEpLinked"); }

 private:
  bool Feed(const FrameBuffer& in) {
    const std::size_t samples = static_cast<std::size_t>(in.validSamples);
    const std::size_t count = samples * in.channels;
    if (decoded.size() < count) decoded.resize(count);
    Decode(in.format, in.data, decoded.data(), count);
    return filter.Feed(decoded.data(), samples);
  }

  void Restart() {
    filter.Restart();
    ended = false;
    clock.Start(-1);
  }

  int CheckBoth(const char* function) {
    if (!inEps[0].IsActive() || !outEps[0].IsActive()) return 0;
    const int ret = CheckAlike(function, SAME_CHANNELS);
    if (ret < 0) return ret;
    const unsigned int from = InLink().rate;
    const unsigned int to = OutLink().rate;
    if (from / MAX_RATIO > to || to / MAX_RATIO > from || InLink().channels > MAX_CHANNELS)
      return Refuse(function,
                    "cannot resample " + Describe(InLink()) + " to " + Describe(OutLink()));
    ended = false;
    const std::string error = filter.Begin(from, to, InLink().channels, recipe);
    return error.empty() ? 0 : Refuse(function, "cannot resample: " + error);
  }

  const unsigned long recipe;
  RateFilter filter;
  SampleClock clock;
  bool ended = false;
  std::vector<double> decoded;
  std::atomic<long> delay = 0;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  const std::string quality = args.empty() ? "hq" : args[0];
  if (args.size() > 1 || (quality != "quick" && quality != "hq" && quality != "vhq")) {
    LOG_E("resample takes quick, hq or vhq, got %zu words, first \"%s\"", args.size(),
          quality.c_str());
    return nullptr;
  }
  return new Resample(first, last,
                      quality == "quick" ? SOXR_QQ
                      : quality == "hq"  ? SOXR_HQ
                                         : SOXR_VHQ);
}
