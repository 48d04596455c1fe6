// mixer [DB]: up to 32 inputs of the same rate and channels, any formats, to one output.
//
// Parameter 1 is the master level in dB, 100 + n the level of input n, 200 + n its mute (0 or 1);
// all are reached without a click. The output is as long as the longest input, of which the others
// count as silence when they have ended. Inputs may come in frames of any lengths: what has no
// counterpart yet is queued, up to about two frames, and then left with its producer.
#include "common/Arguments.h"
#include "common/InputQueue.h"
#include "common/Level.h"
#include "common/Log.h"
#include "common/SampleClock.h"
#include "common/Samples.h"
#include "common/StockBlock.h"

#include <algorithm>
#include <climits>
#include <cmath>

namespace {

using namespace zelk;
using namespace zelk::blocks;

constexpr char LOG_TAG[] = "blocks/mixer";
constexpr double MAX_DB = 60;
constexpr std::size_t PIECE = InputQueue::PIECE;

struct Input {
  double db = 0;
  bool muted = false;
  Ramp level{1};
  InputQueue queue;

  double Target() const { return muted ? 0 : DbToLinear(db); }
};

class Mixer final : public StockBlock {
 public:
  Mixer(bool first, bool last, double initialDb)
      : StockBlock(LOG_TAG, first, last, MAX_EPS, 1), db(initialDb), master(DbToLinear(initialDb)) {
    parameters.Add({1, "master", "dB", SILENT_DB, MAX_DB, initialDb, [this] { return db; },
                    [this](double value) {
                      db = value;
                      return Move(master, DbToLinear(value));
                    }});
    for (unsigned int i = 0; i < MAX_EPS; ++i)
      AddParameters(i);
  }

  int Start() override {
    master.Jump(DbToLinear(db));
    for (Input& input : inputs)
      input.level.Jump(input.Target());
    return StockBlock::Start();
  }

  long ProcessFrame() override {
    const auto answer = end.Answer();
    if (answer && !end.GaveUp()) return *answer;
    const bool last = end.InputIsLast();
    const long samples = TakeFrames(last);
    if (!MakeRoom(samples)) return -20;
    if (wide)
      Mix<double>(samples);
    else
      Mix<float>(samples);
    for (const auto& [index, ep] : ActiveInEps())
      inputs[index].queue.Keep();
    const long long time = clock.Now(OutLink().rate);
    clock.Advance(samples);
    return end.Send(samples, time, last);
  }

  void Reset() override {
    for (Input& input : inputs)
      input.queue.Clear();
  }

 protected:
  int CheckInput(std::size_t index) override {
    inputs[index].queue.Begin(InLink(index));
    return CheckLinks("OnInEpLinked");
  }
  int CheckOutput(std::size_t) override { return CheckLinks("OnOutEpLinked"); }

 private:
  /// How many samples of all inputs can be mixed now.
  long TakeFrames(bool last) {
    long longest = 0;
    long shortest = LONG_MAX;
    bool timed = false;
    for (const auto& [index, ep] : ActiveInEps()) {
      InputQueue& queue = inputs[index].queue;
      const FrameBuffer frame = Frame(index);
      const long long time = TimeOf(frame.timestamp);
      if (frame.validSamples > 0 && time >= 0 && !timed) {
        clock.Start(std::max(0LL, time - Microseconds(queue.Kept(), frame.rate)));
        timed = true;
      }
      // A last frame is taken at once: its producers may have nothing left that calls them.
      const bool enough = queue.Kept() > 0 && queue.Kept() >= frame.validSamples;
      if (!enough || IsLastMark(frame.timestamp)) {
        queue.Push(frame);
        end.Take(index);
      }
      longest = std::max(longest, queue.Available());
      if (!end.Ended(index)) shortest = std::min(shortest, queue.Available());
    }
    return last ? longest : shortest;
  }

  template <class Real>
  void Mix(long samples) {
    Real scratch[PIECE];
    const unsigned int channels = OutLink().channels;
    unsigned char* to = Out().data;
    for (long left = samples; left > 0;) {
      const long n = std::min(left, static_cast<long>(PIECE / channels));
      const std::size_t count = static_cast<std::size_t>(n) * channels;
      Real* const sum = ToEncode(OutLink().format, to, scratch);
      bool fresh = true;
      for (const auto& [index, ep] : ActiveInEps()) {
        inputs[index].queue.AddTo(sum, fresh, n, inputs[index].level);
        fresh = false;
      }
      Apply(master, sum, n, channels);
      Encoded(OutLink().format, sum, to, count);
      to += count * BytesPerSample(OutLink().format);
      left -= n;
    }
  }

  void AddParameters(unsigned int i) {
    Input& input = inputs[i];
    parameters.Add({100 + i, "gain" + std::to_string(i), "dB", SILENT_DB, MAX_DB, 0,
                    [&input] { return input.db; },
                    [this, &input](double value) {
                      input.db = value;
                      return Move(input.level, input.Target());
                    }});
    parameters.Add({200 + i, "mute" + std::to_string(i), "-", 0, 1, 0,
                    [&input] { return input.muted ? 1.0 : 0.0; },
                    [this, &input](double value) {
                      input.muted = value >= 0.5;
                      return Move(input.level, input.Target());
                    }});
  }

  int Move(Ramp& ramp, double target) const {
    ramp.MoveTo(target, std::llround(RAMP_SECONDS * OutLink().rate));
    return 0;
  }

  int CheckLinks(const char* function) {
    wide = outEps[0].IsActive() && NeedsDouble(OutLink().format);
    for (const auto& [index, ep] : ActiveInEps()) {
      wide = wide || NeedsDouble(InLink(index).format);
      if (InLink(index).channels > PIECE)
        return Refuse(function, "more than " + std::to_string(PIECE) + " channels");
    }
    return CheckAlike(function);
  }

  double db;
  Ramp master;
  Input inputs[MAX_EPS];
  bool wide = false;
  SampleClock clock;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  const auto db = args.empty() ? 0 : ParseNumber(args[0], SILENT_DB, MAX_DB);
  if (!db || args.size() > 1) {
    LOG_E("mixer takes one number of dB from %g to %g, got %zu words, first \"%s\"", SILENT_DB,
          MAX_DB, args.size(), args[0].c_str());
    return nullptr;
  }
  return new Mixer(first, last, *db);
}
