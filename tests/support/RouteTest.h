// A route with a log of its own life, for tests that go through the public interface.
#pragma once

#include <gtest/gtest.h>
#include <zelk/Zelk.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/LogRecorder.h"
#include "support/ScriptedBlock.h"

namespace test {

/// Notes callbacks as "OnStarted", "OnStopped 2", "OnExit"; then runs what `on` holds for them.
class NotingCallbacks : public zelk::Route::Callbacks {
 public:
  std::map<std::string, std::function<void()>> on;

  void OnStarted() override { Hear("OnStarted", ""); }
  void OnStopped(zelk::Route::StopReason reason) override {
    Hear("OnStopped", std::string(" ").append(std::to_string(reason)));
  }
  void OnExit() override { Hear("OnExit", ""); }

 private:
  void Hear(const std::string& what, const std::string& detail) {
    Note(what + detail);
    const auto entry = on.find(what);
    if (entry != on.end()) entry->second();
  }
};

/// Gives each test a stopped, empty RouteA and an empty trace.
class RouteTest : public ::testing::Test {
 protected:
  static constexpr char STOPPED[] = "D src/Route Preprocess: RouteA: Status is STOPPED";
  static constexpr char BROKEN[] =
      "I src/Route Preprocess: RouteA: Status is BROKEN_RUNNING, wait for new actions...";

  void SetUp() override {
    Scripts().clear();
    TakeTrace();
    route = zelk::Zelk::Instance()->NewRoute("RouteA", &callbacks);
    ASSERT_NE(nullptr, route);
    WaitFor(STOPPED);
    TakeTrace();
  }
  void TearDown() override {
    callbacks.on.clear();
    zelk::Zelk::Instance()->DeleteRoute(route);
    Scripts().clear();
  }

  ScriptedBlock* New(const std::string& label, bool first, bool last,
                     const char* file = "scripted.so") {
    return static_cast<ScriptedBlock*>(route->NewBlock(file, first, last, {label}));
  }
  zelk::Link* Join(zelk::Block* source, unsigned long out, zelk::Block* sink, unsigned long in) {
    return route->NewLink(48000, zelk::S16_LE, 2, 480, source, out, sink, in);
  }
  /// Makes "src" (a source) and "dst" (a sink) and joins them; their scripts come first.
  void MakePair() {
    src = New("src", true, false);
    dst = New("dst", false, true);
    ASSERT_NE(nullptr, Join(src, 0, dst, 0));
  }
  /// Starts the route, waits until it has stopped by itself, and returns what happened.
  std::vector<std::string> Run(const std::string& levels = "EWIDV") {
    TakeTrace();
    EXPECT_EQ(0, route->Start());
    WaitFor(STOPPED);
    return TakeTrace(levels);
  }

  NotingCallbacks callbacks;
  zelk::Route* route = nullptr;
  ScriptedBlock* src = nullptr;
  ScriptedBlock* dst = nullptr;
};

using Lines = std::vector<std::string>;

/// `text` with a number behind it.
inline std::string Numbered(std::string text, std::size_t number) {
  return text.append(std::to_string(number));
}

/// From now on the trace tells when the calling thread ends: "thread ended".
inline void NoteTheEndOfThisThread() {
  struct End {
    ~End() { Note("thread ended"); }
    bool touched = false;
  };
  static thread_local End end;
  end.touched = true;
}

/// How many lines are exactly `text`.
inline long CountOf(const Lines& lines, const std::string& text) {
  return std::count(lines.begin(), lines.end(), text);
}

/// The lines that contain `part`.
inline Lines With(const Lines& lines, const std::string& part) {
  Lines found;
  for (const auto& line : lines) {
    if (line.find(part) != std::string::npos) found.push_back(line);
  }
  return found;
}

}  // namespace test
