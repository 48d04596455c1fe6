#include "App.h"

#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "Interrupt.h"
#include "Text.h"
#include "Top.h"

namespace vosh {

namespace {

// Only a terminal obeys control characters; programs get the bytes as they came.
void Print(std::ostream& out, int fd, const std::string& text) {
  out << (isatty(fd) ? Printable(text) : text) << std::flush;
}

}  // namespace

App::App(const Session& commands, bool asJson) : session(commands), json(asJson) {}

Result App::Run(const std::string& line) const {
  std::vector<std::string> words = SplitWords(line);
  if (!words.empty() && words[0] == "top") return RunTop(session, words, json);
  if (!words.empty() && words[0] == "quit") return SUCCESS;
  const bool asJson = json && words.size() == 1 && words[0] == "status";
  Outcome outcome = json && !asJson ? Complaint("--json is for `status` and `top`")
                                    : session.Execute(asJson ? "status --json" : line);
  if (outcome.complaint) {
    Print(std::cerr, STDERR_FILENO, outcome.text);
  } else {
    Print(std::cout, STDOUT_FILENO, outcome.text);
  }
  if (std::cout) return outcome.result;
  std::cerr << "Cannot write the reply: " << std::strerror(errno) << "\n";
  return FAILED;
}

bool App::RunPromptLine(const std::string& line) const {
  const std::vector<std::string> words = SplitWords(line);
  if (words.size() == 1 && (words[0] == "quit" || words[0] == "exit")) return false;
  // The full screen has an end of its own.
  if (!words.empty() && words[0] == "top") {
    Run(line);
  } else {
    const InterruptGuard guard;
    Run(line);
  }
  return true;
}

Result App::RunScript(const std::string& file) const {
  std::ifstream opened;
  if (file != "-") {
    opened.open(file);
    if (!opened) {
      std::cerr << file << ": " << std::strerror(errno) << "\n";
      return FAILED;
    }
  }
  std::istream& script = file == "-" ? std::cin : opened;
  const auto show = [](const std::string& reply) { Print(std::cout, STDOUT_FILENO, reply); };
  return session.RunScript(script, file, show, std::cerr);
}

}  // namespace vosh
