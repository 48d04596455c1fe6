#include "Zelk/LocalSocket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

namespace zelk {

namespace {

#if defined(MSG_NOSIGNAL)
constexpr int SEND_FLAGS = MSG_DONTWAIT | MSG_NOSIGNAL;
#else
constexpr int SEND_FLAGS = MSG_DONTWAIT;
#endif

template <typename Call>
auto Uninterrupted(Call&& call) noexcept {
  auto result = call();
  while (result < 0 && errno == EINTR)
    result = call();
  return result;
}

#if !defined(__linux__)
int CloseOnExec(int fd) noexcept {
  if (fd >= 0) fcntl(fd, F_SETFD, FD_CLOEXEC);
  return fd;
}
#endif

int BindTo(int fd, const char* path) noexcept {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::size_t bytes = std::strlen(path) + 1;
  if (bytes > sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::memcpy(address.sun_path, path, bytes);
  return bind(fd, reinterpret_cast<const sockaddr*>(&address),
              static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + bytes));
}

}  // namespace

bool Doorbell::Open() noexcept {
#if defined(__linux__)
  return pipe2(ends, O_CLOEXEC) == 0;
#else
  if (pipe(ends) != 0) return false;
  CloseOnExec(ends[0]);
  CloseOnExec(ends[1]);
  return true;
#endif
}

void Doorbell::Close() noexcept {
  for (int& end : ends) {
    if (end >= 0) close(end);
    end = -1;
  }
}

void Doorbell::Ring() const noexcept {
  // Nobody reads it: the pipe stays readable for every wait to come.
  Uninterrupted([&] { return write(ends[1], "", 1); });
}

bool Doorbell::Await(int fd, short events) const noexcept {
  pollfd waits[] = {{fd, events, 0}, {ends[0], POLLIN, 0}};
  return Uninterrupted([&] { return poll(waits, 2, -1); }) > 0 && waits[1].revents == 0;
}

int OpenLocalSocket() noexcept {
#if defined(SOCK_CLOEXEC)
  return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
#else
  return CloseOnExec(socket(AF_UNIX, SOCK_STREAM, 0));
#endif
}

#if defined(__linux__)

int BindForOwner(int fd, const char* path) noexcept {
  // The file takes the socket's mode less the umask, which may lack the owner's bits too.
  if (fchmod(fd, S_IRUSR | S_IWUSR) < 0) return -1;
  const int ret = BindTo(fd, path);
  return ret < 0 ? ret : chmod(path, S_IRUSR | S_IWUSR);
}

#else

int BindForOwner(int fd, const char* path) noexcept {
  // Here the file's mode comes from the umask alone: it is born in a folder of the owner's.
  constexpr char SUFFIX[] = ".XXXXXX";
  char folder[sizeof(sockaddr_un::sun_path)];
  char born[sizeof(folder)];
  if (std::strlen(path) + sizeof(SUFFIX) + 2 > sizeof(folder)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::strcat(std::strcpy(folder, path), SUFFIX);
  if (mkdtemp(folder) == nullptr || chmod(folder, S_IRWXU) < 0) return -1;
  std::strcat(std::strcpy(born, folder), "/s");
  int ret = BindTo(fd, born);
  if (ret == 0) ret = chmod(born, S_IRUSR | S_IWUSR);
  if (ret == 0) ret = rename(born, path);
  const int cause = errno;
  if (ret < 0) unlink(born);
  rmdir(folder);
  errno = cause;
  return ret;
}

#endif

int AcceptClient(int listener, const Doorbell& bell) noexcept {
  // A client may have given up between the wait and the call, which must not wait in turn.
  fcntl(listener, F_SETFL, fcntl(listener, F_GETFL) | O_NONBLOCK);
  while (bell.Await(listener, POLLIN)) {
#if defined(__linux__)
    const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
#else
    const int client = CloseOnExec(accept(listener, nullptr, nullptr));
#endif
    if (client < 0 && (errno == EINTR || errno == EAGAIN || errno == ECONNABORTED)) continue;
#if defined(SO_NOSIGPIPE)
    const int on = 1;
    if (client >= 0) setsockopt(client, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof(on));
#endif
    return client;
  }
  return -1;
}

bool MayCommand(int client, long& user) noexcept {
  user = -1;
#if defined(SO_PEERCRED)
  ucred peer{};
  socklen_t size = sizeof(peer);
  if (getsockopt(client, SOL_SOCKET, SO_PEERCRED, &peer, &size) < 0) return false;
  const uid_t uid = peer.uid;
#else
  uid_t uid = 0;
  gid_t gid = 0;
  if (getpeereid(client, &uid, &gid) < 0) return false;
#endif
  user = static_cast<long>(uid);
  return uid == 0 || uid == geteuid();
}

ssize_t Receive(int client, char* text, std::size_t size, const Doorbell& bell) noexcept {
  while (bell.Await(client, POLLIN)) {
    const ssize_t ret = recv(client, text, size, MSG_DONTWAIT);
    if (ret >= 0 || (errno != EINTR && errno != EAGAIN)) return ret;
  }
  return 0;
}

ssize_t SendAll(int client, const char* text, std::size_t size, const Doorbell& bell) noexcept {
  std::size_t sent = 0;
  while (sent < size) {
    if (!bell.Await(client, POLLOUT)) return -1;
    const ssize_t ret = send(client, text + sent, size - sent, SEND_FLAGS);
    if (ret > 0) {
      sent += static_cast<std::size_t>(ret);
    } else if (ret == 0 || (errno != EINTR && errno != EAGAIN)) {
      return ret;
    }
  }
  return static_cast<ssize_t>(size);
}

void HangUp(int& client) noexcept {
  shutdown(client, SHUT_RDWR);
  close(client);
  client = -1;
}

}  // namespace zelk
