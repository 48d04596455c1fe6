// Every allocation and every system call of a host's whole life fails, one after the other. Each
// life is a process: one fault, then everything must work as if nothing had happened.
#include <gtest/gtest.h>
#include <unistd.h>
#include <zelk/Zelk.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include "support/Child.h"
#include "support/ConsoleClient.h"
#include "support/Faults.h"
#include "support/RecordCounter.h"

namespace {

using namespace zelk;

// What a life may answer when something failed in it: what the contracts name, and no exception but
// from where they allow one.
class Life {
 public:
  static inline bool threw = false;
  static inline bool deaf = false;  ///< the console has ended: to wait for it once is enough

  /// Whether everything went well.
  bool Live() {
    well = true;
    Zelk* const zelk = Try([] { return Zelk::Instance(); });
    if (zelk == nullptr) return false;
    Route* const route = Try([&] { return zelk->NewRoute("RouteA", nullptr); });
    FIFO* const fifo = Try([&] { return zelk->NewFIFO(48000, 4, 100, 10); });
    if (fifo != nullptr) UseFifo(*fifo);
    if (route != nullptr) UseRoute(*route);
    if (!deaf) UseConsole();
    zelk->DeleteRoute(route);
    zelk->DeleteFIFO(fifo);
    return well;
  }

 private:
  template <typename Call>
  auto Try(Call&& call) -> decltype(call()) {
    try {
      auto* made = call();
      well = well && made != nullptr;
      return made;
    } catch (const std::bad_alloc&) {
    } catch (const std::system_error&) {
    }
    well = false;
    threw = true;
    return nullptr;
  }
  void Check(bool good) { well = well && good; }

  void UseFifo(FIFO& fifo) {
    int samples[20] = {};
    long long time = 0;
    Check(fifo.Consume(samples, 20, false, 0) == 0 && fifo.Produce(samples, 20, true, &time) == 0);
  }

  void UseRoute(Route& route) {
    std::vector<std::string> texts;
    Block* const source = route.NewBlock("worker.so", true, false, args);
    Block* const sink = route.NewBlock("worker.so", false, true, {});
    Link* const link = route.NewLink(48000, S16_LE, 2, 48, source, 0, sink, 0);
    route.SetDump("/tmp");
    const int started = route.Start();
    Check(link != nullptr && started == 0);
    Check(route.SetParameter(source, 1, args) == 0);
    Check(route.GetParameter(source, 1, texts) == 0);
    Check(route.Reset(source) == 0);
    Block* const extra = route.NewBlock("worker.so", true, true, args);
    Check(route.NewLink(48000, S16_LE, 2, 48, extra, 1, sink, 1) != nullptr);
    Check(route.Delete(link) == 0 && route.Delete(extra) == 0);
    route.SetDump(nullptr);
    Check(route.Stop() == 0);
    Check(route.DeleteAll() == 0);
  }

  // A console may lose a client, a reply or its whole self to a fault.
  void UseConsole() {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, test::SOCKET_PATH);
    const auto* name = reinterpret_cast<const sockaddr*>(&address);
    // A socket that listens in vain is the kernel's to accept: nobody may wait for a reply for
    // ever.
    const timeval patience = {0, 400'000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    for (int tries = 0; connect(fd, name, sizeof address) != 0 && tries < 100; ++tries)
      usleep(1000);
    for (const char* command :
         {"newroute RouteB", "newblock RouteB worker.so true true 200", "start RouteB",
          "setparam RouteB worker_0 1 x", "getparam RouteB worker_0 1", "status", "status --dot",
          "stop RouteB", "delete RouteB worker_0", "delete RouteB !"}) {
      // Not `send`, which is to fail in the library.
      Check(sendto(fd, command, std::strlen(command), MSG_NOSIGNAL, nullptr, 0) > 0);
      char reply[4000] = {};
      ssize_t got = 0;
      while (got < 3999 && (got == 0 || reply[got - 1] != '\0')) {
        const ssize_t more = read(fd, reply + got, static_cast<size_t>(3999 - got));
        if (more <= 0) break;
        got += more;
      }
      Check(got > 0 && std::strstr(reply, "Failed") == nullptr &&
            std::strstr(reply, "Can't") == nullptr);
      if ((deaf = got == 0)) break;
    }
    close(fd);
    // Whatever the console could not finish.
    if (Route* left = FindRouteB()) Zelk::Instance()->DeleteRoute(left);
  }

  static inline const std::vector<std::string> args = {"200"};  // not a part of what may fail

  static Route* FindRouteB() {
    // Only a name in use makes this fail; then the console has left its route, which it deletes.
    try {
      return Zelk::Instance()->NewRoute("RouteB", nullptr);
    } catch (const std::exception&) {
      return nullptr;
    }
  }

