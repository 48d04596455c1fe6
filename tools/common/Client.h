// Speaks the console's protocol: one command, one reply that ends in a NUL byte.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace vosh {

/// Where a host serves its console.
inline constexpr const char* kSocketPath = "/tmp/voshsock";

/// The host takes each read of at most this many bytes as one command.
inline constexpr std::size_t kMaxCommand = 1023;

struct Reply {
  enum Kind {
    ANSWERED,   ///< `text` is the host's reply, without its NUL
    REFUSED,    ///< the command cannot be sent; `text` says why
    NO_HOST,    ///< nothing answered; `text` says what to check
    CANCELLED,  ///< the cancel descriptor became readable
  };
  Kind kind = NO_HOST;
  std::string text;
};

/// Sends commands, each over a connection of its own: the host serves one client at a time, so a
/// connection that stays open would lock everybody else out. Raises no SIGPIPE.
class Client {
 public:
  using Milliseconds = std::chrono::milliseconds;

  /// `limit` covers connecting, sending and the whole reply; 0 waits for ever. A call ends early
  /// when the descriptor `cancel` becomes readable; -1 for none. It is borrowed.
  explicit Client(Milliseconds limit = std::chrono::seconds(30), int cancel = -1,
                  std::string socketPath = kSocketPath);

  /// Sends `command` whole and reads its reply. Blank commands, which the host never answers, and
  /// those that it would cut are refused.
  Reply Send(const std::string& command) const;

  /// True when something accepts connections at the socket.
  bool Probe() const;

  /// Sleeps; false when the cancel descriptor became readable meanwhile.
  bool Pause(Milliseconds duration) const;

 private:
  Milliseconds timeout;
  int cancelFd;
  std::string path;
};

}  // namespace vosh
