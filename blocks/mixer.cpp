// mixer [DB]: up to 32 inputs of the same rate and channels, any formats, to one output.
//
// Parameter 1 is the master level in dB, 100 + n the level of input n, 200 + n its mute (0 or 1);
// all are reached without a click. The output is as long as the longest input, of which the others
// count as silence when they have ended. Inputs may come in frames of any lengths: what has no
// counterpart yet is queued, up to about two frames, and then left with its producer.
#include "common/Arguments.h"
#include "common/Log.h"
#include "common/Mixdown.h"
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

class Mixer final : public StockBlock {
 public:
  Mixer(bool first, bool last, double initialDb) : StockBlock(LOG_TAG, first, last, MAX_EPS, 1) {
    master.db = initialDb;
    AddLevel(1, "master", master);
    for (unsigned int i = 0; i < MAX_EPS; ++i) {
      AddLevel(100 + i, "gain" + std::to_string(i), inputs[i].fader);
      AddMute(200 + i, "mute" + std::to_string(i), inputs[i].fader);
    }
  }

  int Start() override {
    master.Settle();
    for (MixInput& input : inputs)
      input.fader.Settle();
    return StockBlock::Start();
  }

  long ProcessFrame() override {
    const auto answer = end.Answer();
    if (answer && !end.GaveUp()) return *answer;
    const bool last = end.InputIsLast();
    const long samples = TakeFrames(last);
    if (!MakeRoom(samples)) return -20;
    if (wide)
      Mixdown<double>(playing, master, Out(), samples);
    else
      Mixdown<float>(playing, master, Out(), samples);
    for (MixInput* input : playing)
      input->queue.Keep();
    const long long time = clock.Now(OutLink().rate);
    clock.Advance(samples);
    return end.Send(samples, time, last);
  }

  void Reset() override {
    for (MixInput& input : inputs)
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
    playing.clear();
    for (const auto& [index, ep] : ActiveInEps()) {
      InputQueue& queue = inputs[index].queue;
      playing.push_back(&inputs[index]);
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

  void AddLevel(unsigned int id, const std::string& what, Fader& fader) {
    const auto set = [this, &fader](double value) {
      fader.db = value;
      return Move(fader);
    };
    parameters.Add(
        {id, what, "dB", SILENT_DB, MAX_DB, fader.db, [&fader] { return fader.db; }, set});
  }

  void AddMute(unsigned int id, const std::string& what, Fader& fader) {
    const auto set = [this, &fader](double value) {
      fader.muted = value >= 0.5;
      return Move(fader);
    };
    parameters.Add({id, what, "-", 0, 1, 0, [&fader] { return fader.muted ? 1.0 : 0.0; }, set});
  }

  int Move(Fader& fader) const {
    fader.level.MoveTo(fader.Target(), std::llround(RAMP_SECONDS * OutLink().rate));
    return 0;
  }

  int CheckLinks(const char* function) {
    wide = outEps[0].IsActive() && NeedsDouble(OutLink().format);
    for (const auto& [index, ep] : ActiveInEps()) {
      wide = wide || NeedsDouble(InLink(index).format);
      if (InLink(index).channels > MIX_CHANNELS)
        return Refuse(function, "more than " + std::to_string(MIX_CHANNELS) + " channels");
    }
    return CheckAlike(function);
  }

  Fader master;
  MixInput inputs[MAX_EPS];
  std::vector<MixInput*> playing;  // the linked ones
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
