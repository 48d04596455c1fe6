// The prompt where there is no libedit: lines as the terminal edits them.
#include <iostream>

#include "Prompt.h"

namespace vosh {

void RunPrompt(const App& app) {
  std::string line;
  for (bool goOn = true; goOn;) {
    std::cout << "vosh> " << std::flush;
    if (!std::getline(std::cin, line)) break;
    goOn = app.RunPromptLine(line);
  }
}

}  // namespace vosh
