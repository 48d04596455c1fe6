#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vantrel.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>

#include "support/Faults.h"
#include "support/TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;
using test::ReadFile;

#define PRINT(level, ...) vantrel_print(0, 0, 0, level, "src/Here", 7, "Do", nullptr, __VA_ARGS__)

// Records go to a file of the test's own alone, at level 6.
class Vantrel : public testing::Test {
 protected:
  Vantrel() {
    vantrel_disable_options(3);
    vantrel_enable_options(16384);
    vantrel_set_level(6);
    EXPECT_EQ(vantrel_set_file(log.c_str()), 0);
  }
  ~Vantrel() override { vantrel_set_file(nullptr); }

  test::TemporaryDirectory directory;
  const std::string log = directory / "log";
};

// Puts `descriptor` in the place of standard output while it lives.
class AsStandardOutput {
 public:
  explicit AsStandardOutput(int descriptor) : saved(dup(1)) {
    dup2(descriptor, 1);
    vantrel_enable_options(1);
  }
  ~AsStandardOutput() {
    vantrel_disable_options(1);
    dup2(saved, 1);
    close(saved);
  }

 private:
  int saved;
};

TEST_F(Vantrel, LetsThroughWhatTheThresholdAllows) {
  const std::pair<int, std::string> passing[] = {{-1, ""},    {0, ""},      {1, ""},
                                                 {2, "E"},    {3, "EW"},    {4, "EWI"},
                                                 {5, "EWID"}, {6, "EWIDV"}, {99, "EWIDV"}};
  for (const auto& [level, letters] : passing) {
    fs::resize_file(log, 0);
    EXPECT_EQ(vantrel_set_level(level), level < 0 ? 0 : level > 6 ? 6 : level);
    for (char letter : {'E', 'W', 'I', 'D', 'V'})
      PRINT(letter, "is:%c", letter);
    std::string printed;
    std::istringstream text(ReadFile(log));
    for (std::string line; std::getline(text, line);)
      printed += line.back();
    EXPECT_EQ(printed, letters) << level;
  }
}

TEST_F(Vantrel, PrintsTimeLevelAndMessageAndTheOriginWhenNotShort) {
  const time_t before = time(nullptr);
  errno = ENOENT;
  PRINT('W', "%s and %d", "100%d%n\nx", -5);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(vantrel_disable_options(16384) & 16384, 0);
  PRINT('I', "ended\n\n");
  const std::string text = ReadFile(log);

  std::smatch match;
  const std::regex expected(R"((\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)\.\d{6}Z W 100%d%n\nx and -5\n)"
                            R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}Z I src/Here:7 Do: ended\n)");
  ASSERT_TRUE(std::regex_match(text, match, expected)) << text;
  tm utc = {};
  ASSERT_NE(strptime(match.str(1).c_str(), "%Y-%m-%d %H:%M:%S", &utc), nullptr);
  EXPECT_GE(timegm(&utc), before);
  EXPECT_LE(timegm(&utc), time(nullptr));
}

TEST_F(Vantrel, WritesEveryRecordWholeAndAtOnce) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);  // keeps writes apart
  AsStandardOutput output(ends[1]);
  std::string packet(100000, '\0');
  // Around the size of the buffer on the stack, and far beyond.
  for (std::size_t length = 960; length < 1040; ++length) {
    const std::string message(length == 1039 ? 50000 : length, 'm');
    PRINT('I', "%s.", message.c_str());
    const ssize_t size = recv(ends[0], packet.data(), packet.size(), MSG_DONTWAIT);
    ASSERT_GT(size, 30);
    EXPECT_EQ(packet.substr(30, static_cast<std::size_t>(size) - 30), message + ".\n") << length;
  }
  close(ends[0]);
  close(ends[1]);
}

TEST_F(Vantrel, ColoursOnATerminalOnly) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_TRUE(terminal >= 0 && grantpt(terminal) == 0 && unlockpt(terminal) == 0);
  const int user = open(ptsname(terminal), O_RDWR | O_NOCTTY);
  char shown[200] = {};
  {
    AsStandardOutput output(user);
    PRINT('E', "alarm");
    ASSERT_GT(read(terminal, shown, sizeof shown - 1), 0);
  }
  EXPECT_TRUE(std::regex_match(shown, std::regex("\033\\[31m.*Z E alarm\033\\[0m\r\n"))) << shown;
  EXPECT_EQ(ReadFile(log).find('\033'), std::string::npos);
  close(user);
  close(terminal);
}

TEST_F(Vantrel, OutlivesADeadReader) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  std::signal(SIGPIPE, [](int) { std::abort(); });
  {
    AsStandardOutput output(ends[1]);
    PRINT('I', "unheard");
  }
  sigset_t pipeSignal;
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
  raise(SIGPIPE);  // the host's own, which is to stay
  {
    AsStandardOutput output(ends[1]);
    PRINT('I', "unheard too");
  }
  sigset_t pending;
  sigpending(&pending);
  EXPECT_TRUE(sigismember(&pending, SIGPIPE));
  std::signal(SIGPIPE, SIG_IGN);  // drops it
  pthread_sigmask(SIG_UNBLOCK, &pipeSignal, nullptr);
  std::signal(SIGPIPE, SIG_DFL);
  close(ends[1]);
  EXPECT_NE(ReadFile(log).find("unheard too"), std::string::npos);
}

