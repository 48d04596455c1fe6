// A route with a log of its own life, for tests that go through the public interface.
#pragma once

#include <gtest/gtest.h>
#include <zelk/Zelk.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <thread>
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

using Lines = std::vector<std::string>;

const std::string STARTED = "I src/Route Start_l: RouteA: Started";
const std::string RUNNING = "I src/Route Start_l: RouteA: Status is RUNNING";
const std::string STOPPING = "I src/Route Stop_l: RouteA: Stopping";
const std::string HAS_STOPPED = "I src/Route Stop_l: RouteA: Stopped";

/// A record of the route "LEVEL FUNCTION: TEXT" as the trace holds it.
inline std::string Record(const std::string& levelFunctionAndText) {
  return levelFunctionAndText.substr(0, 2) + "src/Route " + levelFunctionAndText.substr(2);
}

/// A record of the frame loop, from its level and text.
inline std::string Loop(const std::string& levelAndText) {
  return Record(levelAndText.substr(0, 2) + "MainThreadLoop: RouteA: " + levelAndText.substr(2));
}

/// The record of an action of this kind.
inline std::string Processing(const std::string& kind) {
  return Record("D ProcessActions: RouteA: Processing action '" + kind + "'");
}

/// A frame that leaves other threads some time.
inline long Pace(ScriptedBlock*) {
  std::this_thread::yield();
  return 0;
}

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
  /// Makes `count` blocks "b0", "b1", ... that are source and sink at once; in address order.
  std::vector<ScriptedBlock*> MakeLone(std::size_t count) {
    std::vector<ScriptedBlock*> made;
    for (std::size_t i = 0; i < count; ++i) {
      made.push_back(New(Numbered("b", i), true, true));
    }
    std::sort(made.begin(), made.end(), std::less<>());
    return made;
  }
  /// The route still builds, runs and stops a graph.
  void ExpectUsable() {
    callbacks.on.clear();
    EXPECT_EQ(0, route->DeleteAll());
    Scripts().clear();
    Scripts()["src"].on["ProcessFrame"] = Results({0});
    MakePair();
    EXPECT_EQ(1, CountOf(Run(), "dst.ProcessFrame"));
    EXPECT_EQ(0, route->DeleteAll());
  }

  NotingCallbacks callbacks;
  zelk::Route* route = nullptr;
  ScriptedBlock* src = nullptr;
  ScriptedBlock* dst = nullptr;
};

}  // namespace test
