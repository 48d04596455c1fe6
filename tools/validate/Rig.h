// A route around the block under test, stopped, whose waves the checks make by hand: so that they
// see what the block does to each descriptor, and in which call.
#pragma once

#include <zelk/Zelk.h>

#include <array>
#include <functional>
#include <stdexcept>
#include <string>

#include "Listener.h"
#include "Probe.h"
#include "Settings.h"

namespace validate {

/// Ends a check early: what was found is told already.
struct Over : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class Rig {
 public:
  explicit Rig(const Settings& settings);
  Rig(const Rig&) = delete;
  Rig& operator=(const Rig&) = delete;
  ~Rig();

  /// A new block under test, with the roles that are known; null when it refuses.
  zelk::Block* TryCreate(bool first, bool last);
  /// The same, or the end of the check.
  zelk::Block* Create();
  void Delete();

  /// Joins one port of the block; null when it refuses.
  zelk::Link* LinkIn(std::size_t port) { return LinkIn(port, settings.link); }
  zelk::Link* LinkOut(std::size_t port) { return LinkOut(port, settings.link); }
  zelk::Link* LinkIn(std::size_t port, const LinkKind& kind);
  zelk::Link* LinkOut(std::size_t port, const LinkKind& kind);
  void Unlink(zelk::Link* link, const std::string& what);
  /// Joins every port that the block accepts.
  void LinkAll();
  void UnlinkAll();

  /// Starts or stops the block. Tells of results that a route cannot live with.
  int Start();
  /// Starts it once more; false when it refuses and may. Else a refusal ends the check.
  bool Restart(const std::string& when);
  int Stop();
  /// Creates, links and starts.
  void Ready();

  /// Hands `samples` to every input whose last frame was taken, calls the block until it has an
  /// answer, and takes its outputs. False when the block ended its route: it is stopped then.
  bool Frame(long samples);
  /// Frames of the link's own length. A block that came to its end is started again, twice.
  void Frames(int count);

  /// Hands frames to the inputs; calls the block once and commits it by its answer; takes outputs.
  void Feed(long samples);
  long Process(const std::string& with);
  void Take();

  /// Runs `code` on the route's thread, between two frames, as everything above does.
  void On(const std::function<void()>& code);

  /// Drives the route itself until `frames` frames came out, or went in, and stops it.
  void RunRoute(int frames);

  zelk::Block* block = nullptr;
  zelk::Route* route = nullptr;
  ProbeHooks sourceHooks, sinkHooks;
  std::array<zelk::Link*, zelk::MAX_EPS> ins{}, outs{};
  int made = 0;   ///< frames that came out of the block
  int taken = 0;  ///< frames that it took
  long warmFrames = 0, warmAllocations = 0;

 private:
  zelk::Block* Probe(bool first, bool last, ProbeHooks& hooks);
  zelk::Block* Source();
  zelk::Block* Sink();
  void Fill(zelk::FrameBuffer& fb, long samples);
  void FeedHere(zelk::Block& from, long samples);
  int TakeHere(zelk::Block& to);
  bool ProcessHere(const std::string& with, long& result);
  void BindFifo();

  const Settings& settings;
  zelk::Zelk* zelk = nullptr;
  zelk::FIFO* fifo = nullptr;
  zelk::Block* source = nullptr;
  zelk::Block* sink = nullptr;
  zelk::Block* caller = nullptr;
  ProbeHooks callerHooks;
  Listener listener;
  long long samplesFed = 0;
  int ends = 0;
};

}  // namespace validate
