#include "Checks.h"

#include <chrono>
#include <filesystem>
#include <thread>

#include "Report.h"
#include "Rig.h"

namespace validate {

namespace {

using zelk::Block;

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
  if (!settings.first && rig.taken == 0) Report::Fault("none of 40 frames was taken");
  if (settings.first && rig.made == 0) Report::Fault("none of 40 frames was made");
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
