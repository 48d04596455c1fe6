// Turns one event into the text of its record.
#pragma once

#include <time.h>

#include <cstdarg>
#include <cstddef>

namespace vantrel {

struct Event {
  timespec time;
  char level;
  bool withOrigin;  // source, line and function go into the record
  const char* file;
  int line;
  const char* function;
  const char* format;
};

/// Bytes that a record has at most besides what `Compose` counts: a colour before, its end and the
/// newline after.
constexpr std::size_t COLOUR_SIZE = 5;
constexpr std::size_t TAIL_SIZE = 5;

/// Writes the record's text, without a newline, as far as `size` bytes hold it, and returns the
/// length that it has in full. `args` is used up.
std::size_t Compose(char* text, std::size_t size, const Event& event, va_list args);

/// The escape sequence, of COLOUR_SIZE bytes, that begins a record on a terminal; null for none.
const char* Colour(char level);

}  // namespace vantrel
