// For tests of hundreds of processes: ThreadSanitizer lets each wait a second at its end otherwise,
// and finds fault with the thread of a dead route, which nobody can join.
#include <zelk/Export.h>

extern "C" ZELK_EXPORT const char* __tsan_default_options();

const char* __tsan_default_options() {
  return "atexit_sleep_ms=0:report_thread_leaks=0";
}
