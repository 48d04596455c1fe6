// validate-probe: stands for the blocks around the one that zelk-validate looks at. Of no other
// use.
#include "Probe.h"

namespace {

using validate::ProbeHooks;

class Probe final : public zelk::Block {
 public:
  using Block::Block;

  int ioctl(unsigned int cmd, void* arg) override {
    if (cmd != validate::IOCTL_BIND_PROBE) return -20;
    hooks = static_cast<ProbeHooks*>(arg);
    return 0;
  }
  int OnInEpLinked(std::size_t) override { return Refuses() ? -20 : 0; }
  int OnOutEpLinked(std::size_t) override { return Refuses() ? -20 : 0; }
  long ProcessFrame() override {
    if (hooks && hooks->frame) return hooks->frame(*this);
    return FRAME_DONE_WITHOUT_OUTPUT;
  }
  int SetParameter(unsigned int, const std::vector<std::string>&) override {
    if (hooks && hooks->call) hooks->call();
    return 0;
  }

 private:
  bool Refuses() const { return hooks && hooks->refusesLinks; }

  ProbeHooks* hooks = nullptr;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>&) {
  return new Probe(first, last);
}
