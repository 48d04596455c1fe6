// bench_pace: a source whose frames take a microsecond.
#include <time.h>
#include <zelk/Block.h>

namespace {

double Now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

class Pace final : public zelk::Block {
 public:
  using Block::Block;

  long ProcessFrame() override {
    for (const double end = Now() + 1e-6; Now() < end;) {
    }
    outEps[0].FB()->validSamples = outEps[0].FB()->samplesPerFrame;
    return 0;
  }
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>&) {
  return new Pace(first, last);
}
