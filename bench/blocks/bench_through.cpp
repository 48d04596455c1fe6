// bench_through [SUBNAME]: takes its input and marks its output, nothing else.
#include <zelk/Block.h>

#include <string>
#include <utility>

#include "Gate.h"

namespace {

class Through final : public zelk::Block {
 public:
  Through(bool first, bool last, std::string word) : Block(first, last), subname(std::move(word)) {}

  const char* Subname() const override { return subname.c_str(); }

  int ioctl(unsigned int command, void* arg) override {
    if (command != bench::GET_IN && command != bench::GET_OUT) return -20;
    *static_cast<zelk::FrameBuffer**>(arg) =
        command == bench::GET_IN ? inEps[0].FB() : outEps[0].FB();
    return 0;
  }

  long ProcessFrame() override {
    zelk::FrameBuffer& in = *inEps[0].FB();
    zelk::FrameBuffer& out = *outEps[0].FB();
    out.timestamp = in.timestamp;
    out.validSamples = in.validSamples;
    in.validSamples = 0;
    return 0;
  }

 private:
  const std::string subname;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  return new Through(first, last, args.empty() ? "" : args[0]);
}
