// What may follow on a command line that is being typed.
#pragma once

#include <string>
#include <vector>

#include "Session.h"

namespace vosh {

/// The words that may stand in the place of the last word of `line`, which is the empty word after
/// white space; sorted. Directories end in "/" and ask for more. Asks the host for the names of
/// routes, blocks, links and parameters; without one there are none.
std::vector<std::string> Complete(const Session& session, const std::string& line);

}  // namespace vosh
