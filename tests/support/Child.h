// A process for one case of a test: a host has one singleton, and some cases end it badly.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace test {

struct Child {
  std::string text;  ///< what it wrote to the descriptor that its body was given
  int status;        ///< its exit status, or minus the signal that ended it
};

/// Forks a process that exits with what `body` returns; one that hangs is ended after `seconds`.
template <typename Body>
Child RunChild(Body&& body, unsigned int seconds = 60) {
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    close(ends[0]);
    alarm(seconds);
    std::exit(body(ends[1]));
  }
  close(ends[1]);
  Child child;
  char piece[4096];
  for (ssize_t n; (n = read(ends[0], piece, sizeof piece)) > 0;)
    child.text.append(piece, static_cast<std::size_t>(n));
  close(ends[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  child.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return child;
}

}  // namespace test
