// bench_source: fills every output's frame as soon as the host opens its gate.
#include <zelk/Block.h>

#include "Gate.h"

namespace {

class Source final : public zelk::Block {
 public:
  using Block::Block;

  int ioctl(unsigned int command, void* arg) override {
    if (command != bench::SET_GATE) return -20;
    gate = static_cast<bench::Gate*>(arg);
    return 0;
  }

  long ProcessFrame() override {
    if (gate == nullptr || !gate->Pass()) return FRAME_FADED_OUT;
    time += 10'000;
    for (zelk::OutputEndpoint& ep : outEps) {
      if (!ep.IsActive()) break;
      ep.FB()->validSamples = ep.FB()->samplesPerFrame;
      ep.FB()->timestamp = time;
    }
    return 0;
  }

 private:
  bench::Gate* gate = nullptr;
  long long time = 0;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>&) {
  return new Source(first, last);
}
