// Runs a program and collects what it writes and how it ends.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/TemporaryDirectory.h"

namespace test {

/// The exit status, or minus the signal that ended the process.
inline int WaitForExit(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/// The words as execv wants them.
inline std::vector<char*> Argv(std::vector<std::string>& words) {
  std::vector<char*> argv;
  for (std::string& word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);
  return argv;
}

/// A program with its standard streams in files of the directory `folder`.
class Program {
 public:
  Program(const std::string& folder, std::vector<std::string> arguments,
          const std::string& input = {})
      : base(folder + "/program") {
    WriteFile(base + ".in", input);
    pid = fork();
    if (pid != 0) return;
    Redirect(".in", O_RDONLY, 0);
    Redirect(".out", O_WRONLY | O_CREAT | O_TRUNC, 1);
    Redirect(".err", O_WRONLY | O_CREAT | O_TRUNC, 2);
    execv(arguments[0].c_str(), Argv(arguments).data());
    _exit(127);
  }

  int Wait() { return WaitForExit(pid); }
  std::string Out() const { return ReadFile(base + ".out"); }
  std::string Err() const { return ReadFile(base + ".err"); }
  pid_t Pid() const { return pid; }

 private:
  void Redirect(const char* suffix, int flags, int target) {
    const int fd = open((base + suffix).c_str(), flags, 0600);
    if (fd < 0 || dup2(fd, target) < 0) _exit(126);
    close(fd);
  }

  std::string base;
  pid_t pid = -1;
};

}  // namespace test
