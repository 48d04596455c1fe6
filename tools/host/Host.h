// A host's life: scripts, then serving, then the end of all routes.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Session.h"

namespace zelk_host {

/// Exit statuses of `zelk-host`.
enum Status {
  OK = 0,
  SCRIPT_FAILED = 1,
  NO_CONSOLE = 2,     ///< the console cannot be served, or another host serves it
  FRAMES_FAILED = 3,  ///< --until-stopped: a route had error frames
  ROUTE_BROKEN = 4,   ///< --until-stopped: a route is BROKEN_RUNNING
};

struct Options {
  std::vector<std::string> scripts;
  bool untilStopped = false;
  bool summary = false;
  bool quiet = false;
};

/// Drives the host of this very process the way everybody else does: through its console.
class Host {
 public:
  /// `signalFd` becomes readable when the process is asked to end; `wanted` must live as long.
  Host(const Options& wanted, int signalFd);

  /// Runs the scripts and serves. The singleton must exist.
  Status Run();

 private:
  bool WaitForConsole() const;
  vosh::Result RunScripts() const;
  Status ServeUntilSignal() const;
  Status ServeUntilStopped();
  Status Judge(const vosh::StatusReport& report) const;
  void Remember(const vosh::StatusReport& report);
  void DeleteRoutes() const;

  const Options& options;
  vosh::Session session;
  vosh::Session cleanUp;                             ///< works on although a signal has come
  std::map<std::string, std::uint64_t> errorFrames;  ///< the most seen of each route
};

}  // namespace zelk_host
