// meter: passes its input on and measures its loudness as EBU R 128 says.
//
// Parameters 1 to 5 are read-only: momentary, short-term and integrated loudness, loudness range,
// true peak. They stay readable when the route has stopped; a start after the end of the input
// begins anew. Channels are taken as left, right, centre, low frequencies, two surrounds; quad as
// left, right and two surrounds; more are not measured.
#include "common/Level.h"
#include "common/Log.h"
#include "common/PassThrough.h"
#include "common/Samples.h"

#include <ebur128.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace {

using namespace zelk;
using namespace zelk::blocks;

constexpr char LOG_TAG[] = "blocks/meter";

// A histogram keeps loudness of any length of time in a fixed space.
constexpr int MODE = EBUR128_MODE_M | EBUR128_MODE_S | EBUR128_MODE_I | EBUR128_MODE_LRA |
                     EBUR128_MODE_TRUE_PEAK | EBUR128_MODE_HISTOGRAM;
// NaN and what is louder would stay in the filters for ever.
constexpr float LOUDEST = 1000;

struct Destroy {
  void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
};

class Meter final : public PassThrough {
 public:
  Meter(bool first, bool last) : PassThrough(LOG_TAG, first, last, 1) {
    AddLoudness(1, "momentary", "LUFS", ebur128_loudness_momentary);
    AddLoudness(2, "short-term", "LUFS", ebur128_loudness_shortterm);
    AddLoudness(3, "integrated", "LUFS", ebur128_loudness_global);
    AddLoudness(4, "range", "LU", ebur128_loudness_range);
    parameters.Add(
        {5, "true-peak", "dBTP", SILENT_DB, 60, SILENT_DB, [this] { return TruePeak(); }, {}});
  }

  int Start() override {
    if (ended && Begin() < 0) return -20;
    return PassThrough::Start();
  }

 protected:
  int CheckInput(std::size_t index) override {
    const int ret = PassThrough::CheckInput(index);
    return ret < 0 ? ret : Begin();
  }

  void Observe(const FrameBuffer& frame) override {
    ended = end.InputIsLast();
    const std::size_t samples = static_cast<std::size_t>(frame.validSamples);
    for (std::size_t done = 0; done < samples;) {
      const std::size_t n = std::min(samples - done, std::size(piece) / frame.channels);
      const std::size_t count = n * frame.channels;
      Decode(frame.format, frame.data + done * frame.channels * BytesPerSample(frame.format), piece,
             count);
      for (std::size_t i = 0; i < count; ++i)
        piece[i] = std::fabs(piece[i]) <= LOUDEST ? piece[i] : 0;
      ebur128_add_frames_float(state.get(), piece, n);
      done += n;
    }
  }

 private:
  int Begin() {
    state.reset(ebur128_init(InLink().channels, InLink().rate, MODE));
    ended = false;
    if (state) return 0;
    return Refuse("OnInEpLinked", "loudness of " + Describe(InLink()) + " cannot be measured");
  }

  void AddLoudness(unsigned int id, const char* what, const char* unit,
                   int (*measure)(ebur128_state*, double*)) {
    const double silent = id == 4 ? 0 : SILENT_DB;
    const auto get = [this, measure, silent] {
      double value = silent;
      if (!state || measure(state.get(), &value) != EBUR128_SUCCESS) return silent;
      return std::max(silent, value);
    };
    parameters.Add({id, what, unit, silent, 60, silent, get, {}});
  }

  double TruePeak() const {
    double peak = 0;
    for (unsigned int c = 0; state && c < state->channels; ++c) {
      double value = 0;
      if (ebur128_true_peak(state.get(), c, &value) == EBUR128_SUCCESS)
        peak = std::max(peak, value);
    }
    return LinearToDb(peak);
  }

  std::unique_ptr<ebur128_state, Destroy> state;
  bool ended = false;
  float piece[1024];  // more channels than can be measured
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  if (!args.empty()) {
    LOG_E("meter takes no words, got %zu, first \"%s\"", args.size(), args[0].c_str());
    return nullptr;
  }
  return new Meter(first, last);
}
