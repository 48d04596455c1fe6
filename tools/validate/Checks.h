// What a block must do to be driven by a route, one check each.
#pragma once

#include <vector>

#include "Runner.h"

namespace validate {

/// In order; the first finds out whether the block is a source, a sink or between.
std::vector<Check> AllChecks();

// In LinkChecks.cpp; each runs in a process of its own, and reports to `Report`.
void IsCreated(const Settings& settings);
void LinksAndUnlinks(const Settings& settings);
void OddLinks(const Settings& settings);
void RollsBack(const Settings& settings);
void RelinkedInMidStream(const Settings& settings);

}  // namespace validate
