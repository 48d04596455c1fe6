#include "Report.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace validate {

namespace {

Progress* shared = nullptr;
int pipeEnd = -1;

}  // namespace

long long Now() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

void Report::Open(Progress* progress, int fd) {
  shared = progress;
  pipeEnd = fd;
}

void Report::Send(LineKind kind, const std::string& text) {
  std::string line = static_cast<char>(kind) + text;
  std::replace(line.begin(), line.end(), '\n', ' ');
  line += '\n';
  // One write each, short enough to be whole whatever other threads send.
  if (line.size() > 500) line = line.substr(0, 496) + "...\n";
  if (pipeEnd >= 0 && write(pipeEnd, line.data(), line.size()) < 0) std::perror("zelk-validate");
}

Calling::Calling(const std::string& what) {
  if (!shared) return;
  std::snprintf(shared->call, sizeof(shared->call), "%s", what.c_str());
  shared->since = Now();
}

Calling::~Calling() {
  if (shared) shared->since = 0;
}

}  // namespace validate
