// Drawing the routes: the host's dot text, rendered by Graphviz.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "Session.h"

// NOLINTNEXTLINE(readability-redundant-declaration): not every platform's header has it
extern char** environ;

namespace vosh {

namespace {

// Feeds a child without dying of SIGPIPE should it end early.
class PipeSignalIgnored {
 public:
  PipeSignalIgnored() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &before);
  }
  PipeSignalIgnored(const PipeSignalIgnored&) = delete;
  PipeSignalIgnored& operator=(const PipeSignalIgnored&) = delete;
  ~PipeSignalIgnored() { sigaction(SIGPIPE, &before, nullptr); }

 private:
  struct sigaction before {};
};

bool WriteAll(int fd, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t wrote = write(fd, text.data() + done, text.size() - done);
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) return false;
    done += static_cast<std::size_t>(wrote);
  }
  return true;
}

// Starts `dot` reading from `input` and writing to `output`; an errno.
int SpawnDot(const char* format, int input, int unusedEnd, int output, pid_t& child) {
  std::string dot = "dot";
  std::string type = std::string("-T") + format;
  char* arguments[] = {dot.data(), type.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addclose(&actions, unusedEnd);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  const int error = posix_spawnp(&child, dot.c_str(), &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

Outcome Render(const std::string& dotText, const char* format, int output) {
  int ends[2];
  if (pipe(ends) != 0) return Complaint(std::string("Cannot make a pipe: ") + std::strerror(errno));
  const PipeSignalIgnored guard;
  pid_t child = -1;
  const int error = SpawnDot(format, ends[0], ends[1], output, child);
  close(ends[0]);
  const bool fed = error == 0 && WriteAll(ends[1], dotText);
  close(ends[1]);
  if (error != 0) {
    return Complaint("Cannot run `dot`: " + std::string(std::strerror(error)) +
                     ". Install Graphviz, or write a file that ends in .dot");
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (fed && WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
  return Complaint("`dot` failed to draw the graph");
}

Outcome WriteGraph(const std::string& dotText, const std::string& file) {
  const char* format = file.ends_with(".svg") ? "svg" : file.ends_with(".png") ? "png" : nullptr;
  if (!format && !file.ends_with(".dot")) {
    return Complaint("The graph's file must end in .svg, .png or .dot");
  }
  const int output = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (output < 0) return Complaint("Cannot write " + file + ": " + std::strerror(errno));
  Outcome outcome;
  if (format) {
    outcome = Render(dotText, format, output);
  } else if (!WriteAll(output, dotText)) {
    outcome = Complaint("Cannot write " + file + ": " + std::strerror(errno));
  }
  if (close(output) != 0 && outcome.result == SUCCESS) {
    outcome = Complaint("Cannot write " + file + ": " + std::strerror(errno));
  }
  // An empty or half-written picture would pass for a good one.
  if (outcome.result != SUCCESS) unlink(file.c_str());
  return outcome;
}

}  // namespace

Outcome Session::Graph(const std::vector<std::string>& words) const {
  std::string file;
  if (words.size() == 3 && words[1] == "-o") {
    file = words[2];
  } else if (words.size() == 2 && words[1].starts_with("-o") && words[1].size() > 2) {
    file = words[1].substr(2);
  } else if (words.size() != 1) {
    return Complaint("graph takes nothing, or -o and one file");
  }
  Outcome outcome = Forward("status --dot", "status");
  if (outcome.result != SUCCESS || file.empty()) return outcome;
  return WriteGraph(outcome.text, file);
}

}  // namespace vosh
