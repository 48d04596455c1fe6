#include "Runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <stdexcept>

#include "InFront.h"
#include "Report.h"

namespace validate {

namespace {

constexpr std::size_t RECORDS_KEPT = 8;
// Beside the time for each call: whole checks that call for ever, each call a short one.
constexpr int CALLS_PER_CHECK = 10;

/// What one check's process said, and how it ended.
struct Outcome {
  std::vector<std::string> faults;
  std::vector<std::string> notes;
  std::deque<std::string> records;
  bool ended = false;
};

Progress& SharedProgress() {
  static auto* const progress = [] {
    void* memory =
        mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("no shared memory");
    return static_cast<Progress*>(memory);
  }();
  return *progress;
}

[[noreturn]] void RunInChild(const Check& check, const Settings& settings, int fd) {
  Report::Open(&SharedProgress(), fd);
  if (settings.verbose) SendAllRecords();
  try {
    check.run(settings);
  } catch (const std::exception& error) {
    Report::Fault(error.what());
  }
  Report::Send(END, {});
  _exit(0);  // the singleton's end would remove the console of a running host
}

void Accept(const std::string& line, Outcome& outcome, Settings& settings) {
  const std::string text = line.substr(1);
  switch (line[0]) {
    case FAULT:
      if (std::find(outcome.faults.begin(), outcome.faults.end(), text) == outcome.faults.end())
        outcome.faults.push_back(text);
      break;
    case NOTE:
      outcome.notes.push_back(text);
      break;
    case FORGET:
      if (!settings.verbose) outcome.records.clear();
      break;
    case END:
      outcome.ended = true;
      break;
    case ROLES:
      settings.first = text[0] == '1';
      settings.last = text[1] == '1';
      break;
    default:
      if (!settings.verbose && outcome.records.size() == RECORDS_KEPT) outcome.records.pop_front();
      outcome.records.push_back(text);
  }
}

/// Takes what the pipe holds, line by line.
void Drain(int fd, std::string& rest, Outcome& outcome, Settings& settings) {
  char bytes[4096];
  for (ssize_t got; (got = read(fd, bytes, sizeof(bytes))) > 0;) {
    rest.append(bytes, static_cast<std::size_t>(got));
    for (std::size_t end; (end = rest.find('\n')) != std::string::npos; rest.erase(0, end + 1)) {
      if (end > 0) Accept(rest.substr(0, end), outcome, settings);
    }
  }
}

/// Waits for the process; ends it when one call, or the check, takes too long.
int Watch(pid_t child, int fd, std::string& rest, Outcome& outcome, Settings& settings) {
  const long long begin = Now();
  for (;;) {
    pollfd wait = {fd, POLLIN, 0};
    poll(&wait, 1, 10);
    Drain(fd, rest, outcome, settings);
    int status = 0;
    if (waitpid(child, &status, WNOHANG) == child) return status;
    const Progress& progress = SharedProgress();
    const long long since = progress.since;
    std::string why;
    if (since != 0 && Now() - since > settings.limit)
      why = std::string(progress.call) + " did not return within ";
    else if (Now() - begin > CALLS_PER_CHECK * settings.limit)
      why = "the check, last in " + std::string(progress.call) + ", did not end within 10 times ";
    if (why.empty()) continue;
    outcome.faults.push_back(why + std::to_string(settings.limit) + " ms");
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return 0;
  }
}

Outcome RunCheck(const Check& check, Settings& settings) {
  Outcome outcome;
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  for (const int end : ends)
    fcntl(end, F_SETFD, FD_CLOEXEC);
  SharedProgress().since = 0;
  std::strcpy(SharedProgress().call, "the beginning");
  std::fflush(stdout);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) RunInChild(check, settings, ends[1]);
  close(ends[1]);
  std::string rest;
  const int status = Watch(child, ends[0], rest, outcome, settings);
  Drain(ends[0], rest, outcome, settings);
  close(ends[0]);
  const std::string last =
      (SharedProgress().since == 0 ? "after " : "in ") + std::string(SharedProgress().call);
  if (WIFSIGNALED(status))
    outcome.faults.push_back(std::string("died of \"") + strsignal(WTERMSIG(status)) + "\" " +
                             last);
  else if (!outcome.ended && outcome.faults.empty())
    outcome.faults.push_back("ended the process with status " +
                             std::to_string(WEXITSTATUS(status)) + " " + last);
  return outcome;
}

void Tell(std::size_t number, const Check& check, const Outcome& outcome, bool verbose) {
  const bool good = outcome.faults.empty();
  std::printf("%s %zu - %s\n", good ? "ok" : "not ok", number, check.name);
  for (const std::string& fault : outcome.faults)
    std::printf("# fault: %s\n", fault.c_str());
  for (const std::string& note : outcome.notes)
    std::printf("# %s\n", note.c_str());
  if (good && !verbose) return;
  for (const std::string& record : outcome.records)
    std::printf("# log: %s\n", record.c_str());
}

}  // namespace

int RunChecks(const std::vector<Check>& checks, Settings& settings) {
  int faulty = 0;
  std::printf("TAP version 13\n1..%zu\n", checks.size());
  for (std::size_t i = 0; i < checks.size(); ++i) {
    const Outcome outcome = RunCheck(checks[i], settings);
    Tell(i + 1, checks[i], outcome, settings.verbose);
    if (outcome.faults.empty()) continue;
    ++faulty;
    if (i != 0) continue;
    std::printf("Bail out! There is no block to look at.\n");
    break;
  }
  return faulty;
}

}  // namespace validate
