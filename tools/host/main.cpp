// A host process for graphs that need no program of their own.
#include <getopt.h>
#include <zelk/Zelk.h>
#include <iostream>

#include "Host.h"
#include "Signals.h"

namespace {

using namespace zelk_host;

constexpr const char* kUsage =
    "Usage: zelk-host [OPTION ...] [FILE.vosh ...]\n"
    "Hosts zelk: carries out the console commands of the files, then serves the console until\n"
    "SIGINT or SIGTERM.\n\n"
    "  -u, --until-stopped  end when no route is running any more\n"
    "  -s, --summary        at the end, tell each route's state and frames\n"
    "  -q, --quiet          do not print the replies to the files' commands\n"
    "  -h, --help           this text\n"
    "  -V, --version        the version\n\n"
    "Exit status: 0 success, 1 a command of a file failed, 2 the console cannot be served; with\n"
    "--until-stopped also 3 frames failed, 4 a route is BROKEN_RUNNING.\n";

// True to go on; else `status` is the exit status.
bool ParseOptions(int argc, char** argv, Options& options, int& status) {
  static const option kLong[] = {
      {"until-stopped", no_argument, nullptr, 'u'}, {"summary", no_argument, nullptr, 's'},
      {"quiet", no_argument, nullptr, 'q'},         {"help", no_argument, nullptr, 'h'},
      {"version", no_argument, nullptr, 'V'},       {nullptr, 0, nullptr, 0},
  };
  for (int key; (key = getopt_long(argc, argv, "usqhV", kLong, nullptr)) != -1;) {
    switch (key) {
      case 'u':
        options.untilStopped = true;
        break;
      case 's':
        options.summary = true;
        break;
      case 'q':
        options.quiet = true;
        break;
      case 'h':
        std::cout << kUsage;
        status = OK;
        return false;
      case 'V':
        std::cout << "zelk-host " ZELK_HOST_VERSION "\n";
        status = OK;
        return false;
      default:
        std::cerr << "See zelk-host --help.\n";
        status = SCRIPT_FAILED;
        return false;
    }
  }
  options.scripts.assign(argv + optind, argv + argc);
  return true;
}

int Main(int argc, char** argv) {
  Options options;
  int status = OK;
  if (!ParseOptions(argc, argv, options, status)) return status;
  // A second host would take the console away from the first.
  if (vosh::Client().Probe()) {
    std::cerr << "zelk-host: another host serves the console at " << vosh::kSocketPath << "\n";
    return NO_CONSOLE;
  }
  BlockSignals();
  zelk::Zelk::Instance();
  return Host(options, CatchSignals()).Run();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "zelk-host: " << error.what() << "\n";
    return NO_CONSOLE;
  }
}
