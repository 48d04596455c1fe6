#include "Record.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace vantrel {
namespace {

// Collects text up to the end of a buffer and counts what did not fit.
class Text {
 public:
  Text(char* buffer, std::size_t bufferSize) : at(buffer), size(bufferSize) {}

  void Put(const char* text, std::size_t count) {
    if (length < size) std::memcpy(at + length, text, count < Room() ? count : Room());
    length += count;
  }

  void PutDigits(std::int64_t value, int digits) {
    char text[20];
    for (int i = digits; i-- > 0; value /= 10)
      text[i] = static_cast<char>('0' + value % 10);
    Put(text, static_cast<std::size_t>(digits));
  }

  void Print(const char* format, va_list args) __attribute__((format(printf, 2, 0))) {
    const int count = std::vsnprintf(length < size ? at + length : nullptr, Room(), format, args);
    if (count >= 0) {
      length += static_cast<std::size_t>(count);
    } else {  // not representable in this locale, say; the format still tells what happened
      Put(format, std::strlen(format));
    }
  }

  std::size_t Room() const { return length < size ? size - length : 0; }
  std::size_t length = 0;

 private:
  char* at;
  std::size_t size;
};

// UTC by plain arithmetic. Local time would come from `localtime_r`, which takes a lock of the C
// library: a child forked while another thread holds it would hang in its first record. UTC also
// never repeats an hour.
void PutTime(Text& text, const timespec& time) {
  constexpr std::int64_t DAY = 86400;
  std::int64_t days = time.tv_sec / DAY;
  std::int64_t second = time.tv_sec % DAY;
  if (second < 0) {
    second += DAY;
    days -= 1;
  }
  // Years begin in March here, so that the leap day is a year's last; eras of 400 years are alike.
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const std::int64_t dayOfEra = days - era * 146097;
  const std::int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
  const std::int64_t day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
  const std::int64_t month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;

  text.PutDigits(yearOfEra + era * 400 + (month <= 2 ? 1 : 0), 4);
  text.Put("-", 1);
  text.PutDigits(month, 2);
  text.Put("-", 1);
  text.PutDigits(day, 2);
  text.Put(" ", 1);
  text.PutDigits(second / 3600, 2);
  text.Put(":", 1);
  text.PutDigits(second / 60 % 60, 2);
  text.Put(":", 1);
  text.PutDigits(second % 60, 2);
  text.Put(".", 1);
  text.PutDigits(time.tv_nsec / 1000, 6);
  text.Put("Z ", 2);
}

void PutOrigin(Text& text, const Event& event) {
  const char* file = event.file != nullptr ? event.file : "?";
  const char* function = event.function != nullptr ? event.function : "?";
  char line[16];
  const int digits = std::snprintf(line, sizeof line, ":%d ", event.line);
  text.Put(file, std::strlen(file));
  text.Put(line, static_cast<std::size_t>(digits));
  text.Put(function, std::strlen(function));
  text.Put(": ", 2);
}

}  // namespace

std::size_t Compose(char* buffer, std::size_t size, const Event& event, va_list args) {
  Text text(buffer, size);
  PutTime(text, event.time);
  const char level[] = {event.level, ' '};
  text.Put(level, sizeof level);
  if (event.withOrigin) PutOrigin(text, event);
  text.Print(event.format != nullptr ? event.format : "(null)", args);
  return text.length;
}

const char* Colour(char level) {
  switch (level) {
    case 'E':
      return "\033[31m";
    case 'W':
      return "\033[33m";
    case 'D':
      return "\033[36m";
    case 'V':
      return "\033[90m";
    default:
      return nullptr;
  }
}

}  // namespace vantrel
