// What a running route tells the check that waits for it.
#pragma once

#include <zelk/Route.h>

#include <condition_variable>
#include <mutex>

namespace validate {

/// Counts the frames of a running route and hears of its end.
class Listener : public zelk::Route::Callbacks {
 public:
  void OnStopped(zelk::Route::StopReason why) override {
    const std::lock_guard lock(mutex);
    reason = why;
    stopped = true;
    changed.notify_all();
  }
  void Count() {
    const std::lock_guard lock(mutex);
    ++frames;
    changed.notify_all();
  }
  void Begin() {
    const std::lock_guard lock(mutex);
    stopped = false;
    frames = 0;
  }
  /// False when the route ended before.
  bool Await(int wanted) {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return stopped || frames >= wanted; });
    return !stopped;
  }
  bool Failed() {
    const std::lock_guard lock(mutex);
    return stopped && reason == zelk::Route::FAILURE;
  }

 private:
  std::mutex mutex;
  std::condition_variable changed;
  zelk::Route::StopReason reason = zelk::Route::NORMAL;
  bool stopped = false;
  int frames = 0;
};

}  // namespace validate
