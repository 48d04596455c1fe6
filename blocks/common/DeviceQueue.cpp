#include "common/DeviceQueue.h"

namespace zelk::blocks {

void DeviceQueue::Prepare(std::size_t channels, std::size_t frame, std::size_t ahead,
                          unsigned int rate) {
  frameSize = frame;
  aheadWanted = ahead;
  // A device that is late by this much is not going to catch up in a way that anybody would hear.
  patience = std::chrono::milliseconds(500 + 4000 * (frame + ahead) / rate);
  period = 0;
  gap = 0;
  ring.Allocate(channels, frame + std::max({ahead, PERIODS_AHEAD * MAX_PERIOD, frame,
                                            static_cast<std::size_t>(rate / 2)}));
}

void DeviceQueue::Begin() {
  if (running) return;
  draining = false;
  // What an earlier run left behind.
  ring.Read(ring.Readable(), [](const float*, std::size_t, std::size_t) {});
  gap = 0;
  running.store(true, std::memory_order_release);
}

std::size_t DeviceQueue::WaitForCapture(std::size_t count, std::uint64_t& passed) {
  count = std::min(count, ring.Capacity());
  const auto ready = [&] { return gap != 0 || ring.Readable() >= count || Gone(); };
  while (wake.WaitFor(patience, ready) && !Gone()) {
    // Before a gap nothing is added any more.
    const bool gapAhead = gap.load(std::memory_order_acquire) != 0;
    const std::size_t there = std::min(count, ring.Readable());
    if (there > 0) return there;
    if (gapAhead) passed += gap.exchange(0, std::memory_order_acq_rel);
  }
  return 0;
}

bool DeviceQueue::WaitToPlay() {
  return wake.WaitFor(patience, [this] { return ring.Readable() <= Ahead() || Gone(); }) && !Gone();
}

bool DeviceQueue::Drain() {
  idlePeriods = 0;
  draining = true;
  // The device may fetch what a callback delivered only in its next period.
  const auto done = [this] { return (Waiting() == 0 && idlePeriods >= PERIODS_AHEAD) || Gone(); };
  return running && wake.WaitFor(patience, done) && !Gone();
}

std::size_t DeviceQueue::Ahead() const noexcept {
  return std::max(aheadWanted, PERIODS_AHEAD * period.load(std::memory_order_relaxed));
}

std::size_t DeviceQueue::Playable(std::size_t count) noexcept {
  const std::size_t there = ring.Readable();
  const bool ending = draining.load(std::memory_order_acquire);
  if (count == 0 || (!playing && there <= Ahead() && !ending)) return 0;
  const std::size_t played = std::min(there, count);
  playing = played == count;
  if (played < count && !ending) lost.fetch_add(count - played, std::memory_order_relaxed);
  if (played > 0)
    idlePeriods = 0;
  else
    ++idlePeriods;
  return played;
}

}  // namespace zelk::blocks
