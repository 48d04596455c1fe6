// fifosrc [block|pad]: a source that takes the samples which a host hands to a FIFO.
//
// The host binds the FIFO and may announce the total number of samples (zelk/Ioctl.h). With "block"
// (the default) the FIFO paces the route; with "pad" missing samples are silence and something
// else has to pace it. The input ends with the announced number, or when the FIFO is shut down.
#include "common/Log.h"
#include "common/SampleClock.h"
#include "common/StockBlock.h"

#include <zelk/FIFO.h>
#include <zelk/Ioctl.h>

#include <algorithm>
#include <atomic>

namespace {

using namespace zelk;
using namespace zelk::blocks;

constexpr char LOG_TAG[] = "blocks/fifosrc";

class FifoSource final : public StockBlock {
 public:
  FifoSource(bool first, bool last, bool waits)
      : StockBlock(LOG_TAG, first, last, 0, 1), block(waits) {}

  int ioctl(unsigned int cmd, void* arg) override {
    if (cmd == IOCTL_BIND_FIFO) {
      fifo = static_cast<FIFO*>(arg);
      return 0;
    }
    if (cmd == IOCTL_TOTAL_SAMPLES) {
      total = arg ? *static_cast<const long long*>(arg) : -1;
      return 0;
    }
    return StockBlock::ioctl(cmd, arg);
  }

  int Start() override {
    if (!fifo) return Refuse(__func__, "no FIFO is bound");
    clock.Start(0);
    return StockBlock::Start();
  }

  long ProcessFrame() override {
    if (auto answer = end.SourceAnswer()) return *answer;
    FIFO* const from = fifo;
    if (!from) return end.Send(0, -1, true);
    const long long left = total < 0 ? Out().samplesPerFrame : total - clock.Samples();
    const long samples = static_cast<long>(std::clamp<long long>(left, 0, Out().samplesPerFrame));

    // A FIFO without times leaves the time alone.
    long long time = -1;
    const bool ended = from->Produce(Out().data, samples, block, &time) < 0;
    if (time < 0) time = clock.Now(Out().rate);
    if (ended) return end.Send(0, time, true);
    clock.Advance(samples);
    const long long announced = total;
    return end.Send(samples, time, announced >= 0 && clock.Samples() >= announced);
  }

 private:
  const bool block;
  std::atomic<FIFO*> fifo = nullptr;  // set by the host's thread
  std::atomic<long long> total = -1;  // likewise
  SampleClock clock;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  const std::string mode = args.empty() ? "block" : args[0];
  if (args.size() > 1 || (mode != "block" && mode != "pad")) {
    LOG_E("fifosrc takes block or pad, got %zu words, first \"%s\"", args.size(), mode.c_str());
    return nullptr;
  }
  return new FifoSource(first, last, mode == "block");
}
