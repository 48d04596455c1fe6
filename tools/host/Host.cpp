#include "Host.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iostream>

#include "Text.h"

namespace zelk_host {

using vosh::Client;
using vosh::Outcome;
using vosh::Result;
using vosh::RouteStatus;
using vosh::StatusReport;

namespace {

constexpr Client::Milliseconds kInterval(100);
constexpr Client::Milliseconds kConsoleTime(10000);
constexpr Client::Milliseconds kCleanUpTime(5000);

// A graph of files may end within milliseconds: no look at it comes later than it must by more than
// an eighth.
Client::Milliseconds Pause(std::chrono::steady_clock::time_point since) {
  const auto passed = std::chrono::steady_clock::now() - since;
  return std::clamp(std::chrono::duration_cast<Client::Milliseconds>(passed) / 8,
                    Client::Milliseconds(1), kInterval);
}

// What a route needs, at the most, to get from STOPPED to BROKEN_RUNNING. One that made frames had
// a graph to run, which only an edit at this very moment can have broken.
Client::Milliseconds Moment(const StatusReport& report) {
  const bool allRan =
      std::all_of(report.routes.begin(), report.routes.end(),
                  [](const RouteStatus& route) { return route.okFrames + route.errorFrames > 0; });
  return Client::Milliseconds(allRan ? 2 : 30);
}

bool IsOver(const StatusReport& report) {
  return std::none_of(report.routes.begin(), report.routes.end(),
                      [](const RouteStatus& route) { return route.state == "RUNNING"; });
}

void PrintSummary(const StatusReport& report) {
  // Hosts list the newest first.
  // NOLINTNEXTLINE(modernize-loop-convert): not every compiler reads the library's reverse view
  for (auto route = report.routes.rbegin(); route != report.routes.rend(); ++route) {
    std::cout << route->name << " is " << route->state << ", " << FrameCounts(*route) << '\n';
  }
  std::cout << std::flush;
}

}  // namespace

// Scripts may wait on a command for as long as it takes; a signal ends the wait.
Host::Host(const Options& wanted, int signalFd)
    : options(wanted),
      session(Client(Client::Milliseconds(0), signalFd)),
      cleanUp(Client(kCleanUpTime)) {
  // A script may wait for a route and delete it: what it did counts all the same.
  session.Observe([this](const StatusReport& report) { Remember(report); });
}

Status Host::Run() {
  if (!WaitForConsole()) {
    std::cerr << "zelk-host: the console does not answer; see the log for why\n";
    return NO_CONSOLE;
  }
  const Result scripts = RunScripts();
  Status status = OK;
  if (scripts == vosh::SUCCESS) {
    status = options.untilStopped ? ServeUntilStopped() : ServeUntilSignal();
  } else if (scripts != vosh::CANCELLED) {
    status = SCRIPT_FAILED;
  }
  DeleteRoutes();
  return status;
}

// The library opens its console on a thread of its own, a moment after the singleton exists.
bool Host::WaitForConsole() const {
  const auto begin = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - begin < kConsoleTime) {
    if (session.GetClient().Probe()) return true;
    if (!session.GetClient().Pause(Pause(begin))) return true;
  }
  return false;
}

Result Host::RunScripts() const {
  const auto show = [this](const std::string& reply) {
    if (!options.quiet) std::cout << vosh::Printable(reply) << std::flush;
  };
  for (const std::string& file : options.scripts) {
    std::ifstream script(file);
    if (!script) {
      std::cerr << file << ": " << std::strerror(errno) << "\n";
      return vosh::FAILED;
    }
    const Result result = session.RunScript(script, file, show, std::cerr);
    if (result != vosh::SUCCESS) return result;
  }
  return vosh::SUCCESS;
}

Status Host::ServeUntilSignal() const {
  while (session.GetClient().Pause(std::chrono::hours(1))) {
  }
  return OK;
}

// Twice in a row: on its way to BROKEN_RUNNING a route is STOPPED for a moment.
Status Host::ServeUntilStopped() {
  StatusReport report;
  const auto begin = std::chrono::steady_clock::now();
  for (int over = 0; over < 2;) {
    const Outcome outcome = session.Status(report);
    if (outcome.result == vosh::SUCCESS) over = IsOver(report) ? over + 1 : 0;
    if (over == 2 || outcome.result == vosh::CANCELLED) break;
    if (!session.GetClient().Pause(over == 1 ? Moment(report) : Pause(begin))) break;
  }
  return Judge(report);
}

void Host::Remember(const StatusReport& report) {
  for (const RouteStatus& route : report.routes) {
    std::uint64_t& most = errorFrames[route.name];
    most = std::max(most, route.errorFrames);
  }
}

Status Host::Judge(const StatusReport& report) const {
  for (const RouteStatus& route : report.routes) {
    if (route.state == "BROKEN_RUNNING") return ROUTE_BROKEN;
  }
  for (const auto& [route, frames] : errorFrames) {
    if (frames > 0) return FRAMES_FAILED;
  }
  return OK;
}

// Now and not by the singleton's destructor: at exit, the static objects of plug-ins, which were
// loaded after it, are destroyed before it, under routes that still run.
void Host::DeleteRoutes() const {
  StatusReport report;
  Outcome outcome = cleanUp.Status(report);
  if (outcome.result == vosh::SUCCESS && options.summary) PrintSummary(report);
  for (const RouteStatus& route : report.routes) {
    if (outcome.result != vosh::NO_HOST) outcome = cleanUp.Execute("delete " + route.name + " !");
  }
  if (outcome.result == vosh::NO_HOST) {
    std::cerr << "zelk-host: not every route could be ended in time. " << outcome.text
              << "A second signal ends the process at once.\n";
  }
}

}  // namespace zelk_host