TEST_F(Vantrel, KeepsTheEarlierFileWhenANewOneFailsAndAppendsWhenItReturns) {
  PRINT('I', "one");
  EXPECT_LT(vantrel_set_file(directory.path.c_str()), 0);
  EXPECT_LT(vantrel_set_file((directory / "none/log").c_str()), 0);
  PRINT('I', "two");
  EXPECT_EQ(vantrel_set_file(nullptr), 0);
  PRINT('I', "nowhere");
  EXPECT_EQ(vantrel_set_file(log.c_str()), 0);
  PRINT('I', "three");
  EXPECT_TRUE(std::regex_match(ReadFile(log), std::regex(".* one\n.* two\n.* three\n")));

  struct stat wanted, found;
  ASSERT_EQ(stat(log.c_str(), &wanted), 0);
  int open = 0;
  for (int descriptor = 0; descriptor < 256; ++descriptor) {
    if (fstat(descriptor, &found) != 0 || found.st_ino != wanted.st_ino) continue;
    if (found.st_dev != wanted.st_dev) continue;
    EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    ++open;
  }
  EXPECT_EQ(open, 1);
}

TEST_F(Vantrel, TriesAgainWhatWasInterruptedAndOutlivesWhatFails) {
  const std::string other = directory / "other";
  const struct {
    const char* function;
    int error;
    bool opens, prints;
  } cases[] = {{"open", EINTR, true, true},    {"open", EMFILE, false, true},
               {"dup3", EINTR, true, true},    {"dup3", EBUSY, true, true},
               {"dup3", EMFILE, false, true},  {"fcntl", EACCES, true, true},
               {"write", EINTR, true, true},   {"write", ENOSPC, true, false},
               {"write", EAGAIN, true, false}, {"close", EINTR, true, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.function << ' ' << c.error);
    ASSERT_EQ(vantrel_set_file(log.c_str()), 0);
    std::ofstream(log).close();
    std::ofstream(other).close();
    test::SetFault(c.function, 1, c.error);
    EXPECT_EQ(vantrel_set_file(other.c_str()), c.opens ? 0 : -c.error);
    errno = ENOENT;
    PRINT('I', "one");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_TRUE(test::ClearFault());
    PRINT('I', "two");
    const std::string text = ReadFile(c.opens ? other : log);
    EXPECT_EQ(text.find(" one\n") != text.npos, c.prints);
    EXPECT_NE(text.find(" two\n"), text.npos);
  }
  EXPECT_EQ(test::StrayCloses(), 0);
}

TEST_F(Vantrel, ReplacesTheFileUnderThreadsThatPrint) {
  std::atomic<bool> stop = false;
  std::atomic<long> printed = 0;
  auto print = [&] {
    while (!stop)
      PRINT('I', "record %ld end", ++printed);
  };
  std::thread first(print), second(print);
  const std::string other = directory / "other", stranger = directory / "stranger";
  for (int round = 0; round < 300; ++round) {
    vantrel_set_file(round % 3 == 0 ? nullptr : round % 3 == 1 ? other.c_str() : log.c_str());
    close(open(stranger.c_str(), O_WRONLY | O_CREAT, 0600));  // takes a number that fell free
    const long before = printed;
    while (printed < before + 4)
      std::this_thread::yield();  // one began and ended in this round
  }
  stop = true;
  first.join();
  second.join();
  const std::string text = ReadFile(log) + ReadFile(other);
  EXPECT_TRUE(text.ends_with(" end\n"));
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    ASSERT_TRUE(line.substr(28).starts_with("I record ") && line.ends_with(" end")) << line;
  }
  EXPECT_EQ(fs::file_size(stranger), 0u);
}

TEST_F(Vantrel, PrintsInAChildForkedFromAPrintingProcess) {
  std::atomic<bool> stop = false;
  std::thread parent([&] {
    while (!stop)
      PRINT('I', "parent");
  });
  for (int i = 0; i < 30; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(60);
      PRINT('I', "child %d%s", i, std::string(2000, ' ').c_str());
      _exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  stop = true;
  parent.join();
  const std::string text = ReadFile(log);
  for (int i = 0; i < 30; ++i) {
    EXPECT_NE(text.find("I child " + std::to_string(i) + " "), std::string::npos);
  }
}

struct PrintsAtTheEnd {
  ~PrintsAtTheEnd() { PRINT('I', "after main"); }
} atTheEnd;

TEST(VantrelDeathTest, PrintsFromStaticDestructorsAndByDefaultOnStandardError) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a fresh process, as at start
  EXPECT_EXIT(std::exit(0), testing::ExitedWithCode(0), "Z I after main\n");
}

}  // namespace
