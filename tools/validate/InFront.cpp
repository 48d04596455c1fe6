// Functions of other libraries that this program puts its own in front of.
#include "InFront.h"

#include <vantrel.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "Report.h"

#if defined(__linux__)
#include <dlfcn.h>
#include <sys/socket.h>

#include <cerrno>
#endif

namespace validate {

namespace {

std::atomic<bool> consoleRefused = false;
std::atomic<bool> all = false;
thread_local long allocations = 0;

void Judge(const char* text) {
  // The library caught what left a hook, or refused what could never return.
  if (std::strstr(text, " threw: ")) Report::Fault(text);
  if (std::strstr(text, "for the route's own thread")) Report::Fault(text);
}

}  // namespace

bool ConsoleRefused() {
  return consoleRefused;
}

void SendAllRecords() {
  all = true;
}

long Allocations() {
  return allocations;
}

}  // namespace validate

// The records go to the one who reads the report.
extern "C" VANTREL_EXPORT void vantrel_print(int, int, int, char level, const char* file, int line,
                                             const char* function, const void*, const char* format,
                                             ...) {
  if (level != 'E' && level != 'W' && !validate::all) return;
  char text[400];
  std::va_list values;
  va_start(values, format);
  std::vsnprintf(text, sizeof(text), format, values);
  va_end(values);
  validate::Judge(text);
  char where[100];
  std::snprintf(where, sizeof(where), "%c %s:%d %s: ", level, file ? file : "", line,
                function ? function : "");
  validate::Report::Send(validate::LOG, std::string(where) + text);
}

#if defined(__linux__)

// The library's console would take the place of a running host's. It asks for a socket once, before
// any block is loaded; what blocks ask for later is theirs.
extern "C" ZELK_IN_FRONT int socket(int domain, int type, int protocol) noexcept {
  if (domain == AF_UNIX && !validate::consoleRefused.exchange(true)) {
    errno = EACCES;
    return -1;
  }
  static const auto next = reinterpret_cast<int (*)(int, int, int)>(dlsym(RTLD_NEXT, "socket"));
  return next(domain, type, protocol);
}

#endif

// Counted, to tell whether a warm block still allocates in its frames.
ZELK_IN_FRONT void* operator new(std::size_t size) {
  ++validate::allocations;
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
ZELK_IN_FRONT void operator delete(void* memory) noexcept {
  std::free(memory);
}
ZELK_IN_FRONT void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
