// Waiting for a route to stop.
#include <optional>
#include <ostream>

#include "Session.h"
#include "Text.h"

namespace vosh {

namespace {

constexpr Client::Milliseconds kInterval(50);

// How the wait ends with what is now known of the route; nothing while it goes on. `stopped` says
// that the route was seen stopped before.
std::optional<Outcome> Judge(const std::string& name, const RouteStatus* route, bool stopped) {
  if (!route) return Outcome{FAILED, "Can't find " + name + "\n"};
  if (route->state == "BROKEN_RUNNING") {
    return Outcome{FAILED, name + " is BROKEN_RUNNING, " + FrameCounts(*route) + "\n"};
  }
  // Seen twice: on its way to BROKEN_RUNNING a route is STOPPED for a moment.
  if (route->state != "RUNNING" && stopped) {
    return Outcome{SUCCESS, name + " has stopped, " + FrameCounts(*route) + "\n"};
  }
  return std::nullopt;
}

}  // namespace

Outcome Session::Wait(const std::vector<std::string>& words) const {
  if (words.size() != 2) return Complaint("wait needs the name of one route");
  const std::string& name = words[1];
  bool stopped = false;
  std::optional<Outcome> end;
  while (!end) {
    StatusReport report;
    const Outcome asked = Status(report);
    const RouteStatus* route = report.Find(name);
    end = asked.result == SUCCESS ? Judge(name, route, stopped) : asked;
    if (end) break;
    stopped = route->state != "RUNNING";
    if (progress) {
      *progress << '\r' << Printable(name) << ": " << FrameCounts(*route) << "   " << std::flush;
    }
    if (!client.Pause(kInterval)) end = Complaint("Cancelled", CANCELLED);
  }
  if (progress) *progress << "\r\x1b[K" << std::flush;
  return *end;
}

}  // namespace vosh
