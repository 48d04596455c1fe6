#include "Top.h"

#include <unistd.h>
#include <cstdlib>
#include <iostream>

#include "Json.h"
#include "Text.h"

namespace vosh {

namespace {

constexpr std::size_t kPlainWidth = 120;

bool ParseNumber(const std::string& text, double& value) {
  char* end = nullptr;
  value = std::strtod(text.c_str(), &end);
  return !text.empty() && *end == '\0';
}

bool ParseOptions(const std::vector<std::string>& words, TopOptions& options) {
  for (std::size_t i = 1; i < words.size(); ++i) {
    std::string word = words[i];
    if (word == "--json") {
      options.json = true;
      continue;
    }
    if (!word.starts_with("-n") && !word.starts_with("-d")) return false;
    double value = 0;
    const bool attached = word.size() > 2;
    if (!attached && ++i == words.size()) return false;
    if (!ParseNumber(attached ? word.substr(2) : words[i], value)) return false;
    if (word[1] == 'n') {
      if (!(value >= 1 && value <= 1e9)) return false;
      options.count = static_cast<long>(value);
    } else {
      if (!(value >= 0.1 && value <= 3600)) return false;
      options.interval = value;
    }
  }
  return true;
}

void Print(const TopPoller& poller, const TopOptions& options) {
  if (options.json) {
    std::cout << ToJson(poller.state.report, &poller.state.activity) << std::flush;
    return;
  }
  for (const TopLine& line : RenderTop(poller.state, kPlainWidth))
    std::cout << line.text << '\n';
  std::cout << std::flush;
}

// Rates need two reports: the first one only sets the stage.
Result RunPlain(const Session& session, const TopOptions& options) {
  TopPoller poller(session, options.interval);
  for (long shown = -1; options.count == 0 || shown < options.count; ++shown) {
    const Outcome outcome = poller.Poll();
    if (outcome.result != SUCCESS) {
      std::cerr << Printable(outcome.text);
      return outcome.result;
    }
    if (shown >= 0) Print(poller, options);
    if (!std::cout) return FAILED;
    const bool more = options.count == 0 || shown + 1 < options.count;
    const auto pause = std::chrono::milliseconds(static_cast<long>(options.interval * 1000));
    if (more && !session.GetClient().Pause(pause)) return CANCELLED;
  }
  return SUCCESS;
}

}  // namespace

Outcome TopPoller::Poll() {
  StatusReport report;
  Outcome outcome = session.Status(report);
  if (outcome.result != SUCCESS) return outcome;
  state.at = std::chrono::system_clock::now();
  monitor.Update(report, std::chrono::steady_clock::now(), state.at);
  state.report = std::move(report);
  state.activity = monitor.Routes();
  SortRoutes(state);
  return outcome;
}

Result RunTop(const Session& session, const std::vector<std::string>& words, bool json) {
  TopOptions options;
  options.json = json;
  if (!ParseOptions(words, options)) {
    std::cerr << "top takes -n COUNT (1 or more) and -d SECONDS (0.1 to 3600)\n";
    return FAILED;
  }
  const bool terminal = isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);
  if (terminal && !options.json && options.count == 0 && RunTopScreen(options)) return SUCCESS;
  return RunPlain(session, options);
}

}  // namespace vosh
