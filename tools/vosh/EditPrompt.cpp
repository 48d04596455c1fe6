// The prompt with line editing, history and completion, on libedit.
#include <editline/readline.h>
#include <sys/stat.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Completion.h"
#include "Prompt.h"

namespace vosh {

namespace {

constexpr int kHistoryLength = 1000;

// libedit calls back without a context of ours.
std::vector<std::string> candidates;

// A key press must not freeze the prompt for as long as a command may take.
const Session& QuickSession() {
  static const Session session{Client(std::chrono::seconds(1))};
  return session;
}

char* NextCandidate(const char*, int state) {
  static std::size_t next = 0;
  if (state == 0) next = 0;
  return next < candidates.size() ? strdup(candidates[next++].c_str()) : nullptr;
}

char** CompleteWord(const char* text, int, int end) {
  rl_attempted_completion_over = 1;  // file names are offered only where they belong
  const std::string line(rl_line_buffer, static_cast<std::size_t>(end));
  candidates = Complete(QuickSession(), line);
  const bool more = candidates.size() == 1 && candidates[0].ends_with('/');
  rl_completion_append_character = more ? 0 : 0x20;  // a blank
  return rl_completion_matches(text, NextCandidate);
}

void SetUp(const std::string& historyFile) {
  static char name[] = "vosh";
  static char wordBreaks[] = " \t";
  rl_readline_name = name;
  rl_catch_signals = 1;  // an interrupt leaves the terminal as it was
  rl_initialize();
  rl_completer_word_break_characters = wordBreaks;
  rl_attempted_completion_function = CompleteWord;
  using_history();
  stifle_history(kHistoryLength);
  if (!historyFile.empty()) read_history(historyFile.c_str());
}

}  // namespace

void RunPrompt(const App& app) {
  const std::string historyFile = HistoryFile();
  SetUp(historyFile);
  bool goOn = true;
  while (goOn) {
    char* typed = readline("vosh> ");
    if (!typed) {
      std::puts("");
      break;
    }
    const std::string line = typed;
    std::free(typed);
    if (line.find_first_not_of(" \t") == std::string::npos) continue;
    add_history(line.c_str());
    if (!historyFile.empty() && write_history(historyFile.c_str()) == 0) {
      chmod(historyFile.c_str(), 0600);
    }
    goOn = app.RunPromptLine(line);
  }
}

}  // namespace vosh
