// The interactive prompt.
#pragma once

#include <string>

#include "App.h"

namespace vosh {

/// Reads commands from the terminal and carries them out, until "quit" or the end of input.
void RunPrompt(const App& app);

/// The history file in the user's state directory, which is created; empty when there is none.
std::string HistoryFile();

}  // namespace vosh
