// `vosh top`: the host, watched.
#pragma once

#include <string>
#include <vector>

#include "Session.h"
#include "TopView.h"

namespace vosh {

struct TopOptions {
  long count = 0;       ///< reports to show; 0 goes on for ever
  double interval = 1;  ///< seconds between two polls
  bool json = false;
};

/// Carries out `top` with the words behind it ("-n COUNT", "-d SECONDS"): full screen on a terminal
/// unless reports are counted, else as text or as one JSON object per report and line.
Result RunTop(const Session& session, const std::vector<std::string>& words, bool json);

/// The full screen; false, with nothing done, when the terminal cannot show it.
bool RunTopScreen(const TopOptions& options);

/// Polls a host and keeps the state that is shown up to date.
class TopPoller {
 public:
  TopPoller(const Session& host, double interval) : session(host) { state.interval = interval; }

  /// One poll, over a connection of its own. Leaves the state as it was when nothing answers.
  Outcome Poll();

  TopState state;

 private:
  const Session& session;
  ActivityMonitor monitor;
};

}  // namespace vosh
