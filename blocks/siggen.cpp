// siggen sine|noise|impulse|silence [HZ [DBFS [SECONDS]]]: a source of test signals.
//
// HZ is the sine's frequency (440 unless given) or the impulses per second (1); DBFS is the peak
// level (-20). Without SECONDS, or with 0, it never ends. All channels carry the same.
#include "common/Arguments.h"
#include "common/Level.h"
#include "common/Log.h"
#include "common/SampleClock.h"
#include "common/Samples.h"
#include "common/StockBlock.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace {

using namespace zelk;
using namespace zelk::blocks;

constexpr char LOG_TAG[] = "blocks/siggen";
constexpr double MAX_HZ = 1'000'000;
constexpr double MAX_SECONDS = 1e9;
// So that an impulse falls on its sample although the sum of phase steps is a little off.
constexpr double ROUNDING = 1e-9;

enum class Signal { SINE, NOISE, IMPULSE, SILENCE };

struct Settings {
  Signal signal;
  double hz, dbfs = -20;
  double seconds = 0;
};

class Siggen final : public StockBlock {
 public:
  Siggen(bool first, bool last, const Settings& given)
      : StockBlock(LOG_TAG, first, last, 0, 1),
        settings(given),
        hz(given.hz),
        dbfs(given.dbfs),
        level(DbToLinear(given.dbfs)) {
    parameters.Add({1, "frequency", "Hz", 0, MAX_HZ, settings.hz, [this] { return hz; },
                    [this](double value) { return hz = value, 0; }});
    parameters.Add({2, "level", "dBFS", SILENT_DB, 0, settings.dbfs, [this] { return dbfs; },
                    [this](double value) {
                      level.MoveTo(DbToLinear(dbfs = value),
                                   std::llround(RAMP_SECONDS * Out().rate));
                      return 0;
                    }});
  }

  /// Begins the signal anew after it came to its end; a route that was stopped goes on.
  int Start() override {
    if (!clock.Running() || Left() == 0) {
      clock.Start(0);
      phase = 0;
      begun = false;
      noise = 1;
    }
    return StockBlock::Start();
  }

  long ProcessFrame() override {
    if (auto answer = end.SourceAnswer()) return *answer;
    const long samples = static_cast<long>(std::min<long long>(Out().samplesPerFrame, Left()));
    const long long time = clock.Now(Out().rate);
    const std::size_t count = static_cast<std::size_t>(samples) * Out().channels;
    if (scratch.size() < count) scratch.resize(count);
    for (long i = 0; i < samples; ++i)
      std::fill_n(&scratch[static_cast<std::size_t>(i) * Out().channels], Out().channels, Next());
    Apply(level, scratch.data(), samples, Out().channels);
    Encode(Out().format, scratch.data(), Out().data, count);
    clock.Advance(samples);
    return end.Send(samples, time, Left() == 0);
  }

 private:
  /// Samples to come; a signal without an end has more than any frame.
  long long Left() const {
    if (settings.seconds <= 0) return INT64_MAX;
    return std::max(0LL, std::llround(settings.seconds * Out().rate) - clock.Samples());
  }

  double Next() {
    const double step = hz / Out().rate;
    double value = 0;
    switch (settings.signal) {
      case Signal::SINE:
        value = std::sin(2 * std::numbers::pi * phase);
        break;
      case Signal::NOISE:
        value = White();
        break;
      case Signal::IMPULSE:
        value = phase < step - ROUNDING || !begun;
        break;
      case Signal::SILENCE:
        break;
    }
    begun = true;
    phase += step;
    phase -= std::floor(phase + ROUNDING);
    return value;
  }

  /// Uniform in ±1, the same sequence in every run (xorshift).
  double White() {
    noise ^= noise << 13;
    noise ^= noise >> 7;
    noise ^= noise << 17;
    return static_cast<double>(static_cast<std::int64_t>(noise)) * 0x1p-63;
  }

  const Settings settings;
  double hz;
  double dbfs;
  Ramp level;
  double phase = 0;  // in periods
  bool begun = false;
  std::uint64_t noise = 1;
  SampleClock clock;
  std::vector<double> scratch;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  static constexpr const char* SIGNALS[] = {"sine", "noise", "impulse", "silence"};
  const auto signal =
      std::find(std::begin(SIGNALS), std::end(SIGNALS), args.empty() ? "" : args[0]);
  if (signal == std::end(SIGNALS) || args.size() > 4) {
    LOG_E("siggen takes sine, noise, impulse or silence, then HZ, DBFS and SECONDS");
    return nullptr;
  }
  Settings settings{static_cast<Signal>(signal - SIGNALS), *signal == SIGNALS[2] ? 1.0 : 440.0};
  const auto number = [&args](std::size_t i, const char* what, double min, double max, double& to) {
    if (i >= args.size()) return true;
    const auto value = ParseNumber(args[i], min, max);
    to = value.value_or(to);
    if (!value) BLOCK_LOG_AS('E', "CreateBlock", "%s is a number from %g to %g", what, min, max);
    return value.has_value();
  };
  if (!number(1, "HZ", 0, MAX_HZ, settings.hz) || !number(2, "DBFS", SILENT_DB, 0, settings.dbfs) ||
      !number(3, "SECONDS", 0, MAX_SECONDS, settings.seconds))
    return nullptr;
  return new Siggen(first, last, settings);
}
