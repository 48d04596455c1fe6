// A mutex and a lock that clang's thread-safety analysis follows through condition variables.
//
// The annotations are empty for other compilers and appear in no public header.
#pragma once

#include <mutex>

#if defined(__clang__)
#define ZELK_TSA(attribute) __attribute__((attribute))
#else
#define ZELK_TSA(attribute)
#endif

#define ZELK_GUARDED_BY(mutex) ZELK_TSA(guarded_by(mutex))
#define ZELK_REQUIRES(mutex) ZELK_TSA(requires_capability(mutex))
#define ZELK_EXCLUDES(mutex) ZELK_TSA(locks_excluded(mutex))

namespace zelk {

class ZELK_TSA(capability("mutex")) Mutex : public std::mutex {
 public:
  void lock() ZELK_TSA(acquire_capability()) { std::mutex::lock(); }
  void unlock() ZELK_TSA(release_capability()) { std::mutex::unlock(); }
  bool try_lock() ZELK_TSA(try_acquire_capability(true)) { return std::mutex::try_lock(); }
};

class ZELK_TSA(scoped_lockable) Lock : public std::unique_lock<std::mutex> {
 public:
  explicit Lock(Mutex& mutex) ZELK_TSA(acquire_capability(mutex))
      : std::unique_lock<std::mutex>(mutex) {}
  ~Lock() ZELK_TSA(release_capability()) = default;
};

}  // namespace zelk
