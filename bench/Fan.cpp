// One block to many to one, and many routes at once: the cost of a branch and of a route.
#include <initializer_list>
#include "ZelkGraph.h"

using namespace bench;

namespace {

Work Fan(std::size_t width) {
  std::vector<Stage> stages(width + 2, Stage{"bench_through"});
  stages.front().plugin = "bench_source";
  stages.back().plugin = "bench_end";
  std::vector<Join> joins;
  for (std::size_t i = 0; i < width; ++i) {
    joins.push_back({0, i, i + 1, 0});
    joins.push_back({i + 1, 0, width + 1, i});
  }
  auto graph = std::make_shared<ZelkGraph>();
  graph->Build(stages, joins, SAMPLES);
  graph->Start();
  return FramesOf(graph);
}

// Chains that all run at once. Their threads' processor time, so that more routes than cores cost
// what they cost and not what they wait.
Work Routes(std::size_t count) {
  std::vector<std::shared_ptr<ZelkGraph>> graphs;
  for (std::size_t i = 0; i < count; ++i) {
    graphs.push_back(std::make_shared<ZelkGraph>());
    BuildChain(*graphs.back(), 32);
    graphs.back()->Start();
  }
  return [graphs](std::int64_t frames) {
    for (const auto& graph : graphs)
      graph->gate.Open(frames);
    Slice sum;
    for (const auto& graph : graphs)
      sum.seconds += graph->gate.Wait();
    return sum;
  };
}

}  // namespace

void AddFan() {
  for (const std::size_t width : std::initializer_list<std::size_t>{1, 2, 4, 8, 16, 32})
    Add("fan/zelk/" + std::to_string(width), [width] { return Fan(width); });
  // One row each: together they would need more names than there are for routes.
  for (const std::size_t count : std::initializer_list<std::size_t>{1, 2, 4, 8})
    Add("routes/zelk/" + std::to_string(count), [count] { return Routes(count); });
  Add("routes26/zelk/26", [] { return Routes(26); });
}
