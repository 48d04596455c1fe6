// What a block must do to be driven by a route, one check each.
#pragma once

#include <vector>

#include "Runner.h"

namespace validate {

/// In order; the first finds out whether the block is a source, a sink or between.
std::vector<Check> AllChecks();

}  // namespace validate
