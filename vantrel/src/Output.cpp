#include "Output.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace vantrel {
namespace {

// One descriptor number serves every log file. A new file is put onto it in one step by the kernel,
// and an ended one is replaced by the null device, so that the number is never closed: a thread
// which has loaded it can at worst write to the newer file, never to a stranger's descriptor. That
// needs no lock, which a forked child could inherit locked.
constinit std::atomic<int> fileDescriptor{-1};
constinit std::atomic<bool> fileEnabled{false};

sigset_t PipeSignal() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  return set;
}

bool PipeSignalPending() {
  sigset_t pending;
  return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

// Above the standard three: in a host that runs without them, a log file that took number 2 would
// receive whatever anyone prints to standard error.
int OpenAboveStandard(const char* path, int flags) {
  int opened;
  do {
    opened = open(path, flags | O_CLOEXEC | O_NOCTTY, 0666);
  } while (opened < 0 && errno == EINTR);
  if (opened < 0 || opened > STDERR_FILENO) return opened;
  const int moved = fcntl(opened, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(opened);
  errno = error;
  return moved;
}

// Not blocking while it opens: a named pipe that nobody reads is an error here, not a wait.
int OpenForAppending(const char* path) {
  const int opened = OpenAboveStandard(path, O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK);
  if (opened >= 0) fcntl(opened, F_SETFL, O_APPEND);
  return opened;
}

int PutOnto(int opened, int target) {
  int result;
  do {
#ifdef __linux__
    result = dup3(opened, target, O_CLOEXEC);
#else
    result = dup2(opened, target);
#endif
  } while (result < 0 && (errno == EINTR || errno == EBUSY));
#ifndef __linux__
  if (result >= 0) fcntl(target, F_SETFD, FD_CLOEXEC);
#endif
  return result < 0 ? -errno : 0;
}

// Takes `opened` over.
int Install(int opened) {
  const int target = fileDescriptor.load(std::memory_order_relaxed);
  if (target < 0 || target == opened) {  // equal: the host has closed ours behind our back
    fileDescriptor.store(opened, std::memory_order_release);
    return 0;
  }
  const int result = PutOnto(opened, target);
  close(opened);
  return result;
}

// A full non-blocking output is waited for only in the middle of a record, and not for long.
bool BecomesWritable(int descriptor) {
  constexpr int PATIENCE_MS = 100;
  pollfd entry{descriptor, POLLOUT, 0};
  return poll(&entry, 1, PATIENCE_MS) > 0;
}

}  // namespace

PipeSignalHeld::PipeSignalHeld() {
  const sigset_t pipe = PipeSignal();
  sigset_t before;
  sigemptyset(&before);
  pthread_sigmask(SIG_BLOCK, &pipe, &before);
  blockedBefore = sigismember(&before, SIGPIPE) == 1;
  // A signal that was not blocked cannot have been pending.
  pendingBefore = blockedBefore && PipeSignalPending();
}

PipeSignalHeld::~PipeSignalHeld() {
  if (blockedBefore) return;
  const sigset_t pipe = PipeSignal();
  pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);
}

void PipeSignalHeld::WriteWhole(int descriptor, const char* data, std::size_t size) const {
  bool begun = false;
  while (size > 0) {
    const ssize_t written = write(descriptor, data, size);
    if (written > 0) {
      begun = true;
      data += written;
      size -= static_cast<std::size_t>(written);
    } else {
      const int error = written < 0 ? errno : 0;
      if (error == EINTR) continue;
      if (error == EAGAIN && begun && BecomesWritable(descriptor)) continue;
      if (error == EPIPE) TakeAway();
      return;
    }
  }
}

// The signal of this very write is pending in this thread: waiting for it removes it at once.
void PipeSignalHeld::TakeAway() const {
  if (pendingBefore || !PipeSignalPending()) return;
  const sigset_t pipe = PipeSignal();
  int taken;
  sigwait(&pipe, &taken);
}

int SetLogFile(const char* path) {
  if (path == nullptr) {
    fileEnabled.store(false, std::memory_order_relaxed);
    if (fileDescriptor.load(std::memory_order_relaxed) < 0) return 0;
    // Lets go of the file itself. Without a null device it merely stays open, unused.
    const int null = OpenAboveStandard("/dev/null", O_WRONLY);
    if (null >= 0) Install(null);
    return 0;
  }
  const int opened = OpenForAppending(path);
  if (opened < 0) return -errno;
  const int result = Install(opened);
  if (result == 0) fileEnabled.store(true, std::memory_order_release);
  return result;
}

int LogFile() {
  if (!fileEnabled.load(std::memory_order_acquire)) return -1;
  return fileDescriptor.load(std::memory_order_relaxed);
}

}  // namespace vantrel