  bool well = true;
};

long OpenFiles() {
  long count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    ++count;
  return count;
}

enum Outcome { NO_SUCH_CALL = 0, SURVIVED = 1, SICK = 2, SILENT = 3, EXCEPTION = 4 };

// Open in a host that is well, when the console has let its last client go.
long filesOfAHost = 0;

// Whether an error only says "try again", so that nothing may come of it.
bool Passes(const std::string& function, int error) {
  return error == EINTR || error == ECONNABORTED ||
         (error == EAGAIN && function != "pthread_create");
}

// One life with a fault and two without in the same process.
int LifeWithFault(const std::string& function, long nth, int error) {
  const auto life = [&](int) -> int {
    const long recordsBefore = test::CountedRecords();
    test::SetFault(function, nth, error);
    bool well = false;
    try {
      well = Life().Live();
    } catch (const std::exception&) {
      std::_Exit(EXCEPTION);
    }
    if (!test::ClearFault()) return NO_SUCH_CALL;
    const bool told = test::CountedRecords() > recordsBefore || Life::threw || Life::deaf;
    if (!well && Passes(function, error)) return SICK;
    if (!well && !told && function != "new") return SILENT;
    Life().Live();
    // A console whose set-up failed stays away, as its contract says.
    if (!Life().Live() && function == "new") return SICK;
    while (OpenFiles() > filesOfAHost)
      usleep(500);  // a descriptor that was lost hangs here
    return test::StrayCloses() == 0 ? SURVIVED : SICK;
  };
  return test::RunChild(life, 20).status;
}

class Machine : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (std::getenv("ZELK_ISOLATED") != nullptr) {
      std::ofstream("/etc/zelk.conf") << "[config]\nlogtostderr=false\nloglevel=4\n";
    }
    // In a child, which alone becomes a host.
    const auto count = [](int) {
      if (!Life().Live() || !Life().Live()) return 0;
      usleep(200'000);  // the console hangs up
      return static_cast<int>(OpenFiles());
    };
    filesOfAHost = test::RunChild(count).status;
    ASSERT_GT(filesOfAHost, 3) << "a life without a fault does not go well";
  }
};

TEST_F(Machine, EveryAllocationInTurnMayFail) {
  long nth = 1;
  for (int result = SURVIVED; result != NO_SUCH_CALL; ++nth) {
    result = LifeWithFault("new", nth, ENOMEM);
    ASSERT_TRUE(result == SURVIVED || result == NO_SUCH_CALL)
        << "allocation " << nth << ": " << result;
  }
  EXPECT_GT(nth, 200);
  std::printf("%ld allocations\n", nth - 2);
}

TEST_F(Machine, EverySystemCallInTurnMayFail) {
  const struct {
    const char* function;
    std::vector<int> errors;
    long calls;  // at most so many are tried
  } cases[] = {
      {"socket", {EMFILE, ENFILE, ENOMEM}, 1},
      {"bind", {EADDRINUSE, EACCES, ENOSPC, EROFS}, 1},
      {"listen", {EADDRINUSE}, 1},
      {"accept4", {EINTR, EAGAIN, EMFILE, ENFILE, ECONNABORTED, ENOMEM}, 1},
      {"poll", {EINTR, ENOMEM}, 12},
      {"recv", {EINTR, EAGAIN, ECONNRESET, ENOMEM}, 4},
      {"send", {EINTR, EAGAIN, EPIPE, ECONNRESET, ENOBUFS}, 6},
      {"pipe2", {EMFILE, ENFILE}, 1},
      {"fchmod", {EPERM}, 1},
      {"chmod", {EPERM, ENOENT}, 1},
      {"unlink", {ENOENT, EACCES}, 1},
      {"getsockopt", {ENOBUFS}, 1},
      {"shutdown", {ENOTCONN}, 1},
      {"fcntl", {EACCES, ENOLCK}, 2},
      {"close", {EINTR, EIO, ENOSPC}, 4},
      {"fopen", {EMFILE, ENOSPC, EACCES}, 6},
      {"fwrite", {ENOSPC, EIO}, 3},
      {"fgets", {EIO}, 3},
      {"fclose", {ENOSPC, EIO}, 6},
      {"dlopen", {ENOENT}, 4},
      {"dlsym", {0}, 2},
      {"dlclose", {0}, 1},
      {"pthread_create", {EAGAIN}, 3},
  };
  long faults = 0;
  for (const auto& [function, errors, calls] : cases) {
    for (const int error : errors) {
      for (long nth = 1; nth <= calls; ++nth) {
        const int result = LifeWithFault(function, nth, error);
        if (result == NO_SUCH_CALL) break;
        ++faults;
        std::printf("%s %ld errno %d\n", function, nth, error);
        EXPECT_EQ(SURVIVED, result) << function << " " << nth << " errno " << error;
      }
    }
  }
  EXPECT_GT(faults, 35);
  std::printf("%ld faults\n", faults);
}

// The faults of a host's last moments: nobody is left to tell, but it must come to its end.
TEST_F(Machine, AFaultAtTheExitHoldsNothingUp) {
  for (const auto& [function, error] :
       std::vector<std::pair<const char*, int>>{{"write", EINTR},
                                                {"close", EINTR},
                                                {"close", EIO},
                                                {"unlink", EACCES},
                                                {"shutdown", ENOTCONN},
                                                {"poll", EINTR},
                                                {"dlclose", 0}}) {
    const auto life = [&, name = function, code = error](int) {
      Zelk::Instance()->NewRoute("RouteA", nullptr)->NewBlock("worker.so", true, true, {});
      Life().Live();
      test::SetFault(name, 1, code);
      return 0;
    };
    EXPECT_EQ(0, test::RunChild(life, 20).status) << function << " " << error;
  }
}

}  // namespace
