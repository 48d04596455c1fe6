#include "Checks.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include "Report.h"
#include "Rig.h"

namespace validate {

namespace {

using zelk::Block;
using zelk::Link;

int Count(const std::array<Link*, zelk::MAX_EPS>& links) {
  return static_cast<int>(
      links.size() - static_cast<std::size_t>(std::count(links.begin(), links.end(), nullptr)));
}

std::string Describe(const LinkKind& kind) {
  return std::to_string(kind.rate) + " Hz " + zelk::FormatToString(kind.format) + " x " +
         std::to_string(kind.channels) + ", " + std::to_string(kind.samples) + " samples per frame";
}

/// Finds the flags that the block takes: a block without inputs is a source, one without outputs a
/// sink.
void FindRoles(const Settings& settings, bool& first, bool& last) {
  static constexpr bool ROLES[][2] = {{false, false}, {true, false}, {false, true}, {true, true}};
  for (const auto& role : ROLES) {
    Rig rig(settings);
    if (!rig.TryCreate(role[0], role[1])) continue;
    rig.LinkAll();
    first = role[0] || Count(rig.ins) == 0;
    last = role[1] || Count(rig.outs) == 0;
    return;
  }
  throw Over("CreateBlock() returned null; does it take these words?");
}

void IsCreated(const Settings& given) {
  Settings settings = given;
  if (!settings.rolesGiven) {
    FindRoles(settings, settings.first, settings.last);
    Report::Send(ROLES, {settings.first ? '1' : '0', settings.last ? '1' : '0'});
  }
  Rig rig(settings);
  rig.Create();
  rig.LinkAll();
  const int ins = Count(rig.ins), outs = Count(rig.outs);
  if (ins + outs == 0)
    throw Over("no port takes a link of " + Describe(settings.link) + "; name another with --link");
  Report::Note(std::to_string(ins) + " inputs and " + std::to_string(outs) + " outputs take " +
               Describe(settings.link) + (settings.first ? "; a source" : "") +
               (settings.last ? "; a sink" : ""));
}

void LinksAndUnlinks(const Settings& settings) {
  Rig rig(settings);
  rig.Create();
  rig.LinkAll();
  const auto ins = rig.ins, outs = rig.outs;
  for (const char* when : {"once more", "after frames"}) {
    rig.UnlinkAll();
    rig.LinkAll();
    for (std::size_t port = 0; port < zelk::MAX_EPS; ++port) {
      if (ins[port] && !rig.ins[port])
        Report::Fault("input " + std::to_string(port) + " took a link, and refused it " + when);
      if (outs[port] && !rig.outs[port])
        Report::Fault("output " + std::to_string(port) + " took a link, and refused it " + when);
    }
    if (!rig.Restart("with every port linked " + std::string(when))) return;
    rig.Frames(3);
    rig.Stop();
  }
}

void OddLinks(const Settings& settings) {
  const LinkKind& usual = settings.link;
  const LinkKind odd[] = {{usual.rate, zelk::SampleFormat(9), usual.channels, usual.samples},
                          {usual.rate, usual.format, 0, usual.samples},
                          {0, usual.format, usual.channels, usual.samples},
                          {usual.rate, usual.format, usual.channels, 0},
                          {usual.rate, usual.format, usual.channels, 1},
                          {1, zelk::BYTE, 1, 7},
                          {384000, zelk::S24_3BE, 64, 333}};
  for (const LinkKind& kind : odd) {
    Settings unusual = settings;
    unusual.link = kind;
    Rig rig(unusual);
    rig.Create();
    Link* const in = settings.first ? nullptr : rig.LinkIn(0, kind);
    Link* const out = settings.last ? nullptr : rig.LinkOut(0, kind);
    // Who takes a link may still refuse to start, or fail its frames: but live.
    if ((in || settings.first) && (out || settings.last) && rig.Start() == 0) {
      for (int i = 0; i < 3; ++i) {
        rig.Feed(std::min(kind.samples, 3L));
        rig.Process("a link of " + Describe(kind));
        rig.Take();
      }
      rig.Stop();
    }
    if (in) rig.Unlink(in, "In");
    if (out) rig.Unlink(out, "Out");
    unusual.link = usual;
    rig.LinkAll();
    if (Count(rig.ins) + Count(rig.outs) == 0)
      Report::Fault("after a link of " + Describe(kind) + " it takes no usual one");
  }
}

void RollsBack(const Settings& settings) {
  Rig rig(settings);
  rig.Create();
  rig.LinkAll();
  const int ports = Count(rig.ins) + Count(rig.outs);
  for (int round = 0; round < 2; ++round) {
    rig.UnlinkAll();
    rig.sourceHooks.refusesLinks = rig.sinkHooks.refusesLinks = true;
    rig.LinkAll();
    const int linked = Count(rig.ins) + Count(rig.outs);
    rig.sourceHooks.refusesLinks = rig.sinkHooks.refusesLinks = false;
    if (linked != 0) throw Over("a link stands that its other end refused");
    rig.LinkAll();
    if (Count(rig.ins) + Count(rig.outs) != ports)
      Report::Fault("after its neighbour refused a link, it takes only " +
                    std::to_string(Count(rig.ins) + Count(rig.outs)) + " of " +
                    std::to_string(ports));
  }
  if (rig.Start() != 0) throw Over("Start() refused after links were rolled back");
  rig.Frames(5);
}

void StartsTwice(const Settings& settings) {
  Rig rig(settings);
  rig.Ready();
  for (int round = 0; round < 2; ++round) {
    rig.Frames(5);
    rig.Stop();
    rig.Stop();
    if (!rig.Restart("after a stop")) return;
  }
  rig.Frames(5);
  rig.Stop();
  if (!rig.Restart("after a stop")) return;
  rig.Stop();
}

void BareStart(const Settings& settings) {
  Rig rig(settings);
  rig.Create();
  rig.Stop();
  if (rig.Start() == 0) rig.Stop();
  rig.LinkAll();
  if (rig.Start() != 0) throw Over("Start() refused after it had been tried without links");
  rig.Frames(3);
}

void PassesFrames(const Settings& settings) {
  Rig rig(settings);
  rig.Ready();
  rig.Frames(40);
  if (Count(rig.ins) != 0 && rig.taken == 0) Report::Fault("none of 40 frames was taken");
  if (Count(rig.ins) == 0 && rig.made == 0) Report::Fault("none of 40 frames was made");
  if (rig.warmAllocations > 0)
    Report::Note("not real-time safe: " + std::to_string(rig.warmAllocations) + " of " +
                 std::to_string(rig.warmFrames) + " warm calls of ProcessFrame() allocated memory");
}

void Waits(const Settings& settings) {
  Rig rig(settings);
  rig.Ready();
  const auto judge = [&](long result, const std::string& what) {
    const bool known = result >= Block::FRAME_PENDING || result == Block::FRAME_TIMEOUT ||
                       result == Block::FRAME_DONE_WITHOUT_OUTPUT ||
                       result == Block::FRAME_END_OF_FILE || result == Block::FRAME_FADED_OUT;
    if (!known)
      throw Over("ProcessFrame() failed with " + std::to_string(result) + ", given " + what);
  };
  for (int i = 0; i < 5; ++i) {
    judge(rig.Process("empty inputs"), "empty inputs");
    rig.Take();
  }
  rig.Frames(3);
  // Nobody takes what it makes: what it has made must stay as it is, what it has not is its own.
  for (int i = 0; i < 5; ++i) {
    rig.Feed(settings.link.samples);
    const long result = rig.Process("full outputs");
    judge(result, "full outputs");
    if (result <= Block::FRAME_END_OF_FILE) return;
  }
  rig.Take();
  rig.Frames(3);
}

void OddFrames(const Settings& settings) {
  const long usual = settings.link.samples;
  Rig rig(settings);
  rig.Ready();
  const long lengths[] = {1,         usual, usual - 1,      2,    usual + 1, 7,
                          4 * usual, 3,     10 * usual + 1, usual};
  for (int round = 0; round < 3; ++round) {
    for (const long samples : lengths) {
      if (samples < 1 || rig.Frame(samples)) continue;
      if (round == 2 || rig.Start() != 0) return;
    }
  }
}

const std::vector<std::vector<std::string>>& OddTexts() {
  static const std::vector<std::vector<std::string>> texts = {{},
                                                              {""},
                                                              {"0"},
                                                              {"1"},
                                                              {"-1"},
                                                              {"1e308"},
                                                              {"nan"},
                                                              {"inf"},
                                                              {"word"},
                                                              {"%s%n%s"},
                                                              {"0.5", "0.5", "0.5"},
                                                              {std::string(5000, '9')},
                                                              std::vector<std::string>(300, "1")};
  return texts;
}

void Parameters(const Settings& settings) {
  static constexpr unsigned int IDS[] = {0, 1, 2, 3, 4, 100, 200, 0x7FFFFFFF, 0xFFFFFFFF};
  Rig rig(settings);
  rig.Create();
  for (int state = 0; state < 3; ++state) {
    if (state == 1) rig.LinkAll();
    if (state == 2) {
      if (rig.Start() != 0) throw Over("Start() refused after parameters were tried");
      if (!rig.Frame(settings.link.samples)) return;
    }
    for (const unsigned int id : IDS) {
      std::vector<std::string> got;
      const Calling calling("GetParameter(" + std::to_string(id) + ")");
      rig.route->GetParameter(rig.block, id, got);
      for (const auto& words : OddTexts()) {
        const Calling setting("SetParameter(" + std::to_string(id) + ", " +
                              std::to_string(words.size()) + " words, first \"" +
                              (words.empty() ? "" : words[0].substr(0, 20)) + "\")");
        rig.route->SetParameter(rig.block, id, words);
      }
    }
  }
  // Whatever was set: it goes on, or ends its route as it should.
  for (int i = 0; i < 10; ++i) {
    if (!rig.Frame(settings.link.samples)) return;
  }
}

void ResetsInMidStream(const Settings& settings) {
  Rig rig(settings);
  rig.Ready();
  const auto reset = [&](bool base) {
    rig.On([&] {
      const Calling calling("Reset()");
      base ? rig.block->BaseReset() : rig.block->Reset();
    });
  };
  for (const bool base : {true, false, true}) {
    rig.Frames(3);
    rig.Feed(settings.link.samples);
    reset(base);
    reset(base);
  }
  rig.Frames(10);
  rig.Stop();
  reset(true);
  if (!rig.Restart("after a stop and a reset")) return;
  rig.Frames(3);
}

void RelinkedInMidStream(const Settings& settings) {
  Rig rig(settings);
  rig.Ready();
  const int ports = Count(rig.ins) + Count(rig.outs);
  rig.Frames(3);
  for (int round = 0; round < 2; ++round) {
    rig.Feed(settings.link.samples);
    rig.UnlinkAll();
    rig.LinkAll();
    if (Count(rig.ins) + Count(rig.outs) != ports)
      Report::Fault("a started block takes only " +
                    std::to_string(Count(rig.ins) + Count(rig.outs)) + " of the " +
                    std::to_string(ports) + " links that were cut");
    rig.Frames(5);
  }
}

void DestroyedInEveryState(const Settings& settings) {
  Rig rig(settings);
  using Step = void (*)(Rig&, const Settings&);
  static constexpr Step STATES[] = {
      [](Rig&, const Settings&) {},
      [](Rig& r, const Settings&) { r.LinkAll(); },
      [](Rig& r, const Settings&) { r.LinkAll(), r.UnlinkAll(); },
      [](Rig& r, const Settings&) { r.LinkAll(), r.Start(); },
      [](Rig& r, const Settings&) { r.LinkAll(), r.Start(), r.Stop(); },
      [](Rig& r, const Settings&) { r.LinkAll(), r.Start(), r.Frames(2); },
      [](Rig& r, const Settings&) { r.LinkAll(), r.Start(), r.Frames(2), r.UnlinkAll(); },
      [](Rig& r, const Settings& s) {
        r.LinkAll(), r.Start(), r.Feed(s.link.samples), r.Process("a frame before its destructor");
      },
      [](Rig& r, const Settings& s) { r.LinkAll(), r.Start(), r.Feed(s.link.samples); },
  };
  for (const Step state : STATES) {
    rig.Create();
    state(rig, settings);
    rig.Delete();
  }
  rig.Create();
  rig.LinkAll();
  rig.Start();
  const Calling calling("the deletion of everything");
  rig.route->DeleteAll();
}

void RunsInARoute(const Settings& settings) {
  static constexpr int FRAMES = 25;
  Rig rig(settings);
  rig.Create();
  rig.LinkAll();
  rig.RunRoute(FRAMES);
  if (!settings.once) rig.RunRoute(FRAMES);
}

// Threads and open files of this process; 0 where the system does not say.
std::size_t Entries(const char* folder) {
  std::error_code error;
  std::size_t entries = 0;
  for (std::filesystem::directory_iterator at(folder, error), end; !error && at != end;
       at.increment(error))
    ++entries;
  return entries;
}

void LeavesNothing(const Settings& settings) {
  Rig rig(settings);
  const auto cycle = [&] {
    rig.Create();
    rig.LinkAll();
    if (rig.Start() == 0) rig.Frames(2);
    rig.Delete();
  };
  for (const auto& [folder, what] :
       {std::pair{"/proc/self/fd", "open files"}, std::pair{"/proc/self/task", "threads"}}) {
    cycle();
    cycle();
    const std::size_t before = Entries(folder);
    for (int i = 0; i < 4; ++i)
      cycle();
    // A thread that was joined may be listed a moment longer.
    for (int i = 0; i < 200 && Entries(folder) > before; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (Entries(folder) > before)
      Report::Fault("four blocks later there are " + std::to_string(Entries(folder)) + " " + what +
                    " instead of " + std::to_string(before));
  }
}

}  // namespace

std::vector<Check> AllChecks() {
  return {{"create", "is created", IsCreated},
          {"link", "links and unlinks every port", LinksAndUnlinks},
          {"odd-links", "survives links that it may refuse", OddLinks},
          {"rollback", "forgets a link that its neighbour refused", RollsBack},
          {"start", "starts and stops twice", StartsTwice},
          {"bare-start", "starts or refuses without links", BareStart},
          {"frames", "passes frames", PassesFrames},
          {"wait", "waits for empty inputs and full outputs", Waits},
          {"odd-frames", "takes frames of odd lengths and links that are resized", OddFrames},
          {"parameters", "answers any parameter", Parameters},
          {"reset", "goes on after a reset in mid-stream", ResetsInMidStream},
          {"relink", "goes on after its links were cut in mid-stream", RelinkedInMidStream},
          {"destroy", "can be destroyed in every state", DestroyedInEveryState},
          {"route", "runs in a route, twice", RunsInARoute},
          {"leak", "leaves no thread and no open file behind", LeavesNothing}};
}

}  // namespace validate
