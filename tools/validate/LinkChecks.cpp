// The checks of a block's ports.
#include <algorithm>

#include "Checks.h"
#include "Report.h"
#include "Rig.h"

namespace validate {

namespace {

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

}  // namespace

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

}  // namespace validate
