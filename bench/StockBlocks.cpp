// Stock blocks and hand-written loops in the same graph: source, block, sink, with frames long
// enough that the block is what counts. "pass" is the graph with a block that does nothing.
#include "ZelkGraph.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif

using namespace bench;

namespace {

constexpr long LONG_FRAME = 4800;

Work Frames(const Stage& stage, std::size_t inputs, zelk::SampleFormat in, zelk::SampleFormat out) {
#ifdef __GLIBC__
  // The frames of all contestants lie alike, at the start of a page: where they lie changes what
  // the shortest loops take by half.
  mallopt(M_MMAP_THRESHOLD, 8192);
#endif
  auto graph = std::make_shared<ZelkGraph>();
  std::vector<Join> joins;
  for (std::size_t i = 0; i < inputs; ++i)
    joins.push_back({0, i, 1, i, in});
  joins.push_back({1, 0, 2, 0, out});
  graph->Build({{"bench_source"}, stage, {"bench_end"}}, joins, LONG_FRAME);
  graph->Start();
  return FramesOf(graph);
}

void AddTask(const Stage& stock, std::size_t inputs, zelk::SampleFormat in,
             zelk::SampleFormat out) {
  const std::string from = zelk::FormatToString(in);
  const std::string to = zelk::FormatToString(out);
  std::string row = "stock-";
  row.append(stock.plugin).append("-").append(from).append("-").append(to).append("/");
  const Stage loop = {"bench_loop", {stock.plugin, from, to}};
  Add(row + "loop", [=] { return Frames(loop, inputs, in, out); });
  Add(row + "zelk", [=] { return Frames(stock, inputs, in, out); });
  Add(row + "pass", [=] { return Frames({"bench_through"}, 1, in, out); });
}

}  // namespace

void AddStockBlocks() {
  using namespace zelk;
  const SampleFormat formats[] = {BYTE,     S16_LE,   S16_BE,  S32_LE, S32_BE,
                                  FLOAT_LE, FLOAT_BE, S24_3LE, S24_3BE};
  for (const SampleFormat format : formats)
    AddTask({"gain", {"-6.0206"}}, 1, format, format);
#ifdef BENCH_MIXER
  for (const SampleFormat format : formats)
    AddTask({"mixer", {"-6.0206"}}, 2, format, format);
#endif
#ifdef BENCH_CONVERT
  for (const SampleFormat from : formats) {
    for (const SampleFormat to : formats) {
      if (from != to) AddTask({"convert"}, 1, from, to);
    }
  }
#endif
}
