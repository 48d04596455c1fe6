// Carries out command lines: the host's commands over the socket, and those of the client itself.
#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "Client.h"
#include "StatusReport.h"

namespace vosh {

/// How a command ended; the first three are exit statuses of `vosh`.
enum Result {
  SUCCESS = 0,
  FAILED = 1,     ///< a failure reply, or a command that cannot be carried out
  NO_HOST = 2,    ///< nothing answered
  CANCELLED = 3,  ///< the client's cancel descriptor became readable
};

struct Outcome {
  Result result = SUCCESS;
  std::string text;  ///< what to show; ends in a new line unless it is empty
  /// True for a complaint of the client's own, which belongs on standard error.
  bool complaint = false;
};

/// One at a time per object.
class Session {
 public:
  /// On `terminal`, unless it is null, `wait` shows how far a route is. Borrowed.
  explicit Session(Client socketClient, std::ostream* terminal = nullptr);

  /// Carries out one command line. Nothing is sent for a blank one.
  Outcome Execute(const std::string& line) const;

  /// Carries out a script, line by line, up to the first failure, which is reported to `err` with
  /// `name` and the line. Each reply of success is handed to `show`.
  Result RunScript(std::istream& script, const std::string& name,
                   const std::function<void(const std::string&)>& show, std::ostream& err) const;

  /// Asks for the status report; the outcome's text is empty on success.
  Outcome Status(StatusReport& report) const;

  /// From now on hands every status report that is received to `observe`, also those of `wait`.
  void Observe(std::function<void(const StatusReport&)> observe) { observer = std::move(observe); }

  const Client& GetClient() const { return client; }

 private:
  Outcome Forward(const std::string& line, const std::string& word) const;
  Outcome Wait(const std::vector<std::string>& words) const;
  Outcome Graph(const std::vector<std::string>& words) const;
  Outcome StatusJson() const;

  Client client;
  std::ostream* progress;
  std::function<void(const StatusReport&)> observer;
};

/// A complaint of the client's own.
Outcome Complaint(std::string text, Result result = FAILED);

/// "501 frames processed OK, 0 error frame", as the host words it.
std::string FrameCounts(const RouteStatus& route);

}  // namespace vosh
