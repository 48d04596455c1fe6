// The singleton's life: configuration at the first use, the order of things at exit.
#include <unistd.h>
#include <zelk/Profile.h>

#include <cstring>
#include <new>

#include "Log.h"
#include "Thread.h"
#include "Zelk/ZelkImpl.h"

namespace zelk {

namespace {

constexpr char PROFILE[] = "/etc/zelk.conf";
constexpr char SECTION[] = "config";

void SetOption(const char* value, int option) {
  if (std::strcmp(value, "true") == 0) {
    vantrel_enable_options(option);
  } else if (std::strcmp(value, "false") == 0) {
    vantrel_disable_options(option);
  }
}

}  // namespace

Zelk::~Zelk() = default;

Zelk* Zelk::Instance() {
  static ZelkImpl zelk;
  return &zelk;
}

ZelkImpl::ZelkImpl() : pid(getpid()) {
  vantrel_enable_options(VANTREL_SHORT | VANTREL_STDERR);
  vantrel_set_level(4);
  ReadProfile();
  StartDebugThread();
}

void ZelkImpl::ReadProfile() {
  // Shared by all look-ups and not cleared between them: a key without a value repeats the value of
  // the key before it.
  char value[256] = {};
  if (GetProfileString(PROFILE, SECTION, "logtostdout", value) == 0) {
    SetOption(value, VANTREL_STDOUT);
  }
  if (GetProfileString(PROFILE, SECTION, "logtostderr", value) == 0) {
    SetOption(value, VANTREL_STDERR);
  }
  if (GetProfileString(PROFILE, SECTION, "loglevel", value) == 0) {
    const int level = value[0] - '0';
    if (level >= 0 && level <= 6) {
      vantrel_set_level(level);
      if (level >= 5) vantrel_disable_options(VANTREL_SHORT);
    }
  }
  if (GetProfileString(PROFILE, SECTION, "dumppath", value) == 0) {
    dumpPath = value;
    if (!dumpPath.empty() && dumpPath.back() != '/') dumpPath += '/';
    vantrel_set_file((dumpPath + "zelk.log").c_str());
  }
}

ZelkImpl::~ZelkImpl() {
  if (getpid() != pid) {
    AbandonInChild();
    return;
  }
  EndDebugThread();
  for (;;) {
    std::shared_ptr<RouteImpl> route;
    Lock lock(mutex);
    if (routes.empty()) break;
    route.swap(routes.front());
    routes.pop_front();
    lock.unlock();
    route.reset();
  }
}

void ZelkImpl::AbandonInChild() {
  // Without the lock: its holder may be a thread that this process does not have, and nobody else
  // runs here.
  struct Abandoned {
    std::list<std::shared_ptr<RouteImpl>> routes;
    std::list<std::shared_ptr<RingBuffer>> fifos;
    std::shared_ptr<std::thread> thread;
  };
  // Volatile, to stay in sight of leak checkers.
  [[maybe_unused]] static const void* volatile kept = nullptr;
  kept = new Abandoned{std::move(routes), std::move(fifos), std::move(debugThread)};
  // Its end would wait for waiters, which exist in the parent only.
  new (&leaseEnded) std::condition_variable;
}

}  // namespace zelk
