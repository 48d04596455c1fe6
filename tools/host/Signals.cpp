#include "Signals.h"

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>

namespace zelk_host {

namespace {

constexpr int kEnding[] = {SIGINT, SIGTERM, SIGHUP};

int pipeEnds[2] = {-1, -1};

sigset_t EndingSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : kEnding)
    sigaddset(&set, signal);
  return set;
}

void OnSignal(int) {
  const int error = errno;
  const char byte = 0;
  if (write(pipeEnds[1], &byte, 1) < 0) {
    // The pipe is full: it is readable already.
  }
  errno = error;
}

}  // namespace

void BlockSignals() {
  const sigset_t set = EndingSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &ignore, nullptr);
}

int CatchSignals() {
  if (pipe(pipeEnds) != 0) return -1;
  for (const int end : pipeEnds) {
    fcntl(end, F_SETFD, FD_CLOEXEC);
    fcntl(end, F_SETFL, O_NONBLOCK);
  }
  struct sigaction action {};
  action.sa_handler = OnSignal;
  // Once each: should an ending route hang, the next signal ends the process.
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (const int signal : kEnding) {
    struct sigaction before {};
    sigaction(signal, nullptr, &before);
    // nohup stays in force. SIGINT is ignored in what a script puts into the background, but who
    // sends it to a host means it.
    if (signal != SIGHUP || before.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
  }
  const sigset_t set = EndingSignals();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  return pipeEnds[0];
}

}  // namespace zelk_host
