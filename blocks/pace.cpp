// pace: passes frames on no faster than their samples last, so that a route of files keeps to the
// clock.
//
// Deadlines are counted in samples from the first frame after a start, so that waits do not add up
// to a drift; after a delay it catches up. It waits for one frame at most.
#include "common/Log.h"
#include "common/PassThrough.h"
#include "common/SampleClock.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

using namespace zelk;
using namespace zelk::blocks;
using std::chrono::steady_clock;

constexpr char LOG_TAG[] = "blocks/pace";

class Pace final : public PassThrough {
 public:
  Pace(bool first, bool last) : PassThrough(LOG_TAG, first, last, 1) {
    parameters.Add({1, "late", "s", 0, 1e9, 0, [this] { return late; }, {}});
    parameters.Add({2, "latest", "s", 0, 1e9, 0, [this] { return latest; }, {}});
  }

  int Start() override {
    clock = {};
    late = latest = 0;
    return PassThrough::Start();
  }

 protected:
  void Observe(const FrameBuffer& frame) override {
    if (!clock.Running()) {
      clock.Start(0);
      begin = steady_clock::now();
    }
    const auto due = begin + std::chrono::microseconds(clock.Now(frame.rate));
    std::this_thread::sleep_until(due);
    late = std::chrono::duration<double>(steady_clock::now() - due).count();
    latest = std::max(late, latest);
    clock.Advance(frame.validSamples);
  }

 private:
  SampleClock clock;
  steady_clock::time_point begin;
  double late = 0;  // how long after its time the newest frame was passed on
  double latest = 0;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  if (!args.empty()) {
    LOG_E("pace takes no words, got %zu, first \"%s\"", args.size(), args[0].c_str());
    return nullptr;
  }
  return new Pace(first, last);
}
