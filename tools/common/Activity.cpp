#include "Activity.h"

#include <algorithm>
#include <ctime>

namespace vosh {

namespace {

using Seconds = std::chrono::duration<double>;

Seconds LongestFrame(const RouteStatus& route) {
  double longest = 0;
  for (const BlockStatus& block : route.blocks) {
    for (const PortStatus& port : block.ports) {
      if (port.rate == 0) continue;
      const double frame =
          static_cast<double>(port.samplesPerFrame) / static_cast<double>(port.rate);
      longest = std::max(longest, frame);
    }
  }
  return Seconds(longest);
}

// A counter that went back belongs to a new start, which counts from 0.
double Rate(std::uint64_t before, std::uint64_t now, Seconds elapsed) {
  const std::uint64_t frames = now >= before ? now - before : now;
  return elapsed.count() > 0 ? static_cast<double>(frames) / elapsed.count() : 0;
}

}  // namespace

RouteActivity ActivityMonitor::Compare(Seen& seen, const RouteStatus& route, SteadyTime now,
                                       WallTime wall) {
  RouteActivity result;
  result.okPerSecond = Rate(seen.status.okFrames, route.okFrames, now - seen.at);
  result.errorsPerSecond = Rate(seen.status.errorFrames, route.errorFrames, now - seen.at);
  const bool still = route.state == "RUNNING" && seen.status.state == "RUNNING" &&
                     route.okFrames == seen.status.okFrames &&
                     route.errorFrames == seen.status.errorFrames;
  if (!still) {
    seen.movedAt = now;
    seen.movedAtWall = wall;
  } else if (now - seen.movedAt >= std::max(Seconds(1), 2 * LongestFrame(route))) {
    result.stillSince = seen.movedAtWall;
  }
  seen.status = route;
  seen.at = now;
  return result;
}

void ActivityMonitor::Update(const StatusReport& report, SteadyTime now, WallTime wall) {
  activity.clear();
  std::erase_if(seen, [&](const auto& entry) { return !report.Find(entry.first); });
  for (const RouteStatus& route : report.routes) {
    const auto known = seen.find(route.name);
    if (known == seen.end()) {
      seen.emplace(route.name, Seen{route, now, now, wall});
    } else {
      activity[route.name] = Compare(known->second, route, now, wall);
    }
  }
}

std::string ClockText(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[16];
  return std::string(text, std::strftime(text, sizeof text, "%H:%M:%S", &local));
}

}  // namespace vosh
