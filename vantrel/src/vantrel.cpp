#include "vantrel.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Output.h"
#include "Record.h"

namespace vantrel {
namespace {

// All state is constant-initialised and has no destructor: records of static constructors and
// destructors, and those of a forked child, find it as it is.
constinit std::atomic<int> threshold{4};
constinit std::atomic<int> options{VANTREL_SHORT | VANTREL_STDERR};
static_assert(std::atomic<int>::is_always_lock_free);

enum Terminal : signed char { UNKNOWN, NO, YES };
constinit std::atomic<Terminal> terminals[] = {UNKNOWN, UNKNOWN};  // standard output and error

constexpr int ThresholdOf(char level) {
  switch (level) {
    case 'W':
      return 3;
    case 'I':
      return 4;
    case 'D':
      return 5;
    case 'V':
      return 6;
    default:
      return 2;  // an unknown letter is not lost among the quiet ones
  }
}

// Asked once per switching on, since it is a system call.
bool IsTerminal(int descriptor) {
  std::atomic<Terminal>& known = terminals[descriptor - STDOUT_FILENO];
  Terminal answer = known.load(std::memory_order_relaxed);
  if (answer == UNKNOWN) {
    answer = isatty(descriptor) == 1 ? YES : NO;
    known.store(answer, std::memory_order_relaxed);
  }
  return answer == YES;
}

void ForgetTerminals(int mask) {
  if (mask & VANTREL_STDOUT) terminals[0].store(UNKNOWN, std::memory_order_relaxed);
  if (mask & VANTREL_STDERR) terminals[1].store(UNKNOWN, std::memory_order_relaxed);
}

// `text` has COLOUR_SIZE bytes of room before it and TAIL_SIZE behind. Plain outputs come first;
// then the same bytes get their colour.
void Write(char* text, std::size_t length, char level, int outputs, int file) {
  const char* colour = Colour(level);
  text[length] = '\n';
  const PipeSignalHeld held;
  if (file >= 0) held.WriteWhole(file, text, length + 1);
  int coloured = 0;
  for (int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
    if ((outputs & descriptor) == 0) continue;
    if (colour != nullptr && IsTerminal(descriptor)) {
      coloured |= descriptor;
    } else {
      held.WriteWhole(descriptor, text, length + 1);
    }
  }
  if (coloured == 0) return;
  std::memcpy(text - COLOUR_SIZE, colour, COLOUR_SIZE);
  std::memcpy(text + length, "\033[0m\n", TAIL_SIZE);
  for (int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
    if (coloured & descriptor) {
      held.WriteWhole(descriptor, text - COLOUR_SIZE, COLOUR_SIZE + length + TAIL_SIZE);
    }
  }
}
static_assert(VANTREL_STDOUT == STDOUT_FILENO && VANTREL_STDERR == STDERR_FILENO);

// A message may bring a newline of its own: the record still ends in one.
std::size_t WithoutNewlines(const char* text, std::size_t length) {
  while (length > 0 && text[length - 1] == '\n')
    --length;
  return length;
}

void Emit(Event& event, va_list args) {
  const int enabled = options.load(std::memory_order_relaxed);
  const int outputs = enabled & (VANTREL_STDOUT | VANTREL_STDERR);
  const int file = LogFile();
  if (outputs == 0 && file < 0) return;

  const int error = errno;
  clock_gettime(CLOCK_REALTIME, &event.time);
  event.withOrigin = (enabled & VANTREL_SHORT) == 0;

  char small[1024];
  constexpr std::size_t SMALL_ROOM = sizeof small - COLOUR_SIZE - TAIL_SIZE;
  char* text = small + COLOUR_SIZE;
  char* large = nullptr;
  va_list again;
  va_copy(again, args);
  errno = error;  // for %m
  std::size_t length = Compose(text, SMALL_ROOM, event, args);
  if (length >= SMALL_ROOM) {  // the formatting keeps a byte for its terminator
    large = static_cast<char*>(std::malloc(COLOUR_SIZE + length + 1 + TAIL_SIZE));
    if (large != nullptr) {
      text = large + COLOUR_SIZE;
      errno = error;
      length = std::min(length, Compose(text, length + 1, event, again));
    } else {
      length = SMALL_ROOM - 1;
    }
  }
  va_end(again);
  Write(text, WithoutNewlines(text, length), event.level, outputs, file);
  std::free(large);
  errno = error;
}

}  // namespace
}  // namespace vantrel

void vantrel_print(int, int, int, char level, const char* file, int line, const char* function,
                   const void*, const char* format, ...) {
  if (vantrel::threshold.load(std::memory_order_relaxed) < vantrel::ThresholdOf(level)) return;
  vantrel::Event event{{}, level, false, file, line, function, format};
  va_list args;
  va_start(args, format);
  vantrel::Emit(event, args);
  va_end(args);
}

int vantrel_set_level(int level) {
  const int clamped = std::clamp(level, 0, 6);
  vantrel::threshold.store(clamped, std::memory_order_relaxed);
  return clamped;
}

int vantrel_enable_options(int mask) {
  vantrel::ForgetTerminals(mask);
  return vantrel::options.fetch_or(mask, std::memory_order_relaxed) | mask;
}

int vantrel_disable_options(int mask) {
  return vantrel::options.fetch_and(~mask, std::memory_order_relaxed) & ~mask;
}

int vantrel_set_file(const char* path) {
  return vantrel::SetLogFile(path);
}
