// Starts the library's own threads.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <memory>
#include <thread>
#include <utility>

namespace zelk {

/// Blocks asynchronous signals in the calling thread while it lives, for a thread started meanwhile
/// to inherit: a host's signals belong to the host's threads. Faults still reach their own thread.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t blocked;
    sigfillset(&blocked);
    for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS}) {
      sigdelset(&blocked, fault);
    }
    pthread_sigmask(SIG_SETMASK, &blocked, &before);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before;
};

/// Throws what the creation of a thread throws.
template <typename... Args>
std::shared_ptr<std::thread> StartThread(Args&&... args) {
  SignalsBlocked signals;
  return std::make_shared<std::thread>(std::forward<Args>(args)...);
}

}  // namespace zelk
