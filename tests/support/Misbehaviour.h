// A host with one bad block among good ones, in a process of its own: a bad block may take its
// route's thread with it. A host that hangs is killed by its alarm.
#pragma once

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/Child.h"
#include "support/ConsoleClient.h"
#include "support/RouteTest.h"
#include "support/quick_exit.h"

namespace test {

using Deed = std::function<long(ScriptedBlock*)>;

inline long Throw(ScriptedBlock*) {
  throw std::runtime_error("bad");
}
inline Deed Answer(long result) {
  return [result](ScriptedBlock*) { return result; };
}

/// A host with the bad route RouteA, source -> middle -> sink, and the good RouteB. `At` says what
/// the bad route's life looks like from outside.
class Host {
 public:
  Host() {
    zelk::Route* good = zelk::Zelk::Instance()->NewRoute("RouteB", nullptr);
    good->NewBlock("worker.so", true, true, {"500"});
    good->Start();
    route = zelk::Zelk::Instance()->NewRoute("RouteA", &callbacks);
    for (const char* label : {"source", "middle", "sink"})
      Scripts()[label].quietFrames = true;
    Scripts()["source"].on["ProcessFrame"] = [](ScriptedBlock*) { return usleep(500), 0; };
    Scripts()["sink"].on["ProcessFrame"] = [this](ScriptedBlock*) { return ++frames, 0; };
    callbacks.on["OnStarted"] = [this] { stopped = false; };
    callbacks.on["OnStopped"] = [this] { stopped = true; };
  }

  /// Makes a block's hook bad, and counts its calls.
  void Spoil(const std::string& label, const std::string& hook, Deed deed) {
    Scripts()[label].on[hook] = [this, deed = std::move(deed)](ScriptedBlock* block) {
      ++calls;
      return deed(block);
    };
  }

  std::string Live() {
    auto* source = route->NewBlock("scripted.so", true, false, {"source"});
    auto* middle = route->NewBlock("scripted.so", false, false, {"middle"});
    auto* sink = route->NewBlock("scripted.so", false, true, {"sink"});
    if (middle == nullptr) return "no block";
    if (Join(source, middle) == nullptr || Join(middle, sink) == nullptr) return "no link";
    std::vector<std::string> texts;
    std::string life = "start " + std::to_string(route->Start());
    Await([&] { return stopped || frames > 2 || calls > 1000; });
    if (!stopped && frames == 0 && calls > 1000) return life + ", stuck: " + Look("RouteA");
    life += ", set " + std::to_string(route->SetParameter(middle, 1, {}));
    life += ", get " + std::to_string(route->GetParameter(middle, 1, texts));
    life += ", reset " + std::to_string(route->Reset(middle));
    life += ", stop " + std::to_string(route->Stop());
    life += stopped ? ", stopped" : ", not stopped";
    return life;
  }

  zelk::Link* Join(zelk::Block* source, zelk::Block* sink, long samples = 480) {
    return route->NewLink(48000, zelk::S16_LE, 2, samples, source, 0, sink, 0);
  }

  /// What the console says of a route, without its blocks and numbers.
  static std::string Look(const std::string& name) {
    const std::string report = ConsoleClient().Ask("status");
    const std::size_t at = report.find(name);
    return at == std::string::npos ? "gone" : report.substr(at, report.find(',', at) - at);
  }

  /// The other route goes on, and the console too.
  static void ExpectOthersRun() {
    const std::string before = Line("RouteB");
    Await([&] { return Line("RouteB") != before; });
  }
  void Delete() { zelk::Zelk::Instance()->DeleteRoute(route); }

  static void Await(const std::function<bool()>& condition) {
    while (!condition())
      usleep(500);
  }
  static std::string Line(const std::string& name) {
    const std::string report = ConsoleClient().Ask("status");
    const std::size_t at = report.find(name);
    return report.substr(at, report.find('\n', at) - at);
  }

  NotingCallbacks callbacks;
  zelk::Route* route = nullptr;
  std::atomic<bool> stopped{true};
  std::atomic<long> frames{0};
  std::atomic<long> calls{0};
};

/// Runs `life` in a child; what it returned, or how the child ended.
inline std::string InChild(const std::function<std::string()>& life) {
  const Child child = RunChild([&](int out) -> int {
    const std::string text = life();
    QuickExit(write(out, text.data(), text.size()) < 0);
  });
  return child.status == 0 ? child.text : "<ended with " + std::to_string(child.status) + ">";
}

}  // namespace test
