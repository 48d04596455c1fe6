// A real JACK server without a sound card, for the life of one object.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

extern char** environ;

namespace test {

/// Starts a program, its output to nowhere; -1 when there is none.
inline pid_t Spawn(std::vector<std::string> words) {
  std::vector<char*> argv;
  for (auto& word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t quiet;
  posix_spawn_file_actions_init(&quiet);
  for (const int fd : {0, 1, 2})
    posix_spawn_file_actions_addopen(&quiet, fd, "/dev/null", O_RDWR, 0);
  pid_t pid = -1;
  if (posix_spawnp(&pid, argv[0], &quiet, nullptr, argv.data(), environ) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&quiet);
  return pid;
}

inline int WaitFor(pid_t pid) {
  int status = -1;
  return pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class JackServer {
 public:
  /// Not running when this machine has no jackd. Synchronous, so that a busy machine delays samples
  /// but loses none.
  explicit JackServer(const std::string& tag)
      : name("zelk-" + tag + "-" + std::to_string(getpid())) {
    pid = Spawn({"jackd", "-n", name, "-r", "-S", "-d", "dummy", "-r", "48000", "-p", "512"});
    running = pid > 0 && WaitFor(Spawn({"jack_wait", "-s", name, "-w", "-t", "20"})) == 0;
  }
  JackServer(const JackServer&) = delete;
  ~JackServer() { End(SIGTERM); }

  void Signal(int signal) const { kill(pid, signal); }
  /// Ends the server with this signal.
  void End(int signal) {
    if (pid <= 0) return;
    kill(pid, signal);
    waitpid(pid, nullptr, 0);
    pid = -1;
    running = false;
  }

  const std::string name;
  bool running = false;

 private:
  pid_t pid = -1;
};

}  // namespace test
