// What `top` shows, as lines of text; how they are put on a screen is not decided here.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Activity.h"
#include "StatusReport.h"

namespace vosh {

enum class TopOrder { NAME, STATE, OK_FRAMES, ERRORS };

/// The next order in turn.
TopOrder Next(TopOrder order);

struct TopState {
  StatusReport report;
  std::map<std::string, RouteActivity> activity;
  ActivityMonitor::WallTime at;
  double interval = 1;  ///< seconds between two polls
  TopOrder order = TopOrder::NAME;
  std::string selected;  ///< name of a route; none when empty
  bool paused = false;
};

struct TopLine {
  enum Style { PLAIN, TITLE, HEADER, SELECTED, ALARM };
  std::string text;
  Style style = PLAIN;
};

/// Sorts the routes of `state` in its order.
void SortRoutes(TopState& state);

/// All lines, each of at most `width` characters and safe for a terminal.
std::vector<TopLine> RenderTop(const TopState& state, std::size_t width);

}  // namespace vosh
