// How the console begins and ends. Every case is a host process of its own; this process has no
// thread and no singleton. A host that hangs at its exit is killed by its alarm, and fails.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <functional>
#include <set>

#include "support/ConsoleClient.h"
#include "support/RouteTest.h"

namespace {
// In a forked child: what the threads that it lacks had on their stacks.
bool leaksAreOthers = false;
}  // namespace

// The leak sanitizer asks, where there is one.
extern "C" __attribute__((visibility("default"), used)) int __lsan_is_turned_off() {
  return leaksAreOthers ? 1 : 0;
}

namespace {

using namespace test;
using zelk::Zelk;

class Host {
 public:
  explicit Host(const std::function<void()>& before = [] {}) {
    int ends[2];
    EXPECT_EQ(0, pipe(ends));
    std::fflush(nullptr);
    child = fork();
    if (child == 0) {
      close(ends[1]);
      alarm(60);
      before();
      Zelk::Instance();
      char byte;
      while (read(ends[0], &byte, 1) > 0) {
      }
      std::exit(0);
    }
    close(ends[0]);
    order = ends[1];
  }
  ~Host() { EXPECT_EQ(0, Exit()); }

  /// Ends the host as its main function would; its wait status.
  int Exit() {
    if (child == 0) return 0;
    close(order);
    int status = -1;
    waitpid(child, &status, 0);
    child = 0;
    return status;
  }
  void Kill() {
    kill(child, SIGKILL);
    EXPECT_EQ(SIGKILL, Exit());
  }

 private:
  pid_t child = 0;
  int order = -1;
};

bool SocketExists() {
  struct stat file;
  return lstat(SOCKET_PATH, &file) == 0;
}

void MakeTalkativeRoute() {
  Scripts()["src"].values = Lines{std::string(8 << 20, 'x')};
  Zelk::Instance()->NewRoute("RouteA", nullptr)->NewBlock("scripted.so", true, false, {"src"});
}

TEST(ConsoleExit, LeavesNoSocketBehind) {
  Host host;
  EXPECT_EQ("No route\nNo fifo\n", ConsoleClient().Ask("status"));
  EXPECT_EQ(0, host.Exit());
  EXPECT_FALSE(SocketExists());
}

TEST(ConsoleExit, IsNotHeldUpByClients) {
  const std::function<void(ConsoleClient&)> habits[] = {
      [](ConsoleClient&) {},                           // idle
      [](ConsoleClient& client) { client.Ask("x"); },  // idle after a command
      [](ConsoleClient& client) { client.Send(" "); },
      [](ConsoleClient& client) {  // does not read its reply
        client.Send("getparam RouteA scripted_0 1");
        client.AwaitReply();
      },
  };
  for (const auto& habit : habits) {
    Host host(MakeTalkativeRoute);
    ConsoleClient client;
    habit(client);
    ConsoleClient waiting;
    waiting.Send("status");
    EXPECT_EQ(0, host.Exit());
    EXPECT_FALSE(SocketExists());
  }
}

TEST(ConsoleExit, OfAForkedChildLeavesTheParentAlone) {
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  Host host([&] {
    MakeTalkativeRoute();
    { ConsoleClient().Ask("status"); }
    const pid_t grandchild = fork();
    if (grandchild == 0) {
      leaksAreOthers = true;
      std::exit(0);
    }
    int status = -1;
    waitpid(grandchild, &status, 0);
    if (status != 0 || write(ends[1], "", 1) != 1) _exit(1);
  });
  close(ends[1]);
  char byte;
  EXPECT_EQ(1, read(ends[0], &byte, 1));
  close(ends[0]);
  EXPECT_EQ("Stopped RouteA\n", ConsoleClient().Ask("stop RouteA"));
}

TEST(ConsoleExit, HangsUpOnAClientWhoseConnectionAForkedChildHasToo) {
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  Host host([&] {
    Zelk::Instance();
    char byte;
    if (read(ends[0], &byte, 1) != 1) _exit(1);
    close(ends[1]);
    if (fork() == 0) _exit(static_cast<int>(read(ends[0], &byte, 1)));  // lives as long as the test
  });
  ConsoleClient client;
  client.Ask("x");
  EXPECT_EQ(1, write(ends[1], "", 1));
  EXPECT_EQ(0, host.Exit());
  EXPECT_EQ("<closed>", client.Receive());
  close(ends[0]);
  close(ends[1]);
}

TEST(ConsoleStart, TakesTheSocketOverFromACrashedHost) {
  Host crashed;
  ConsoleClient().Ask("status");
  crashed.Kill();
  EXPECT_TRUE(SocketExists());
  Host host;
  EXPECT_EQ("No route\nNo fifo\n", ConsoleClient().Ask("status"));
}

TEST(ConsoleStart, GivesTheSocketToItsOwnerFromItsFirstMoment) {
  for (const mode_t mask : {0000u, 0022u, 0277u, 0777u}) {
    ASSERT_FALSE(SocketExists());
    Host host([&] { umask(mask); });
    struct stat file;
    while (lstat(SOCKET_PATH, &file) != 0) {
    }
    EXPECT_EQ(0u, file.st_mode & 0177) << std::oct << mask;
    ConsoleClient().Ask("status");
    EXPECT_EQ(0, lstat(SOCKET_PATH, &file));
    EXPECT_EQ(S_IFSOCK | 0600u, file.st_mode) << std::oct << mask;
  }
}

TEST(ConsoleStart, HandsNoDescriptorToProgramsThatTheHostExecutes) {
  Host host([] {
    std::set<int> before;
    for (int fd = 0; fd < 1024; ++fd)
      if (fcntl(fd, F_GETFD) >= 0) before.insert(fd);
    Zelk::Instance();
    ConsoleClient client;
    client.Ask("status");
    int inherited = 0;
    int kept = 0;
    for (int fd = 0; fd < 1024; ++fd) {
      const int flags = fcntl(fd, F_GETFD);
      if (flags >= 0 && before.count(fd) == 0) ++((flags & FD_CLOEXEC) == 0 ? inherited : kept);
    }
    // The client's own end is the one; the pipe, the listener and the accepted end are kept.
    if (inherited != 1 || kept != 4) _exit(1);
  });
  EXPECT_EQ("No route\nNo fifo\n", ConsoleClient().Ask("status"));
}

}  // namespace
