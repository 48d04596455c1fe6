#include "common/EndOfInput.h"

#include "common/Log.h"

namespace zelk::blocks {
namespace {

constexpr char LOG_TAG[] = "blocks/EndOfInput";

// More blocks than any path of a graph has. Counts calls in one frame: nothing is waited for.
constexpr int PATIENCE = 1000;

bool HasFrame(const FrameBuffer& fb) {
  return fb.validSamples != 0 || IsLastMark(fb.timestamp);
}

}  // namespace

void EndOfInput::Start() noexcept {
  ended.reset();
  lastSent = false;
  sentTime = -1;
  pendings = 0;
  gaveUp = false;
  // A frame that a stopped route left in a link is still to be taken; only bare marks are stale.
  for (const auto& [index, ep] : block.ActiveInEps())
    if (ep->FB()->validSamples == 0) ep->FB()->timestamp = -1;
  for (const auto& [index, ep] : block.ActiveOutEps())
    if (ep->FB()->validSamples == 0) ep->FB()->timestamp = -1;
}

std::optional<long> EndOfInput::SourceAnswer() {
  if (!OutputsEmpty()) return 0;
  if (!lastSent) return std::nullopt;
  if (OutputsHeld()) return 0;
  return FRAME_END_OF_FILE;
}

std::optional<long> EndOfInput::Answer() {
  gaveUp = false;
  if (!OutputsEmpty()) return 0;
  bool frame = false;
  bool missing = false;
  for (const auto& [index, ep] : block.ActiveInEps()) {
    if (HasFrame(*ep->FB()))
      frame = true;
    else if (!ended.test(index))
      missing = true;
  }
  if (!missing) {
    pendings = 0;
    return frame ? std::nullopt : Hold();
  }
  if (++pendings <= PATIENCE) return FRAME_PENDING;
  pendings = 0;
  gaveUp = true;
  // Left behind when somebody reset the block: nothing is held any more.
  for (const auto& [index, ep] : block.ActiveInEps())
    if (!ended.test(index) && ep->FB()->timestamp == HELD) ep->FB()->timestamp = -1;
  return FRAME_DONE_WITHOUT_OUTPUT;
}

bool EndOfInput::InputIsLast() const noexcept {
  for (const auto& [index, ep] : block.ActiveInEps()) {
    const FrameBuffer& fb = *ep->FB();
    if (HasFrame(fb) ? !IsLastMark(fb.timestamp) : !ended.test(index)) return false;
  }
  return true;
}

void EndOfInput::Take() noexcept {
  const bool holds = !block.ActiveOutEps().empty();
  for (const auto& [index, ep] : block.ActiveInEps()) {
    FrameBuffer& fb = *ep->FB();
    if (HasFrame(fb)) ended.set(index, IsLastMark(fb.timestamp));
    fb.validSamples = 0;
    fb.timestamp = ended.test(index) && holds ? HELD : -1;
  }
}

long EndOfInput::Send(long samples, long long time, bool last) noexcept {
  lastSent = last;
  if (samples <= 0) {
    if (!last) return FRAME_DONE_WITHOUT_OUTPUT;
    // A consumer that leaves time stamps alone may wait for samples for ever.
    if (sentTime < 0) return FRAME_DONE_WITHOUT_OUTPUT;
    for (const auto& [index, ep] : block.ActiveOutEps())
      if (ep->FB()->timestamp != -1) return FRAME_DONE_WITHOUT_OUTPUT;
  }
  sentTime = time;
  for (const auto& [index, ep] : block.ActiveOutEps()) {
    ep->FB()->validSamples = samples;
    ep->FB()->timestamp = last ? LastMark(time) : time;
  }
  return 0;
}

bool EndOfInput::OutputsEmpty() const noexcept {
  for (const auto& [index, ep] : block.ActiveOutEps())
    if (ep->FB()->validSamples != 0) return false;
  return true;
}

bool EndOfInput::OutputsHeld() noexcept {
  bool held = false;
  bool unaware = false;
  for (const auto& [index, ep] : block.ActiveOutEps()) {
    const long long timestamp = ep->FB()->timestamp;
    if (timestamp == HELD)
      held = true;
    else if (timestamp != -1)
      unaware = true;
  }
  if (held && unaware) {
    // Calling the one that holds would also call the other with an empty input, and it might wait
    // for samples for ever.
    LOG_W(
        "A block behind one output knows nothing of the end of input: not waiting for the others");
    return false;
  }
  return held;
}

std::optional<long> EndOfInput::Hold() noexcept {
  const bool held = OutputsHeld();
  for (const auto& [index, ep] : block.ActiveInEps())
    ep->FB()->timestamp = held ? HELD : -1;
  return held ? 0 : FRAME_DONE_WITHOUT_OUTPUT;
}

}  // namespace zelk::blocks
