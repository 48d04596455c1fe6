// What the console may see of a route while its thread runs.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Link/LinkView.h"
#include "Mutex.h"

namespace zelk {

enum class RouteStatus : std::uint32_t { STOPPED = 0, RUNNING = 1, BROKEN_RUNNING = 2, EXIT = 3 };

/// The name of a status as records and reports show it; "?" for a value outside the four.
inline const char* StatusName(RouteStatus status) noexcept {
  static constexpr const char* names[] = {"STOPPED", "RUNNING", "BROKEN_RUNNING", "EXIT"};
  const auto value = static_cast<std::uint32_t>(status);
  return value < 4 ? names[value] : "?";
}

/// One block and its linked ports, each list by port index. Constant.
struct BlockView {
  std::string name;
  bool isFirst = false;
  bool isLast = false;
  std::vector<std::shared_ptr<const LinkView>> ins;
  std::vector<std::shared_ptr<const LinkView>> outs;
  const void* block = nullptr;  ///< identity only: the block may be gone
};

/// All blocks and links of a route between two edits, each list in address order. Constant.
struct GraphView {
  std::vector<std::shared_ptr<const BlockView>> blocks;
  std::vector<std::shared_ptr<const LinkView>> links;
};

/// The face that a route shows to the console: it may be looked at for as long as anyone likes,
/// without the route's lock and without keeping the route alive. Written by the route thread, read
/// anywhere.
class RouteView {
 public:
  explicit RouteView(std::string routeName) : name(std::move(routeName)) {}

  const std::string name;

  // Statistics of one writer: relaxed is enough.
  std::atomic<RouteStatus> status{RouteStatus::STOPPED};
  std::atomic<std::uint64_t> okFrames{0};
  std::atomic<std::uint64_t> errorFrames{0};

  void Publish(std::shared_ptr<const GraphView> edited) ZELK_EXCLUDES(mutex) {
    Lock lock(mutex);
    graph.swap(edited);
    // The former view dies in `edited`, after the lock.
  }

  /// Never null.
  std::shared_ptr<const GraphView> Graph() const ZELK_EXCLUDES(mutex) {
    Lock lock(mutex);
    return graph;
  }

 private:
  // Held for the copy of one pointer; nothing else is locked meanwhile.
  mutable Mutex mutex;
  std::shared_ptr<const GraphView> graph ZELK_GUARDED_BY(mutex) = std::make_shared<GraphView>();
};

}  // namespace zelk
