// Blocks and links made in one batch, with their records composed by nobody: outputs are off. By
// the processor time of the whole process: the caller packs, the route's thread makes.
#include <time.h>

#include <initializer_list>

#include "ZelkGraph.h"

using namespace bench;

namespace {

double ProcessSeconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

Work Build(std::size_t blocks, bool subnames) {
  auto graph = std::make_shared<ZelkGraph>();
  return [graph, blocks, subnames](std::int64_t count) {
    Slice sum;
    for (std::int64_t i = 0; i < count; ++i) {
      const double begin = ProcessSeconds();
      BuildChain(*graph, blocks, subnames);
      sum.seconds += ProcessSeconds() - begin;
      (*graph)->DeleteAll();
    }
    return sum;
  };
}

}  // namespace

void AddBuilding() {
  for (const std::size_t blocks : std::initializer_list<std::size_t>{64, 512, 4096}) {
    const std::string size = std::to_string(blocks);
    // Of blocks of one name, each is asked for its subname once per number that is taken.
    Add("building/one name/" + size, [blocks] { return Build(blocks, false); });
    Add("building/a subname each/" + size, [blocks] { return Build(blocks, true); });
  }
}
