// Runs each check in a process of its own and tells the results as a test runner does (TAP).
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Settings.h"

namespace validate {

struct Check {
  const char* word;  ///< for --only
  const char* name;  ///< a sentence about the block
  std::function<void(const Settings&)> run;
};

/// Runs the checks in turn; the first may find out what the others need to know. Returns how many
/// found a fault. `settings.first` and `last` are filled in unless they are given.
int RunChecks(const std::vector<Check>& checks, Settings& settings);

}  // namespace validate
