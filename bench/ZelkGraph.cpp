#include "ZelkGraph.h"

#include <cstdio>
#include <cstdlib>

namespace bench {

namespace {

// "RouteA" to "RouteZ": a process measures one row, and no row needs more.
zelk::Route* NewRoute() {
  static char letter = 'A';
  const char name[] = {'R', 'o', 'u', 't', 'e', letter++, 0};
  return zelk::Zelk::Instance()->NewRoute(name, nullptr);
}

// The bench's own plug-ins lie beside it, the stock blocks where the library looks.
std::string FileOf(const std::string& plugin) {
  std::string file = plugin.starts_with("bench_") ? BENCH_BLOCKS "/" : "";
  return file.append(plugin).append(".so");
}

}  // namespace

void Require(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "bench: %s failed\n", what);
  std::abort();
}

ZelkGraph::ZelkGraph() : route(NewRoute()) {
  Require(route != nullptr, "NewRoute");
}

ZelkGraph::~ZelkGraph() {
  gate.Quit();
  zelk::Zelk::Instance()->DeleteRoute(route);
}

void ZelkGraph::Build(const std::vector<Stage>& stages, const std::vector<Join>& joins,
                      long samples) {
  using zelk::Route;
  std::vector<Route::Action> actions(stages.size() + joins.size());
  std::vector<std::string> files;
  for (const Stage& stage : stages)
    files.push_back(FileOf(stage.plugin));
  blocks.assign(stages.size(), nullptr);
  for (std::size_t i = 0; i < stages.size(); ++i) {
    actions[i].type = Route::NEW_BLOCK;
    actions[i].newBlock = {files[i].c_str(), i == 0, i == stages.size() - 1, &stages[i].args,
                           &blocks[i]};
  }
  for (std::size_t i = 0; i < joins.size(); ++i) {
    const Join& join = joins[i];
    Route::Action& action = actions[stages.size() + i];
    action.type = Route::NEW_LINK;
    action.newLink = {RATE,        join.format,      CHANNELS,   samples, &blocks[join.from],
                      join.output, &blocks[join.to], join.input, nullptr};
  }
  route->ExecuteActions(actions.data(), actions.size());
  for (std::size_t i = 0; i < joins.size(); ++i)
    Require(actions[stages.size() + i].newLink.link != nullptr, "NEW_LINK");
}

void ZelkGraph::Start() {
  Require(blocks.front()->ioctl(SET_GATE, &gate) == 0, "SET_GATE");
  Require(route->Start() == 0, "Start");
}

void BuildChain(ZelkGraph& graph, std::size_t blocks, bool subnames) {
  std::vector<Stage> stages(blocks, Stage{"bench_through"});
  stages.front().plugin = "bench_source";
  stages.back().plugin = "bench_end";
  if (subnames) {
    for (std::size_t i = 1; i + 1 < blocks; ++i)
      stages[i].args.push_back(std::to_string(i));
  }
  std::vector<Join> joins;
  for (std::size_t i = 0; i + 1 < blocks; ++i)
    joins.push_back({i, 0, i + 1, 0});
  graph.Build(stages, joins, SAMPLES);
}

Work FramesOf(std::shared_ptr<ZelkGraph> graph) {
  return [graph](std::int64_t count) {
    graph->gate.Open(count);
    return Slice{graph->gate.Wait()};
  };
}

}  // namespace bench
