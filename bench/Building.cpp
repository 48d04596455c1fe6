// Blocks and links made in one batch, with their records composed by nobody: outputs are off. The
// time is the caller's, from the call to its return.
#include <initializer_list>
#include "ZelkGraph.h"

using namespace bench;

namespace {

Work Build(std::size_t blocks) {
  auto graph = std::make_shared<ZelkGraph>();
  return [graph, blocks](std::int64_t count) {
    Slice sum;
    for (std::int64_t i = 0; i < count; ++i) {
      const double begin = Now();
      BuildChain(*graph, blocks);
      sum.seconds += Now() - begin;
      (*graph)->DeleteAll();
    }
    return sum;
  };
}

}  // namespace

void AddBuilding() {
  for (const std::size_t blocks : std::initializer_list<std::size_t>{64, 512, 4096})
    Add("building/zelk/" + std::to_string(blocks), [blocks] { return Build(blocks); });
}
