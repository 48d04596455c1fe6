// worker [MICROSECONDS]: a block that works on any graph. A source makes a full frame at that pace;
// every other block takes its inputs and fills its outputs. All parameters are one text.
#include <zelk/Block.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace {

// Lets frames end in a graph with a loop: after some calls as many as a wave can have hand on
// nothing. Per route, that is, per thread.
bool Rests() {
  constexpr int LIVELY = 400, WAVE = 100;
  static thread_local int calls = 0;
  calls = (calls + 1) % (LIVELY + WAVE);
  return calls >= LIVELY;
}

class Worker : public zelk::Block {
 public:
  Worker(bool first, bool last, useconds_t microseconds) : Block(first, last), pace(microseconds) {}

  long ProcessFrame() override {
    if (isFirst && pace > 0) usleep(pace);
    for (const auto& [index, in] : ActiveInEps()) {
      if (in->Available() > 0) sum = static_cast<unsigned char>(sum + in->FB()->data[0]);
    }
    ClearActiveInEpsData();
    for (const auto& [index, out] : ActiveOutEps()) {
      zelk::FrameBuffer& fb = *out->FB();
      fb.validSamples = fb.samplesPerFrame;
      fb.timestamp = ++time;
      if (out->Available() > 0) fb.data[0] = ++sum;
    }
    return ActiveOutEps().empty() || Rests() ? FRAME_DONE_WITHOUT_OUTPUT : 0;
  }

  int SetParameter(unsigned int, const std::vector<std::string>& params) override {
    text = params.empty() ? "" : params[0];
    return 0;
  }
  int GetParameter(unsigned int, std::vector<std::string>& params) override {
    params.assign(1, text);
    return 0;
  }

 private:
  const useconds_t pace;
  std::string text;
  unsigned char sum = 0;
  long long time = 0;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  const long pace = args.empty() ? 0 : std::strtol(args[0].c_str(), nullptr, 10);
  return new Worker(first, last, static_cast<useconds_t>(std::clamp(pace, 0L, 100'000L)));
}
