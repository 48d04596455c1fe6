// A chain of pass-through blocks: what a block adds to a frame.
#include "ZelkGraph.h"

using namespace bench;

namespace {

constexpr std::size_t SIZES[] = {2, 8, 32, 128, 512, 2048, 4096};

Work Zelk(std::size_t blocks) {
  auto graph = std::make_shared<ZelkGraph>();
  BuildChain(*graph, blocks);
  graph->Start();
  return FramesOf(graph);
}

// What no graph can do without: one virtual call per block, and one descriptor passed on. The same
// blocks, made by the same library, which stays stopped.
Work Limit(std::size_t blocks) {
  struct Step {
    zelk::Block* block;
    const zelk::FrameBuffer* from;
    zelk::FrameBuffer* to;
  };
  auto graph = std::make_shared<ZelkGraph>();
  BuildChain(*graph, blocks + 2);
  std::vector<Step> steps;
  for (std::size_t i = 1; i <= blocks; ++i)
    steps.push_back({graph->Blocks()[i], nullptr, nullptr});
  zelk::FrameBuffer* out = nullptr;
  for (std::size_t i = 0; i < blocks; ++i) {
    steps[i].block->ioctl(GET_OUT, &out);
    steps[i].from = out;
    steps[(i + 1) % blocks].block->ioctl(GET_IN, &steps[i].to);
  }
  return OnThisThread([graph, steps] {
    for (const Step& step : steps) {
      step.block->ProcessFrame();
      *step.to = *step.from;
    }
  });
}

}  // namespace

void AddChain() {
  for (const std::size_t blocks : SIZES) {
    const std::string size = std::string("/").append(std::to_string(blocks));
    Add("chain/limit" + size, [blocks] { return Limit(blocks); });
    Add("chain/zelk" + size, [blocks] { return Zelk(blocks); });
  }
}
