// `vosh` between its command line and the session: where replies go, and how it ends.
#pragma once

#include <string>

#include "Session.h"

namespace vosh {

class App {
 public:
  /// `commands` must live as long; `asJson` asks for the reports of `status` and `top` as JSON.
  App(const Session& commands, bool asJson);

  /// Carries out one command line and prints what comes of it.
  Result Run(const std::string& line) const;

  /// The same for a line typed at the prompt; false for the one that leaves it.
  bool RunPromptLine(const std::string& line) const;

  /// Carries out a script file, "-" being standard input.
  Result RunScript(const std::string& file) const;

 private:
  const Session& session;
  bool json;
};

}  // namespace vosh
