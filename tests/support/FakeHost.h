// A console server that does what a test tells it to.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace test {

/// Serves a socket, one connection after the other, on a thread of its own.
class FakeHost {
 public:
  using Serve = std::function<void(int fd)>;
  using Answer = std::function<std::string(const std::string& command)>;

  /// `handler` is given each connection, which is closed when it returns.
  FakeHost(std::string socketPath, Serve handler)
      : path(std::move(socketPath)), serve(std::move(handler)) {
    listener = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = Address();
    unlink(path.c_str());
    EXPECT_EQ(0, bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    EXPECT_EQ(0, listen(listener, 1));
    thread = std::thread([this] { Loop(); });
  }

  /// Answers each command with what `answer` gives, as a real host does.
  static Serve Answering(Answer answer) {
    return [answer = std::move(answer)](int fd) {
      char command[1024];
      for (ssize_t got; (got = read(fd, command, 1023)) > 0;) {
        const std::string reply = answer(std::string(command, static_cast<std::size_t>(got)));
        if (send(fd, reply.c_str(), reply.size() + 1, MSG_NOSIGNAL) < 0) return;
      }
    };
  }

  ~FakeHost() {
    ending = true;
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = Address();
    // The thread is woken by one more connection: nothing else wakes accept() everywhere.
    EXPECT_EQ(0, connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    thread.join();
    close(fd);
    close(listener);
    unlink(path.c_str());
  }

 private:
  sockaddr_un Address() const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
  }

  void Loop() {
    while (!ending) {
      const int fd = accept(listener, nullptr, nullptr);
      if (fd >= 0 && !ending) serve(fd);
      if (fd >= 0) close(fd);
    }
  }

  std::string path;
  Serve serve;
  std::atomic<bool> ending{false};
  int listener = -1;
  std::thread thread;
};

}  // namespace test
