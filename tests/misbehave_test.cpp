// What one bad block does to its route and to everybody else. Every case is a host process of its
// own, since some blocks may take their route's thread with them; a host that hangs is killed by
// its alarm, and fails.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <stdexcept>

#include "support/ConsoleClient.h"
#include "support/RouteTest.h"

namespace {

using namespace test;
using zelk::Route;
using Deed = std::function<long(ScriptedBlock*)>;

long Throw(ScriptedBlock*) {
  throw std::runtime_error("bad");
}
Deed Answer(long result) {
  return [result](ScriptedBlock*) { return result; };
}

/// A host with the bad route RouteA, source -> middle -> sink, and the good RouteB. `At` says what
/// the bad route's life looks like from outside.
class Host {
 public:
  Host() {
    Route* good = zelk::Zelk::Instance()->NewRoute("RouteB", nullptr);
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
    std::string life = Numbered("start ", route->Start());
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
  Route* route = nullptr;
  std::atomic<bool> stopped{true};
  std::atomic<long> frames{0};
  std::atomic<long> calls{0};

 private:
  static std::string Numbered(const char* text, int number) {
    return text + std::to_string(number);
  }
};

/// Runs `life` in a child; what it returned, or how the child ended.
std::string InChild(const std::function<std::string()>& life) {
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    const std::string text = life();
    _exit(write(ends[1], text.data(), text.size()) < 0);
  }
  close(ends[1]);
  std::string text;
  char piece[500];
  for (ssize_t n; (n = read(ends[0], piece, sizeof piece)) > 0;)
    text.append(piece, static_cast<std::size_t>(n));
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return status == 0 ? text : text + "<ended with " + std::to_string(status) + ">";
}

std::string LifeWith(const std::string& hook, const Deed& deed) {
  return InChild([&] {
    Host host;
    host.Spoil("middle", hook, deed);
    const std::string life = host.Live();
    Host::ExpectOthersRun();
    if (life.find("stuck") == std::string::npos) host.Delete();
    return life;
  });
}

constexpr char FINE[] = "start 0, set 0, get 0, reset 0, stop 0, stopped";

TEST(Misbehaviour, OfEveryHookEndsItsOwnRouteAtWorst) {
  const struct {
    const char* hook;
    std::vector<std::string> lives;  // throws, -1, -2, -20, -30, 7
  } cases[] = {
      {"CreateBlock", {"no block", "no block", "no block", "no block", "no block", FINE}},
      {"OnInEpLinked", {"no link", "no link", "no link", "no link", "no link", FINE}},
      {"OnOutEpLinked", {"no link", "no link", "no link", "no link", "no link", FINE}},
      {"Start",
       {"start -20, set 0, get 0, reset 0, stop 0, stopped",
        "start -1, set 0, get 0, reset 0, stop 0, stopped",
        "start -2, set 0, get 0, reset 0, stop 0, stopped",
        "start -20, set 0, get 0, reset 0, stop 0, stopped",
        "start -30, set 0, get 0, reset 0, stop 0, stopped", FINE}},
      {"ProcessFrame", {FINE, "start 0, stuck: RouteA is RUNNING", FINE, FINE, FINE, FINE}},
      {"Stop",
       {"start 0, set 0, get 0, reset 0, stop -20, not stopped",
        "start 0, set 0, get 0, reset 0, stop -1, not stopped",
        "start 0, set 0, get 0, reset 0, stop -2, not stopped",
        "start 0, set 0, get 0, reset 0, stop -20, not stopped",
        "start 0, set 0, get 0, reset 0, stop -30, not stopped", FINE}},
      {"SetParameter",
       {"start 0, set -20, get 0, reset 0, stop 0, stopped",
        "start 0, set -1, get 0, reset 0, stop 0, stopped",
        "start 0, set -2, get 0, reset 0, stop 0, stopped",
        "start 0, set -20, get 0, reset 0, stop 0, stopped",
        "start 0, set -30, get 0, reset 0, stop 0, stopped",
        "start 0, set 7, get 0, reset 0, stop 0, stopped"}},
      {"GetParameter",
       {"start 0, set 0, get -20, reset 0, stop 0, stopped",
        "start 0, set 0, get -1, reset 0, stop 0, stopped",
        "start 0, set 0, get -2, reset 0, stop 0, stopped",
        "start 0, set 0, get -20, reset 0, stop 0, stopped",
        "start 0, set 0, get -30, reset 0, stop 0, stopped",
        "start 0, set 0, get 7, reset 0, stop 0, stopped"}},
      {"Reset", {FINE, FINE, FINE, FINE, FINE, FINE}},
      {"Subname", {FINE, FINE, FINE, FINE, FINE, FINE}},
      {"OnInEpUnlinked", {FINE, FINE, FINE, FINE, FINE, FINE}},
      {"OnOutEpUnlinked", {FINE, FINE, FINE, FINE, FINE, FINE}},
  };
  const Deed deeds[] = {Throw, Answer(-1), Answer(-2), Answer(-20), Answer(-30), Answer(7)};
  for (const auto& row : cases) {
    for (std::size_t i = 0; i < std::size(deeds); ++i)
      EXPECT_EQ(row.lives[i], LifeWith(row.hook, deeds[i])) << row.hook << " " << i;
  }
}

// Adds a block to the running route whose start fails, and tells what the console then sees.
std::string LifeAfterAddedBlock(const Deed& start, const std::function<void(Host&)>& after) {
  return InChild([&] {
    Host host;
    host.Live();
    host.route->Start();
    host.Spoil("late", "Start", start);
    host.route->NewBlock("scripted.so", true, true, {"late"});
    after(host);
    Host::ExpectOthersRun();
    return Host::Look("RouteA");
  });
}

TEST(Misbehaviour, ARefusedStartInARunningRouteTakesItsThreadAndNothingElse) {
  static std::atomic<bool> ended{false};
  struct Sentry {
    ~Sentry() { ended = true; }
    bool posted = false;
  };
  for (const int code : {-1, -30}) {
    const Deed start = [code](ScriptedBlock*) {
      static thread_local Sentry sentry;
      sentry.posted = true;
      return long{code};
    };
    EXPECT_EQ("RouteA is RUNNING",
              LifeAfterAddedBlock(start, [](Host&) { Host::Await([] { return ended.load(); }); }));
  }
}

TEST(Misbehaviour, ARefusedStartWithTheOtherCodesLeavesTheRouteToItsHost) {
  EXPECT_EQ("RouteA is STOPPED", LifeAfterAddedBlock(Throw, [](Host& host) {
              Host::Await([&] { return host.stopped.load(); });
              host.Delete();
              host.route = zelk::Zelk::Instance()->NewRoute("RouteA", nullptr);
            }));
  // -2 is asked again and again, and requests are served in between.
  EXPECT_EQ("RouteA is STOPPED", LifeAfterAddedBlock(Answer(-2), [](Host& host) {
              Host::Await([&] { return host.calls > 100; });
              EXPECT_EQ(0, host.route->Stop());
            }));
}

// The descriptors that a bad neighbour leaves, one per frame.
long Scribble(zelk::FrameBuffer& fb, long frame) {
  static unsigned char outside[16] = {};
  const zelk::FrameBuffer wild[] = {
      {fb.data, fb.format, fb.channels, fb.samplesPerFrame, LONG_MAX, fb.rate, 0},
      {fb.data, fb.format, fb.channels, fb.samplesPerFrame, LONG_MIN, fb.rate, LLONG_MIN},
      {fb.data, fb.format, 4000000000u, fb.samplesPerFrame, 480, fb.rate, 0},
      {fb.data, fb.format, 37, fb.samplesPerFrame, 480, fb.rate, LLONG_MAX},
      {fb.data, fb.format, 0, fb.samplesPerFrame, 480, fb.rate, 0},
      {fb.data, static_cast<zelk::SampleFormat>(99), 2, 480, 480, fb.rate, 0},
      {fb.data, zelk::FLOAT_BE, 2, 480, 480, fb.rate, 0},
      {fb.data, fb.format, 2, LONG_MAX, LONG_MAX, fb.rate, 0},
      {fb.data, fb.format, 2, LONG_MIN, 0, fb.rate, 0},
      {fb.data, fb.format, 2, 1 << 20, 0, fb.rate, 0},
      {fb.data, fb.format, 2, 480, 480, 0, 0},
      {fb.data, fb.format, 2, 480, 0, 0xFFFFFFFF, 0},
      {outside, fb.format, 2, 480, 480, fb.rate, 0},
      {outside, fb.format, 2, 480, 0, fb.rate, 0},
      {nullptr, fb.format, 2, 480, 480, fb.rate, 0},
      {nullptr, fb.format, 2, 480, 0, fb.rate, 0},
  };
  fb = wild[static_cast<std::size_t>(frame) % std::size(wild)];
  return 0;
}
constexpr long SCRIBBLES = 16;

// A bad source before a stock block, and a bad sink behind it, each with one wild descriptor.
std::string Neighbour(const char* name, const std::vector<std::string>& args, bool before,
                      bool behind, long scribble) {
  return InChild([=] {
    Host host;
    for (const char* bad : {"source", "sink"}) {
      host.Spoil(bad, "ProcessFrame", [=, &host](ScriptedBlock* block) {
        zelk::FrameBuffer& fb = *(block->First() ? block->Out(0) : block->In(0));
        ++host.frames;
        return fb.validSamples == 0 && !block->First() ? -1L * (host.frames % 20 != 0)
                                                       : Scribble(fb, scribble);
      });
    }
    host.route->SetDump("/tmp");
    auto* stock = host.route->NewBlock((std::string(name) + ".so").c_str(), !before, !behind, args);
    if (stock == nullptr) return std::string("no block");
    if (before) host.Join(host.route->NewBlock("scripted.so", true, false, {"source"}), stock);
    if (behind) host.Join(stock, host.route->NewBlock("scripted.so", false, true, {"sink"}), 8);
    if (host.route->Start() != 0) return std::string("no start");
    Host::Await([&] { return host.stopped || host.frames > 20; });
    Host::ExpectOthersRun();
    host.Delete();
    return std::string("lives");
  });
}

TEST(Misbehaviour, StockBlocksSurviveWildDescriptorsOfTheirNeighbours) {
  const struct {
    const char* name;
    std::vector<std::string> args;
    bool before, behind;
  } blocks[] = {
      {"siggen", {"sine"}, false, true},
      {"gain", {"6"}, true, true},
      {"convert", {}, true, true},
      {"resample", {}, true, true},
      {"tee", {}, true, true},
      {"mixer", {}, true, true},
      {"meter", {}, true, true},
      {"pace", {}, true, true},
      {"filesink", {"/tmp/misbehave.wav"}, true, false},
  };
  int tested = 0;
  for (const auto& block : blocks) {
    // Some are built only where the libraries that they need are.
    if (std::string(STOCK_BLOCKS).find(block.name) == std::string::npos) continue;
    ++tested;
    for (long scribble = 0; scribble < SCRIBBLES; ++scribble) {
      EXPECT_EQ("lives", Neighbour(block.name, block.args, block.before, block.behind, scribble))
          << block.name << " " << scribble;
    }
  }
  EXPECT_GE(tested, 2);
}

}  // namespace
