// Lets an interrupt at the prompt end the command that is being carried out, not vosh.
#pragma once

#include <csignal>

namespace vosh {

/// Readable once a command was interrupted; for the prompt's client. -1 when there is none left.
int InterruptDescriptor();

/// While one lives, SIGINT makes that descriptor readable. It is quiet at first.
class InterruptGuard {
 public:
  InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;
  ~InterruptGuard();

 private:
  struct sigaction before {};
};

}  // namespace vosh
