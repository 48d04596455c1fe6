// A record that its level suppresses, and one that goes to a file; beside them a call that does
// nothing, and the bare system call.
#include <fcntl.h>
#include <unistd.h>
#include <vantrel.h>

#include <cstdlib>
#include <memory>

#include "ZelkGraph.h"

using namespace bench;

namespace {

void Record(char level) {
  vantrel_print(0, 0, 0, level, "bench", __LINE__, "Record", nullptr, "%s: %s %sis done", "RouteA",
                "gain_0", "");
}

// Out of sight for the optimiser, as a call into another library is.
[[gnu::noinline]] void Nothing(const char* text) {
  asm volatile("" : : "r"(text) : "memory");
}

constexpr char FILE_NAME[] = "/tmp/zelk-bench-records.log";
constexpr char LINE[] = "I/bench Record RouteA: gain_0 is done\n";

Work ToFile() {
  vantrel_set_file(FILE_NAME);
  return OnThisThread([] { Record('I'); });
}

Work BareWrite() {
  const int file = open("/tmp/zelk-bench-write.log", O_CREAT | O_WRONLY | O_APPEND | O_TRUNC, 0644);
  Require(file >= 0, "open");
  return OnThisThread([file] { Require(write(file, LINE, sizeof LINE - 1) > 0, "write"); });
}

}  // namespace

void AddLogging() {
  Add("log-suppressed/empty call", [] { return OnThisThread([] { Nothing(LINE); }); });
  Add("log-suppressed/vantrel", [] { return OnThisThread([] { Record('V'); }); });
  Add("log-emitted/write()", BareWrite);
  Add("log-emitted/vantrel", ToFile);
}
