// A real-time thread wakes a patient one.
#pragma once

#include <atomic>
#include <chrono>

#if defined(__APPLE__)
#include <dispatch/dispatch.h>
#else
#include <semaphore.h>
#include <time.h>
#include <cerrno>
#endif

namespace zelk::blocks {

/// One thread waits, with a time limit, for what another one brings about; the other neither locks
/// nor allocates, and makes a system call only when somebody waits.
class Wake {
 public:
#if defined(__APPLE__)
  Wake() : semaphore(dispatch_semaphore_create(0)) {}
  ~Wake() {
    dispatch_release(semaphore);
  }
#else
  Wake() {
    sem_init(&semaphore, 0, 0);
  }
  ~Wake() {
    sem_destroy(&semaphore);
  }
#endif
  Wake(const Wake&) = delete;
  Wake& operator=(const Wake&) = delete;

  /// Call after each change that `ready` below may look at. [any-thread, real-time safe]
  void Notify() noexcept {
    // Exchanges on both sides: one of the two threads always sees what the other did before.
    if (!waiting.exchange(false, std::memory_order_acq_rel)) return;
#if defined(__APPLE__)
    dispatch_semaphore_signal(semaphore);
#else
    sem_post(&semaphore);
#endif
  }

  /// Whether `ready()` came true within `limit`. One thread at a time.
  template <class Ready>
  bool WaitFor(std::chrono::milliseconds limit, Ready&& ready) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!ready()) {
      waiting.exchange(true, std::memory_order_acq_rel);
      if (ready()) break;
      if (!SleepUntil(deadline)) return ready();
    }
    return true;
  }

 private:
  /// False when the time is over.
  bool SleepUntil(std::chrono::steady_clock::time_point deadline) {
    using namespace std::chrono;
#if defined(__APPLE__)
    const auto left = duration_cast<nanoseconds>(deadline - steady_clock::now()).count();
    return left > 0 &&
           dispatch_semaphore_wait(semaphore, dispatch_time(DISPATCH_TIME_NOW, left)) == 0;
#else
    const auto since = deadline.time_since_epoch();  // this clock is CLOCK_MONOTONIC
    const auto whole = duration_cast<seconds>(since);
    const timespec until{static_cast<time_t>(whole.count()),
                         static_cast<long>(duration_cast<nanoseconds>(since - whole).count())};
    // Interrupted by a signal counts as woken: the caller looks again.
    return sem_clockwait(&semaphore, CLOCK_MONOTONIC, &until) == 0 || errno != ETIMEDOUT;
#endif
  }

  std::atomic<bool> waiting = false;
#if defined(__APPLE__)
  dispatch_semaphore_t semaphore;
#else
  sem_t semaphore;
#endif
};

}  // namespace zelk::blocks
