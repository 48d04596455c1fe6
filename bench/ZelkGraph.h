// A route of the bench's own blocks, built and driven through the public interface only.
#pragma once

#include <zelk/Zelk.h>

#include <memory>
#include <string>
#include <vector>

#include "Bench.h"
#include "blocks/Gate.h"

namespace bench {

/// The frame that every contestant carries: 480 samples of 2 channels, S16, 48 kHz.
inline constexpr unsigned int RATE = 48000;
inline constexpr unsigned int CHANNELS = 2;
inline constexpr long SAMPLES = 480;

struct Stage {
  std::string plugin;
  std::vector<std::string> args = {};
};

struct Join {
  std::size_t from;
  std::size_t output;
  std::size_t to;
  std::size_t input;
  zelk::SampleFormat format = zelk::S16_LE;
};

/// Deletes its route when it dies.
class ZelkGraph {
 public:
  ZelkGraph();
  ~ZelkGraph();
  ZelkGraph(const ZelkGraph&) = delete;
  ZelkGraph& operator=(const ZelkGraph&) = delete;

  /// All blocks and links in one batch. The first stage is the source, the last one the sink.
  void Build(const std::vector<Stage>& stages, const std::vector<Join>& joins, long samples);

  /// Starts the route, whose first block is a bench_source.
  void Start();

  zelk::Route* operator->() const { return route; }
  const std::vector<zelk::Block*>& Blocks() const { return blocks; }

  Gate gate;

 private:
  zelk::Route* route;
  std::vector<zelk::Block*> blocks;
};

/// Source, `through` blocks, sink: `blocks` in all; the `through` blocks with subnames if asked
/// for.
void BuildChain(ZelkGraph& graph, std::size_t blocks, bool subnames = false);

/// Frames of a started graph, by the processor time of its thread.
Work FramesOf(std::shared_ptr<ZelkGraph> graph);

/// Ends the process with a message when something that must work does not.
void Require(bool ok, const char* what);

}  // namespace bench
