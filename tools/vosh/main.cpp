// The console client.
#include <getopt.h>
#include <unistd.h>
#include <clocale>
#include <cstdlib>
#include <iostream>

#include "App.h"
#include "CommandTable.h"
#include "Completion.h"
#include "Interrupt.h"
#include "Prompt.h"
#include "Text.h"

namespace {

using namespace vosh;

constexpr const char* kUsage =
    "Usage: vosh [OPTION ...] [COMMAND [ARG ...]]\n"
    "Drives and watches a running zelk host; without COMMAND, at a prompt.\n\n"
    "  -f, --file FILE        carry out the commands of FILE (- is standard input)\n"
    "  -j, --json             `status` and `top` as JSON\n"
    "  -t, --timeout SECONDS  give up on a silent host after that time; 0 never does (30)\n"
    "  -h, --help             this text\n"
    "  -V, --version          the version\n\n"
    "Exit status: 0 success, 1 a command failed, 2 no host answers.\n\nCommands:\n";

struct Options {
  std::string script;
  std::string toComplete;
  bool completing = false;
  bool json = false;
  double timeout = 30;
};

[[noreturn]] void Misused(const char* text) {
  std::cerr << text << "See vosh --help.\n";
  std::exit(FAILED);
}

void ParseTimeout(const char* text, Options& options) {
  char* end = nullptr;
  options.timeout = std::strtod(text, &end);
  if (end == text || *end != '\0' || !(options.timeout >= 0 && options.timeout <= 1e6)) {
    Misused("The time-out is a number of seconds. ");
  }
}

Options ParseOptions(int argc, char** argv) {
  static const option kLong[] = {
      {"file", required_argument, nullptr, 'f'},
      {"json", no_argument, nullptr, 'j'},
      {"timeout", required_argument, nullptr, 't'},
      {"help", no_argument, nullptr, 'h'},
      {"version", no_argument, nullptr, 'V'},
      {"complete", required_argument, nullptr, 'c'},
      {nullptr, 0, nullptr, 0},
  };
  Options options;
  // "+": options behind the command word are the command's.
  for (int key; (key = getopt_long(argc, argv, "+f:jt:hV", kLong, nullptr)) != -1;) {
    switch (key) {
      case 'f':
        options.script = optarg;
        break;
      case 'j':
        options.json = true;
        break;
      case 't':
        ParseTimeout(optarg, options);
        break;
      case 'c':
        options.completing = true;
        options.toComplete = optarg;
        break;
      case 'h':
        std::cout << kUsage << HelpText();
        std::exit(SUCCESS);
      case 'V':
        std::cout << "vosh " VOSH_VERSION "\n";
        std::exit(SUCCESS);
      default:
        Misused("");
    }
  }
  return options;
}

int Main(int argc, char** argv) {
  const Options options = ParseOptions(argc, argv);
  const std::vector<std::string> words(argv + optind, argv + argc);
  double seconds = options.timeout;
  if (options.completing) seconds = 1;  // nobody waits longer for a key press
  const bool prompt = options.script.empty() && words.empty() && !options.json &&
                      !options.completing && isatty(STDIN_FILENO);
  const Client client(Client::Milliseconds(static_cast<long>(seconds * 1000)),
                      prompt ? InterruptDescriptor() : -1);
  const Session session(client, isatty(STDERR_FILENO) ? &std::cerr : nullptr);
  const App app(session, options.json);
  if (options.completing) {
    for (const std::string& word : Complete(session, options.toComplete)) {
      std::cout << word << '\n';
    }
    return SUCCESS;
  }
  if (!options.script.empty()) return app.RunScript(options.script);
  if (!words.empty()) return app.Run(JoinWords(words));
  if (options.json) return app.Run("status");
  if (!prompt) return app.RunScript("-");
  RunPrompt(app);
  return SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");
  try {
    return Main(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "vosh: " << error.what() << "\n";
    return FAILED;
  }
}
