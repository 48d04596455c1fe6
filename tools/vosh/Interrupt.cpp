#include "Interrupt.h"

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>

namespace vosh {

namespace {

int pipeEnds[2] = {-1, -1};

void OnInterrupt(int) {
  const int error = errno;
  const char byte = 0;
  if (write(pipeEnds[1], &byte, 1) < 0) {
    // The pipe is full: it is readable already.
  }
  errno = error;
}

}  // namespace

int InterruptDescriptor() {
  if (pipeEnds[0] >= 0 || pipe(pipeEnds) != 0) return pipeEnds[0];
  for (const int end : pipeEnds) {
    fcntl(end, F_SETFD, FD_CLOEXEC);
    fcntl(end, F_SETFL, O_NONBLOCK);
  }
  return pipeEnds[0];
}

InterruptGuard::InterruptGuard() {
  char byte;
  while (read(pipeEnds[0], &byte, 1) > 0) {
  }
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigaction(SIGINT, &action, &before);
}

InterruptGuard::~InterruptGuard() {
  sigaction(SIGINT, &before, nullptr);
}

}  // namespace vosh
