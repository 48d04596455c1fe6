#include "Rig.h"

#include <unistd.h>
#include <zelk/Ioctl.h>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <thread>

#include "InFront.h"
#include "Report.h"

namespace validate {

using zelk::Block;
using zelk::Link;

Rig::Rig(const Settings& wanted) : settings(wanted), zelk(zelk::Zelk::Instance()) {
#if defined(__linux__)
  // Sockets that the block opens later are its own.
  while (!ConsoleRefused())
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
#endif
  // The singleton's end would wait for the thread that ends it, and remove a host's console.
  std::atexit([] { _exit(0); });
  route = zelk->NewRoute("RouteV", &listener);
  if (route == nullptr) throw Over("no route could be made");
  // First and last: it needs no link, and its frames do nothing.
  caller = Probe(true, true, callerHooks);
}

Rig::~Rig() {
  {
    const Calling calling("the deletion of the route");
    zelk->DeleteRoute(route);
  }
  if (fifo) fifo->Shutdown();
  zelk->DeleteFIFO(fifo);
}

Block* Rig::Probe(bool first, bool last, ProbeHooks& hooks) {
  Block* const probe = route->NewBlock(PROBE_FILE, first, last, {});
  if (probe == nullptr) throw Over(std::string(PROBE_FILE) + " is not where libzelk finds blocks");
  probe->ioctl(IOCTL_BIND_PROBE, &hooks);
  return probe;
}

Block* Rig::Source() {
  if (!source) source = Probe(true, false, sourceHooks);
  return source;
}

Block* Rig::Sink() {
  if (!sink) sink = Probe(false, true, sinkHooks);
  return sink;
}

Block* Rig::TryCreate(bool first, bool last) {
  const Calling calling("CreateBlock()");
  block = route->NewBlock(settings.file.c_str(), first, last, settings.words);
  if (block && settings.fifo) BindFifo();
  return block;
}

Block* Rig::Create() {
  if (!TryCreate(settings.first, settings.last)) throw Over("CreateBlock() returned null");
  return block;
}

void Rig::BindFifo() {
  const LinkKind& kind = settings.link;
  if (!fifo)
    fifo = zelk->NewFIFO(kind.rate, kind.channels * zelk::BytesPerSample(kind.format),
                         8 * kind.samples, 0);
  if (block->ioctl(zelk::IOCTL_BIND_FIFO, fifo) < 0) Report::Fault("it takes no FIFO");
}

void Rig::Delete() {
  if (!block) return;
  const Calling calling("the block's destructor");
  if (route->Delete(block) < 0) throw Over("the block was not in its route any more");
  block = nullptr;
  ins.fill(nullptr);
  outs.fill(nullptr);
}

Link* Rig::LinkIn(std::size_t port, const LinkKind& kind) {
  Block* const from = Source();
  const Calling calling("OnInEpLinked(" + std::to_string(port) + ")");
  return route->NewLink(kind.rate, kind.format, kind.channels, kind.samples, from, port, block,
                        port);
}

Link* Rig::LinkOut(std::size_t port, const LinkKind& kind) {
  Block* const to = Sink();
  const Calling calling("OnOutEpLinked(" + std::to_string(port) + ")");
  return route->NewLink(kind.rate, kind.format, kind.channels, kind.samples, block, port, to, port);
}

void Rig::Unlink(Link* link, const std::string& what) {
  const Calling calling("On" + what + "EpUnlinked()");
  if (route->Delete(link) < 0) throw Over("a link was not in its route any more");
}

void Rig::LinkAll() {
  bool linked = false;
  for (std::size_t port = 0; port < zelk::MAX_EPS; ++port) {
    if (!ins[port] && !settings.first) ins[port] = LinkIn(port);
    if (!outs[port] && !settings.last) outs[port] = LinkOut(port);
    linked = linked || ins[port] || outs[port];
  }
  // Most ports of most blocks do not exist.
  if (linked) Report::Send(FORGET, {});
}

void Rig::UnlinkAll() {
  for (Link*& link : ins) {
    if (link) Unlink(link, "In");
    link = nullptr;
  }
  for (Link*& link : outs) {
    if (link) Unlink(link, "Out");
    link = nullptr;
  }
}

int Rig::Start() {
  int ret = 0;
  On([&] {
    const Calling calling("Start()");
    ret = block->BaseStart();
  });
  if (ret != 0 && ret != -20)
    Report::Fault("Start() returned " + std::to_string(ret) +
                  "; while the route runs any code but 0 and -20 ends the route's thread");
  return ret;
}

int Rig::Stop() {
  int ret = 0;
  On([&] {
    const Calling calling("Stop()");
    ret = block->BaseStop();
  });
  if (ret != 0) Report::Fault("Stop() returned " + std::to_string(ret));
  return ret;
}

bool Rig::Restart(const std::string& when) {
  if (Start() == 0) return true;
  if (!settings.once) throw Over("Start() refused " + when);
  Report::Note("it does not start again " + when);
  return false;
}

void Rig::Ready() {
  Create();
  LinkAll();
  if (const int ret = Start(); ret != 0)
    throw Over("Start() returned " + std::to_string(ret) + " with every port linked");
}

void Rig::On(const std::function<void()>& code) {
  std::exception_ptr error;
  callerHooks.call = [&] {
    try {
      code();
    } catch (...) {
      error = std::current_exception();
    }
  };
  route->SetParameter(caller, 0, {});
  callerHooks.call = nullptr;
  if (error) std::rethrow_exception(error);
}

}  // namespace validate
