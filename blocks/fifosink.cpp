// fifosink [block|drop]: a sink that hands its samples to a FIFO, from which a host takes them.
//
// The host binds the FIFO (zelk/Ioctl.h). With "block" (the default) the FIFO paces the route; with
// "drop" a FIFO that is full loses its oldest samples. A FIFO that is shut down fails the frame.
#include "common/Log.h"
#include "common/StockBlock.h"

#include <zelk/FIFO.h>
#include <zelk/Ioctl.h>

#include <atomic>

namespace {

using namespace zelk;
using namespace zelk::blocks;

constexpr char LOG_TAG[] = "blocks/fifosink";

class FifoSink final : public StockBlock {
 public:
  FifoSink(bool first, bool last, bool waits)
      : StockBlock(LOG_TAG, first, last, 1, 0), block(waits) {}

  int ioctl(unsigned int cmd, void* arg) override {
    if (cmd != IOCTL_BIND_FIFO) return StockBlock::ioctl(cmd, arg);
    fifo = static_cast<FIFO*>(arg);
    return 0;
  }

  int Start() override {
    if (!fifo) return Refuse(__func__, "no FIFO is bound");
    return StockBlock::Start();
  }

  long ProcessFrame() override {
    if (auto answer = end.Answer()) return *answer;
    FIFO* const to = fifo;
    if (!to) return Refuse(__func__, "no FIFO is bound");
    if (to->Consume(In().data, Available(), block, TimeOf(In().timestamp)) < 0)
      return Refuse(__func__, "the FIFO " + to->Name() + " is shut down");
    end.Take();
    return 0;
  }

 private:
  const bool block;
  std::atomic<FIFO*> fifo = nullptr;  // set by the host's thread
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  const std::string mode = args.empty() ? "block" : args[0];
  if (args.size() > 1 || (mode != "block" && mode != "drop")) {
    LOG_E("fifosink takes block or drop, got %zu words, first \"%s\"", args.size(), mode.c_str());
    return nullptr;
  }
  return new FifoSink(first, last, mode == "block");
}
