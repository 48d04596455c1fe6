// The debug thread: one client at a time, one command per read, one reply per command.
#include <sys/socket.h>
#include <unistd.h>

#include <iterator>
#include <locale>

#include "Boundary.h"
#include "Log.h"
#include "Thread.h"
#include "Zelk/ZelkImpl.h"

namespace zelk {

static constexpr char LOG_TAG[] = "src/Zelk";

// The steps of the loop are functions of their own; their records carry the loop's name.
#define LOG_LOOP(level, ...) ZELK_LOG_AS(level, "DebugThreadLoop", __VA_ARGS__)

namespace {

constexpr std::size_t COMMAND_BYTES = 1023;

// Enough for every failure text: a handler can state it when memory has run out.
constexpr std::size_t REPLY_BYTES = 64;

}  // namespace

void MainThread(ZelkImpl* zelk) {
  zelk->DebugThreadLoop();
}

void ZelkImpl::StartDebugThread() {
  // Without a bell nothing could end the thread: DebugThreadLoop then refuses to listen.
  belled = bell.Open();
  try {
    debugThread = StartThread(MainThread, this);
  } catch (...) {
    bell.Close();
    throw;
  }
}

void ZelkImpl::EndDebugThread() {
  exitFlag = true;
  if (belled) bell.Ring();
  debugThread->join();
  // Closed by now, and not before: under a running thread the numbers could be given out again.
  if (listener >= 0) close(listener);
  listener = -1;
  bell.Close();
  unlink(sunpath);
}

void ZelkImpl::DebugThreadLoop() {
  if (!Listen()) return;
  while (!exitFlag) {
    LOG_D("Waiting for vosh ...");
    client = AcceptClient(listener, bell);
    if (client < 0) break;
    long user = 0;
    if (MayCommand(client, user)) {
      LOG_D("Accepted vosh %d", client);
      ServeClient();
    } else {
      LOG_W("Refused vosh %d of user %ld", client, user);
    }
    HangUp(client);
  }
  LOG_D("Exit");
}

bool ZelkImpl::Listen() {
  listener = belled ? OpenLocalSocket() : -1;
  if (listener < 0) {
    LOG_LOOP('E', "Unable to create a socket %d", listener);
    return false;
  }
  unlink(sunpath);
  if (const int ret = BindForOwner(listener, sunpath); ret < 0) {
    LOG_LOOP('E', "Failed to bind, can't listen to vosh %d", ret);
    return false;
  }
  if (listen(listener, 1) == -1) {
    LOG_LOOP('E', "Listen to socket failed");
    return false;
  }
  return true;
}

void ZelkImpl::ServeClient() {
  for (;;) {
    LOG_LOOP('D', "Reading from vosh ...");
    char text[COMMAND_BYTES + 1] = {};
    const ssize_t received = Receive(client, text, COMMAND_BYTES, bell);
    if (received < 0) {
      LOG_LOOP('E', "Read from vosh failed %d", static_cast<int>(received));
      return;
    }
    if (received == 0) {
      LOG_LOOP('D', "Read from vosh finished");
      return;
    }
    LOG_LOOP('D', "Received command '%s'", text);
    std::string reply;
    if (!Answer(text, reply)) continue;
    // The NUL is how the client knows that the reply is complete.
    const ssize_t sent = SendAll(client, reply.c_str(), reply.size() + 1, bell);
    if (sent <= 0) {
      LOG_LOOP('D', "Write to vosh failed %d", static_cast<int>(sent));
      return;
    }
  }
}

bool ZelkImpl::Answer(const char* text, std::string& reply) {
  // What a handler throws leaves the failure text that it began with.
  return Guarded(
      true,
      [&] {
        reply.reserve(REPLY_BYTES);
        std::stringstream args{std::string(text)};
        // The host's locale may group digits, which would change what a number is.
        args.imbue(std::locale::classic());
        std::string word;
        if (!(args >> word)) {
          LOG_LOOP('D', "Unable to read string");
          return false;
        }
        reply.append("Unknown command '").append(word).append("'\n");
        if (!RunCommand(word, args, reply)) LOG_LOOP('D', "Unknown command '%s'", text);
        return true;
      },
      [&](const char* what) { LOG_LOOP('E', "Command '%s' failed: %s", text, what); });
}

}  // namespace zelk
