// clocked: keeps frames to the clock, and counts those that are late. A source sends each when it
// is due, by the length of its link's frames, and stamps it with that time; a sink counts; a block
// between them passes the stamp on. Parameter 1 of a sink: frames, late ones (the next was due
// already), and how late the latest was, in microseconds.
#include <zelk/Block.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

using std::chrono::microseconds;
using Clock = std::chrono::steady_clock;

long long Now() {
  return std::chrono::duration_cast<microseconds>(Clock::now().time_since_epoch()).count();
}

long long Length(const zelk::FrameBuffer& fb) {
  return fb.rate > 0 ? fb.samplesPerFrame * 1'000'000LL / fb.rate : 0;
}

class Clocked : public zelk::Block {
 public:
  using Block::Block;

  int Start() override {
    newest = Now();
    return 0;
  }

  long ProcessFrame() override {
    if (isFirst) AwaitNext();
    for (const auto& [index, in] : ActiveInEps()) {
      if (in->Available() > 0) Take(*in->FB());
    }
    ClearActiveInEpsData();
    for (const auto& [index, out] : ActiveOutEps()) {
      out->FB()->validSamples = out->FB()->samplesPerFrame;
      out->FB()->timestamp = newest;
    }
    return 0;
  }

  int GetParameter(unsigned int, std::vector<std::string>& params) override {
    params = {std::to_string(frames), std::to_string(late), std::to_string(latest)};
    return 0;
  }

 private:
  void AwaitNext() {
    if (ActiveOutEps().empty()) return;
    newest += Length(*ActiveOutEps().begin()->second->FB());
    std::this_thread::sleep_until(Clock::time_point(microseconds(newest)));
  }

  // The same frame may come by several ways, and counts once.
  void Take(const zelk::FrameBuffer& fb) {
    if (fb.timestamp != newest) {
      newest = fb.timestamp;
      isLate = false;
      ++frames;
    }
    const long long lateness = Now() - fb.timestamp;
    latest = std::max(latest, lateness);
    if (lateness <= Length(fb) || isLate) return;
    isLate = true;
    ++late;
  }

  long long newest = 0;
  bool isLate = false;
  long frames = 0, late = 0;
  long long latest = 0;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>&) {
  return new Clocked(first, last);
}
