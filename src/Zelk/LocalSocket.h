// The console's socket calls: every wait ends when another thread rings.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace zelk {

/// Ends waits from outside. Closing or shutting down a descriptor under a waiting thread would do
/// it on some systems only, and its number could be taken by another file meanwhile.
class Doorbell {
 public:
  /// False when the process is out of descriptors. Open and close it while nobody waits.
  bool Open() noexcept;
  void Close() noexcept;

  /// Ends the wait at hand, and all that follow. [any-thread]
  void Ring() const noexcept;

  /// Waits until `fd` is ready for `events`, as poll() has them, or has failed. False once the bell
  /// has rung.
  bool Await(int fd, short events) const noexcept;

 private:
  int ends[2] = {-1, -1};
};

// Results are those of the system call, negative on failure, which leaves its cause in errno.
// Signals do not end them. Descriptors are closed in programs that the host executes.

int OpenLocalSocket() noexcept;

/// Binds to `path`. Whatever the umask, the file is the owner's alone from the moment it exists:
/// whoever may write to it may load code into this process.
int BindForOwner(int fd, const char* path) noexcept;

/// Waits for the next client. Negative also when the bell rings.
int AcceptClient(int listener, const Doorbell& bell) noexcept;

/// Whether the client runs as this process's user or as root. `user` is -1 when nobody can tell.
bool MayCommand(int client, long& user) noexcept;

/// Waits for text, at most `size` bytes of it. 0 when the client has closed or the bell rings.
ssize_t Receive(int client, char* text, std::size_t size, const Doorbell& bell) noexcept;

/// Waits until the client has taken all of `size` bytes, however slowly; then returns `size`. -1
/// also when the bell rings. A client that has gone raises no signal.
ssize_t SendAll(int client, const char* text, std::size_t size, const Doorbell& bell) noexcept;

/// Ends the connection also for copies of the descriptor in forked children, then closes it.
void HangUp(int& client) noexcept;

}  // namespace zelk
