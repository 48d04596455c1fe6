// Lets a route run a number of frames back to back, and tells what they took.
#pragma once

#include <time.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace bench {

/// `Block::ioctl` commands of the bench's blocks.
enum : unsigned int {
  SET_GATE = 1,  ///< arg: the Gate of a source
  GET_IN = 2,    ///< arg: FrameBuffer**, receives the descriptor of input 0
  GET_OUT = 3,   ///< arg: FrameBuffer**, receives the descriptor of output 0
};

/// The host opens it for a number of frames; the source passes it once per frame and waits in it
/// between two runs. Times are taken on the route's thread, right before the first frame of a run
/// and right after the last, so what the hand-shake costs is not among them.
class Gate {
 public:
  // Host.

  void Open(std::int64_t frames) {
    std::lock_guard lock(mutex);
    todo = frames;
    finished = false;
    changed.notify_all();
  }

  /// Processor seconds of the route's thread. Call after `Open`.
  double Wait() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return finished; });
    return seconds;
  }

  void Quit() {
    std::lock_guard lock(mutex);
    quit = true;
    changed.notify_all();
  }

  // Source, on the route's thread.

  /// False once the gate is of no use any more.
  bool Pass() {
    if (left > 0) {
      --left;
      return true;
    }
    return AwaitRun();
  }

 private:
  static double ThreadSeconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
  }

  bool AwaitRun() {
    const double end = ThreadSeconds();
    std::unique_lock lock(mutex);
    if (running) {
      seconds = end - begin;
      running = false;
      finished = true;
      changed.notify_all();
    }
    changed.wait(lock, [&] { return todo > 0 || quit; });
    if (quit) return false;
    left = todo - 1;
    todo = 0;
    running = true;
    begin = ThreadSeconds();
    return true;
  }

  // Route thread only.
  std::int64_t left = 0;
  bool running = false;
  double begin = 0;

  std::mutex mutex;
  std::condition_variable changed;
  std::int64_t todo = 0;
  bool finished = false;
  bool quit = false;
  double seconds = 0;
};

}  // namespace bench
