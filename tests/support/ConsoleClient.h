// A console client that shows every byte of the protocol.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>

namespace test {

inline constexpr char SOCKET_PATH[] = "/tmp/voshsock";

class ConsoleClient {
 public:
  /// Waits for a host to listen.
  ConsoleClient() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, SOCKET_PATH);
    for (int tries = 0; tries < 60000; ++tries) {
      fd = socket(AF_UNIX, SOCK_STREAM, 0);
      if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) return;
      Close();
      usleep(1000);
    }
    ADD_FAILURE() << "nobody listens";
  }
  ~ConsoleClient() { Close(); }
  ConsoleClient(const ConsoleClient&) = delete;
  ConsoleClient& operator=(const ConsoleClient&) = delete;

  void Close() {
    if (fd >= 0) close(fd);
    fd = -1;
  }

  void Send(const std::string& text) {
    EXPECT_EQ(static_cast<ssize_t>(text.size()), send(fd, text.data(), text.size(), MSG_NOSIGNAL));
  }

  /// Waits for a reply to begin, and leaves it where it is.
  void AwaitReply() {
    char byte;
    EXPECT_EQ(1, recv(fd, &byte, 1, MSG_PEEK));
  }

  /// A reply without its NUL; "<closed>" ends one that was cut off, "<more>" one that had more
  /// behind its NUL.
  std::string Receive() {
    std::string reply;
    char piece[1000];
    for (ssize_t n; (n = read(fd, piece, sizeof piece)) > 0;) {
      reply.append(piece, static_cast<std::size_t>(n));
      const std::size_t end = reply.find('\0');
      if (end == std::string::npos) continue;
      return end + 1 == reply.size() ? reply.substr(0, end) : reply + "<more>";
    }
    return reply + "<closed>";
  }

  int Descriptor() const { return fd; }

  std::string Ask(const std::string& command) {
    Send(command);
    return Receive();
  }

 private:
  int fd = -1;
};

}  // namespace test
