// How fast routes run, learned from one status report after the other.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>

#include "StatusReport.h"

namespace vosh {

struct RouteActivity {
  double okPerSecond = 0;
  double errorsPerSecond = 0;
  /// Set for a RUNNING route whose counters stand still: when they last moved, or were first seen.
  std::optional<std::chrono::system_clock::time_point> stillSince;
};

/// Compares reports. A route counts as standing still once its counters have not moved for a second
/// and for two of its longest frames; a source that waits for input stands still too.
class ActivityMonitor {
 public:
  using SteadyTime = std::chrono::steady_clock::time_point;
  using WallTime = std::chrono::system_clock::time_point;

  /// Takes in a report that was received at `now`, which is `wall` by the clock on the wall.
  void Update(const StatusReport& report, SteadyTime now, WallTime wall);

  /// By route name; a route seen once only is missing.
  const std::map<std::string, RouteActivity>& Routes() const { return activity; }

 private:
  struct Seen {
    RouteStatus status;
    SteadyTime at;
    SteadyTime movedAt;
    WallTime movedAtWall;
  };

  static RouteActivity Compare(Seen& seen, const RouteStatus& route, SteadyTime now, WallTime wall);

  std::map<std::string, Seen> seen;
  std::map<std::string, RouteActivity> activity;
};

/// "HH:MM:SS" in local time.
std::string ClockText(std::chrono::system_clock::time_point time);

}  // namespace vosh
