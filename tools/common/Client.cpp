#include "Client.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>

#include <utility>

#include "Text.h"

namespace vosh {

namespace {

using Clock = std::chrono::steady_clock;

// A host that never ends its reply must not fill our memory.
constexpr std::size_t kMaxReply = 64u << 20;

class Descriptor {
 public:
  explicit Descriptor(int fd) : number(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number >= 0) close(number);
  }
  const int number;
};

class Deadline {
 public:
  explicit Deadline(std::chrono::milliseconds timeout)
      : endless(timeout.count() <= 0), end(Clock::now() + timeout) {}
  // For poll(): rounded up, so that the last wait does not spin; -1 waits for ever.
  int Remaining() const {
    if (endless) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 1 << 30));
  }

 private:
  bool endless;
  Clock::time_point end;
};

enum class Wait { READY, TIMED_OUT, CANCELLED };

Wait WaitFor(int fd, short events, int cancelFd, const Deadline& deadline) {
  for (;;) {
    pollfd fds[2] = {{cancelFd, POLLIN, 0}, {fd, events, 0}};
    const int remaining = deadline.Remaining();
    const int ready = poll(fds, 2, remaining);
    if (ready > 0) return fds[0].revents != 0 ? Wait::CANCELLED : Wait::READY;
    if (ready == 0 || (errno != EINTR && errno != EAGAIN)) return Wait::TIMED_OUT;
  }
}

int OpenSocket() {
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd < 0) return fd;
  fcntl(fd, F_SETFD, FD_CLOEXEC);
  fcntl(fd, F_SETFL, O_NONBLOCK);
#ifdef SO_NOSIGPIPE
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
  return fd;
}

#ifdef MSG_NOSIGNAL
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
constexpr int kSendFlags = 0;
#endif

// The host's queue of waiting clients is short and a full one cannot be polled for: try again.
Wait Connect(int fd, const std::string& path, int cancelFd, const Deadline& deadline, int& error) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  for (;;) {
    error = 0;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
      return Wait::READY;
    }
    error = errno;
    if (error == EISCONN) {
      error = 0;
      return Wait::READY;
    }
    if (error != EAGAIN && error != EINTR && error != EINPROGRESS && error != EALREADY) {
      return Wait::READY;
    }
    if (deadline.Remaining() == 0) return Wait::TIMED_OUT;
    const Deadline nap(std::chrono::milliseconds(5));
    if (WaitFor(-1, 0, cancelFd, nap) == Wait::CANCELLED) return Wait::CANCELLED;
  }
}

Reply NoHost(const std::string& path, int error) {
  std::string text = "No host answers at " + path + ": ";
  if (error == ENOENT) {
    text += "there is no such socket. Check that a process that uses zelk is running.";
  } else if (error == ECONNREFUSED) {
    text += "the process that made it has ended. Start the host again.";
  } else if (error == EACCES || error == EPERM) {
    text += "it belongs to another user. Run this as the host's user or as root.";
  } else {
    text += std::string(std::strerror(error)) + ".";
  }
  return {Reply::NO_HOST, text};
}

Reply Closed() {
  return {Reply::NO_HOST,
          "The host closed the connection without an answer. Check that it is not just ending, and "
          "that you are its user or root."};
}

Reply Unfinished(Wait wait) {
  if (wait == Wait::CANCELLED) return {Reply::CANCELLED, "Cancelled"};
  return {Reply::NO_HOST,
          "The host did not answer in time. Check whether another client holds the console, and "
          "whether a route is stuck in a frame."};
}

// One send for the whole command: the host takes what one read yields as one command.
Reply Exchange(int fd, const std::string& command, int cancelFd, const Deadline& deadline) {
  ssize_t sent = -1;
  do {
    const Wait wait = WaitFor(fd, POLLOUT, cancelFd, deadline);
    if (wait != Wait::READY) return Unfinished(wait);
    sent = send(fd, command.data(), command.size(), kSendFlags);
  } while (sent < 0 && (errno == EINTR || errno == EAGAIN));
  if (sent != static_cast<ssize_t>(command.size())) return Closed();

  Reply reply{Reply::ANSWERED, {}};
  char chunk[16384];
  while (reply.text.size() < kMaxReply) {
    const Wait wait = WaitFor(fd, POLLIN, cancelFd, deadline);
    if (wait != Wait::READY) return Unfinished(wait);
    const ssize_t got = recv(fd, chunk, sizeof chunk, 0);
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (got <= 0) return Closed();
    const auto* end = static_cast<const char*>(std::memchr(chunk, 0, static_cast<size_t>(got)));
    reply.text.append(chunk, static_cast<std::size_t>(end ? end - chunk : got));
    if (end) return reply;
  }
  return {Reply::NO_HOST, "The host's reply does not end. Check what listens at the socket."};
}

}  // namespace

Client::Client(Milliseconds limit, int cancel, std::string socketPath)
    : timeout(limit), cancelFd(cancel), path(std::move(socketPath)) {}

Reply Client::Send(const std::string& command) const {
  if (SplitWords(command).empty()) return {Reply::REFUSED, "A blank command is not sent"};
  if (command.find('\0') != std::string::npos) {
    return {Reply::REFUSED, "A command cannot contain a NUL byte"};
  }
  if (command.size() > kMaxCommand) {
    return {Reply::REFUSED, "The command has " + std::to_string(command.size()) +
                                " bytes; a host takes at most " + std::to_string(kMaxCommand)};
  }
  const Descriptor fd(OpenSocket());
  if (fd.number < 0) return NoHost(path, errno);
  const Deadline deadline(timeout);
  int error = 0;
  const Wait wait = Connect(fd.number, path, cancelFd, deadline, error);
  if (wait != Wait::READY) return Unfinished(wait);
  if (error != 0) return NoHost(path, error);
  return Exchange(fd.number, command, cancelFd, deadline);
}

bool Client::Probe() const {
  const Descriptor fd(OpenSocket());
  if (fd.number < 0) return false;
  int error = 0;
  const Wait wait = Connect(fd.number, path, cancelFd, Deadline(Milliseconds(1)), error);
  return wait != Wait::READY || error == 0;
}

bool Client::Pause(Milliseconds duration) const {
  return WaitFor(-1, 0, cancelFd, Deadline(duration)) != Wait::CANCELLED;
}

}  // namespace vosh
