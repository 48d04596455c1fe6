// The singleton: configuration, registry of routes and FIFOs, debug console.
#pragma once

#include <sys/types.h>
#include <zelk/Zelk.h>

#include <atomic>
#include <condition_variable>
#include <list>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Mutex.h"
#include "RingBuffer/RingBuffer.h"
#include "Route/NumberPool.h"
#include "Route/RouteImpl.h"
#include "Zelk/LocalSocket.h"

namespace zelk {

/// Where the console listens.
inline constexpr char sunpath[] = "/tmp/voshsock";

class ZelkImpl final : public Zelk {
 public:
  /// Sets the logging up from the profile file, then starts the debug thread.
  ZelkImpl();

  /// Ends the debug thread, then deletes the routes and the FIFOs, newest first. In a forked child,
  /// which has none of the threads, leaves everything alone.
  ~ZelkImpl() override;

  Route* NewRoute(const char* name, Route::Callbacks* callbacks) override;
  void DeleteRoute(Route* route) override;
  FIFO* NewFIFO(unsigned int rate, unsigned long elementSize, long capacity, long prefill) override;
  void DeleteFIFO(FIFO* fifo) override;

  /// Keeps a route from being deleted while a console command works on it: `DeleteRoute` waits for
  /// it. Empty when there is no such route. [any-thread]
  class RouteLease {
   public:
    RouteLease(ZelkImpl& owner, const std::string& name);
    ~RouteLease();
    RouteLease(const RouteLease&) = delete;
    RouteLease& operator=(const RouteLease&) = delete;

    explicit operator bool() const { return route != nullptr; }
    RouteImpl* operator->() const { return route; }
    RouteImpl* get() const { return route; }

   private:
    friend class ZelkImpl;
    void End_l() ZELK_TSA(no_thread_safety_analysis);  // the registry's lock held

    ZelkImpl& zelk;
    RouteImpl* route = nullptr;
  };

  /// What the status report looks at: newest first, without keeping any route alive. [any-thread]
  std::vector<std::shared_ptr<RouteView>> RouteViews() const ZELK_EXCLUDES(mutex);
  std::vector<std::shared_ptr<RingBuffer>> Fifos() const ZELK_EXCLUDES(mutex);

 private:
  friend void MainThread(ZelkImpl* zelk);

  /// With the caller's own lease, if any, which ends when the route has left the list.
  void DeleteRoute(Route* route, RouteLease* lease) ZELK_EXCLUDES(mutex);

  void ReadProfile();
  void AbandonInChild() ZELK_TSA(no_thread_safety_analysis);

  // The console's life (DebugServer.cpp): called by the constructor and the destructor.
  void StartDebugThread();
  void EndDebugThread();

  // The server (DebugServer.cpp). [debug-thread]
  void DebugThreadLoop();
  bool Listen();
  void ServeClient();
  /// False when the text is blank, which gets no reply.
  bool Answer(const char* text, std::string& reply);

  // The commands (Commands.cpp, StatusReport.cpp): `args` stands behind the command word, `reply`
  // is replaced. What one throws leaves its failure text in the reply. [debug-thread]

  /// False when no command has that word; the reply is left alone then.
  bool RunCommand(const std::string& word, std::stringstream& args, std::string& reply);
  void OnCommand_status(std::stringstream& args, std::string& reply);
  void OnCommand_newroute(std::stringstream& args, std::string& reply);
  void OnCommand_newblock(std::stringstream& args, std::string& reply);
  void OnCommand_newlink(std::stringstream& args, std::string& reply);
  void OnCommand_start(std::stringstream& args, std::string& reply);
  void OnCommand_stop(std::stringstream& args, std::string& reply);
  void OnCommand_setparam(std::stringstream& args, std::string& reply);
  void OnCommand_getparam(std::stringstream& args, std::string& reply);
  void OnCommand_delete(std::stringstream& args, std::string& reply);
  void OnCommand_loglevel(std::stringstream& args, std::string& reply);
  void OnCommand_setdump(std::stringstream& args, std::string& reply);

  // The lists, newest first. Their entries die outside the lock: a route calls its client back.
  mutable Mutex mutex;
  std::list<std::shared_ptr<RingBuffer>> fifos ZELK_GUARDED_BY(mutex);
  std::list<std::shared_ptr<RouteImpl>> routes ZELK_GUARDED_BY(mutex);
  NumberPool fifoNumbers ZELK_GUARDED_BY(mutex);
  std::map<RouteImpl*, int> leases ZELK_GUARDED_BY(mutex);
  std::condition_variable leaseEnded;

  // Constant after construction.
  std::shared_ptr<std::thread> debugThread;
  Doorbell bell;
  bool belled = false;
  const pid_t pid;
  std::string dumpPath;

  // Set by the destructor, which then rings the bell.
  std::atomic<bool> exitFlag{false};

  // Debug thread only; what it leaves open, the destructor closes after the join.
  int listener = -1;
  int client = -1;
};

}  // namespace zelk
