// An action queued and waited for, by one and by four callers at once, on a stopped route and on
// one that runs frames of a microsecond; beside it a bare hand-shake of the same pattern.
#include <time.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <thread>

#include "ZelkGraph.h"

using namespace bench;

namespace {

constexpr double FRAME = 1e-6;

void Spin(double seconds) {
  for (const double end = Now() + seconds; Now() < end;) {
  }
}

// One mutex, a queue of callers, and a worker that serves it between two "frames". A worker that
// took the lock for nothing between any two would hardly let a caller have it.
class Handshake {
 public:
  explicit Handshake(bool isRunning) : running(isRunning), worker([this] { Serve(); }) {}
  ~Handshake() {
    {
      std::lock_guard lock(mutex);
      ended = true;
      waiting.store(true, std::memory_order_release);
      arrived.notify_one();
    }
    worker.join();
  }

  void Call() {
    Caller caller;
    std::unique_lock lock(mutex);
    callers.push_back(&caller);
    waiting.store(true, std::memory_order_release);
    arrived.notify_one();
    caller.finished.wait(lock, [&] { return caller.done; });
  }

 private:
  struct Caller {
    std::condition_variable finished;
    bool done = false;
  };

  void Serve() {
    for (;;) {
      if (!running || waiting.load(std::memory_order_acquire)) {
        std::unique_lock lock(mutex);
        waiting.store(false, std::memory_order_relaxed);
        if (!running) arrived.wait(lock, [&] { return ended || !callers.empty(); });
        if (ended) return;
        for (; !callers.empty(); callers.pop_front()) {
          callers.front()->done = true;
          callers.front()->finished.notify_one();
        }
      }
      if (running) Spin(FRAME);
    }
  }

  const bool running;
  std::mutex mutex;
  std::condition_variable arrived;
  std::deque<Caller*> callers;
  std::atomic<bool> waiting{false};  // changed with the mutex held
  bool ended = false;
  std::thread worker;
};

// A chain of two blocks, of which the first takes a microsecond per frame.
class ZelkRoute {
 public:
  explicit ZelkRoute(bool running) {
    graph.Build({{running ? "bench_pace" : "bench_source"}, {"bench_end"}}, {{0, 0, 1, 0}},
                SAMPLES);
    if (running) Require(graph->Start() == 0, "Start");
  }
  void Call() { graph->Reset(graph.Blocks()[1]); }

 private:
  ZelkGraph graph;
};

template <typename Server>
Work Calls(bool running, std::size_t threads) {
  auto server = std::make_shared<Server>(running);
  return [server, threads](std::int64_t count) {
    const std::size_t each = static_cast<std::size_t>(count) / threads + 1;
    std::vector<std::vector<double>> took(threads, std::vector<double>(each));
    std::vector<std::thread> callers;
    const double begin = Now();
    for (std::vector<double>& mine : took) {
      callers.emplace_back([&mine, &server] {
        for (double& call : mine) {
          const double start = Now();
          server->Call();
          call = Now() - start;
        }
      });
    }
    for (std::thread& caller : callers)
      caller.join();
    const double seconds = Now() - begin;
    std::vector<double> all;
    for (const std::vector<double>& mine : took)
      all.insert(all.end(), mine.begin(), mine.end());
    return Summary(seconds, all);
  };
}

}  // namespace

void AddActions() {
  for (const bool running : {false, true}) {
    for (const std::size_t threads : std::initializer_list<std::size_t>{1, 4}) {
      std::string row = running ? "action-running-" : "action-stopped-";
      row += threads == 1 ? "1/" : "4/";
      Add(row + "floor", [=] { return Calls<Handshake>(running, threads); });
      Add(row + "zelk", [=] { return Calls<ZelkRoute>(running, threads); });
    }
  }
}
