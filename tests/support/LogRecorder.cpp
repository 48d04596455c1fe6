#include "support/LogRecorder.h"

#include <gtest/gtest.h>
#include <unistd.h>
#include <vantrel.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

namespace test {
namespace {

struct Line {
  char level;  // 0 for a line that is no log record
  std::string text;
};

struct Trace {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<Line> lines;
  int mirror = -1;
  std::atomic<bool> console{false};
};

// Never destroyed: the library logs during static destruction.
Trace& TheTrace() {
  static auto* const trace = new Trace;
  return *trace;
}

void Add(char level, const std::string& text) {
  auto& trace = TheTrace();
  const std::lock_guard lock(trace.mutex);
  trace.lines.push_back({level, text});
  if (trace.mirror >= 0) {
    const std::string out = text + "\n";
    if (write(trace.mirror, out.data(), out.size()) < 0) std::perror("mirror");
  }
  trace.changed.notify_all();
}

}  // namespace

void Note(const std::string& text) {
  Add(0, text);
}

std::vector<std::string> TakeTrace(const std::string& levels) {
  auto& trace = TheTrace();
  std::vector<Line> lines;
  {
    const std::lock_guard lock(trace.mutex);
    lines.swap(trace.lines);
  }
  std::vector<std::string> texts;
  for (const auto& line : lines) {
    if (line.level == 0 || levels.find(line.level) != std::string::npos) texts.push_back(line.text);
  }
  return texts;
}

void WaitFor(const std::string& wanted, int times) {
  auto& trace = TheTrace();
  std::unique_lock lock(trace.mutex);
  const auto present = [&] {
    return std::count_if(trace.lines.begin(), trace.lines.end(),
                         [&](const Line& line) { return line.text == wanted; }) >= times;
  };
  if (trace.changed.wait_for(lock, std::chrono::minutes(1), present)) return;
  std::string seen;
  for (const auto& line : trace.lines)
    seen += line.text + "\n";
  ADD_FAILURE() << "never seen: " << wanted << "\nbut:\n" << seen.substr(0, 4000);
}

void TraceConsole(bool on) {
  TheTrace().console = on;
}

void MirrorTrace(int fd) {
  const std::lock_guard lock(TheTrace().mutex);
  TheTrace().mirror = fd;
}

std::string PointerText(const void* pointer) {
  char text[32];
  std::snprintf(text, sizeof text, "%p", pointer);
  return text;
}

}  // namespace test

extern "C" {

void vantrel_print(int a, int b, int c, char level, const char* file, int line,
                   const char* function, const void* reserved, const char* format, ...) {
  if (!test::TheTrace().console && std::strcmp(function, "DebugThreadLoop") == 0) return;
  char message[2048];
  va_list args;
  va_start(args, format);
  std::vsnprintf(message, sizeof message, format, args);
  va_end(args);
  const bool wellFormed = a == 0 && b == 0 && c == 0 && line > 0 && reserved == nullptr;
  test::Add(level, std::string(1, level) + " " + file + " " + function + ": " + message +
                       (wellFormed ? "" : "<malformed>"));
}

int vantrel_set_level(int level) {
  test::Note("vantrel_set_level(" + std::to_string(level) + ")");
  return level;
}

int vantrel_enable_options(int mask) {
  test::Note("vantrel_enable_options(" + std::to_string(mask) + ")");
  return mask;
}

int vantrel_disable_options(int mask) {
  test::Note("vantrel_disable_options(" + std::to_string(mask) + ")");
  return 0;
}

int vantrel_set_file(const char* path) {
  test::Note(std::string("vantrel_set_file(") + (path == nullptr ? "null" : path) + ")");
  return path != nullptr && std::strncmp(path, "/missing/", 9) == 0 ? -1 : 0;
}

}  // extern "C"
