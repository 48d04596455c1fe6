// A frame of a warm route allocates nothing, in the library or in the stock blocks.
#include <gtest/gtest.h>
#include <zelk/Ioctl.h>
#include <zelk/Zelk.h>

#include <atomic>
#include <string>
#include <vector>

#include "support/Allocator.h"

namespace {

constexpr long SAMPLES = 480;

std::atomic<unsigned long> allocations{0};

// From now on every allocation counts, or none does.
void Count(bool on) {
  test::mayAllocate = !on ? nullptr : +[](std::size_t) { return ++allocations != 0; };
}

// Reads frames that the route sends through a FIFO, and so lets it run as many, less what the FIFO
// holds. Returns what was allocated meanwhile, by any thread.
unsigned long AllocationsIn(zelk::FIFO& fifo, int frames) {
  std::vector<short> frame(2 * SAMPLES);
  const unsigned long before = allocations;
  Count(true);
  for (int i = 0; i < frames; ++i)
    EXPECT_EQ(fifo.Produce(frame.data(), SAMPLES, true, nullptr), 0);
  Count(false);
  return allocations - before;
}

}  // namespace

TEST(Allocation, FramesOfAWarmRouteAllocateNothing) {
  zelk::Zelk* zelk = zelk::Zelk::Instance();
  zelk::FIFO* fifo = zelk->NewFIFO(48000, 4, 2 * SAMPLES, 0);
  zelk::FIFO* dropping = zelk->NewFIFO(48000, 4, 2 * SAMPLES, 0);
  zelk::Route* route = zelk->NewRoute("RouteA", nullptr);
  // Two chains of different lengths: waves of two blocks and of one.
  std::vector<zelk::Block*> blocks;
  const auto add = [&](const char* plugin, bool first, bool last, std::vector<std::string> args) {
    blocks.push_back(route->NewBlock(plugin, first, last, args));
    ASSERT_NE(blocks.back(), nullptr) << plugin;
  };
  add("siggen.so", true, false, {"sine"});
  add("gain.so", false, false, {"-6"});
  add("gain.so", false, false, {"6"});
  add("fifosink.so", false, true, {"block"});
  add("siggen.so", true, false, {"noise"});
  add("fifosink.so", false, true, {"drop"});
  for (const auto& [from, to] : {std::pair{0, 1}, {1, 2}, {2, 3}, {4, 5}}) {
    ASSERT_NE(
        route->NewLink(48000, zelk::S16_LE, 2, SAMPLES, blocks[static_cast<std::size_t>(from)], 0,
                       blocks[static_cast<std::size_t>(to)], 0),
        nullptr);
  }
  ASSERT_EQ(blocks[3]->ioctl(zelk::IOCTL_BIND_FIFO, fifo), 0);
  ASSERT_EQ(blocks[5]->ioctl(zelk::IOCTL_BIND_FIFO, dropping), 0);
  ASSERT_EQ(route->Start(), 0);

  AllocationsIn(*fifo, 10);
  EXPECT_EQ(AllocationsIn(*fifo, 200), 0u);

  Count(true);
  const unsigned long before = allocations;
  route->NewBlock("gain.so", true, true, {});
  Count(false);
  EXPECT_GT(allocations - before, 1u) << "the counter sees what the library allocates";

  fifo->Shutdown();
  dropping->Shutdown();
  zelk->DeleteRoute(route);
  zelk->DeleteFIFO(fifo);
  zelk->DeleteFIFO(dropping);
}
