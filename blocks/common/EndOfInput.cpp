#include "common/EndOfInput.h"

#include "common/Log.h"

#include <algorithm>
#include <utility>

namespace zelk::blocks {
namespace {

constexpr char LOG_TAG[] = "blocks/EndOfInput";

// More blocks than any path of a graph has. Counts calls in one frame: nothing is waited for.
constexpr int PATIENCE = 1000;

long Spoiled() {
  LOG_E("A neighbour has left no place to write to in an output's descriptor");
  return -20;
}

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

void EndOfInput::Note(std::vector<Agreed>& agreed, const Endpoint& ep) {
  if (agreed.size() <= ep.Index()) agreed.resize(ep.Index() + 1);
  agreed[ep.Index()] = {ep.FB()->format, ep.FB()->channels, ep.FB()->rate};
}

void EndOfInput::PutRight(const std::vector<Agreed>& agreed, const Endpoint& ep) noexcept {
  if (ep.Index() >= agreed.size()) return;
  FrameBuffer& fb = *ep.FB();
  fb.format = agreed[ep.Index()].format;
  fb.channels = agreed[ep.Index()].channels;
  fb.rate = agreed[ep.Index()].rate;
}

// An input's other fields need nothing: `Available()` knows how much of them is true.
bool EndOfInput::PutRight() const noexcept {
  for (const auto& [index, ep] : block.ActiveInEps())
    PutRight(agreedIns, *ep);
  for (const auto& [index, ep] : block.ActiveOutEps()) {
    PutRight(agreedOuts, *ep);
    FrameBuffer& fb = *ep->FB();
    const long valid = std::exchange(fb.validSamples, LONG_MAX);
    const long room = ep->Available();
    fb.validSamples = valid;
    if (fb.samplesPerFrame >= 0 && fb.samplesPerFrame <= room) continue;
    if (room == 0) return false;
    fb.samplesPerFrame = room;
  }
  return true;
}

std::optional<long> EndOfInput::SourceAnswer() {
  if (!PutRight()) return Spoiled();
  if (!OutputsEmpty()) return 0;
  if (!lastSent) return std::nullopt;
  return Waiting(OutputsWait(), FRAME_END_OF_FILE);
}

std::optional<long> EndOfInput::Answer() {
  gaveUp = false;
  if (!PutRight()) return Spoiled();
  if (!OutputsEmpty()) {
    if (++pendings <= PATIENCE) return FRAME_PENDING;
    pendings = 0;
    return 0;
  }
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
    if (frame) return std::nullopt;
    const Wait wait = OutputsWait();
    for (const auto& [index, ep] : block.ActiveInEps())
      ep->FB()->timestamp = wait == Wait::NOTHING ? -1 : HELD;
    return Waiting(wait, FRAME_DONE_WITHOUT_OUTPUT);
  }
  if (++pendings <= PATIENCE) return FRAME_PENDING;
  pendings = 0;
  gaveUp = true;
  // Left behind when somebody reset the block: nothing is held any more.
  for (const auto& [index, ep] : block.ActiveInEps())
    if (!ended.test(index) && !HasFrame(*ep->FB())) ep->FB()->timestamp = -1;
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
  const long long held = HeldMark();
  for (const auto& [index, ep] : block.ActiveInEps())
    TakeFrom(*ep, held);
}

void EndOfInput::Take(std::size_t input) noexcept {
  const auto found = block.ActiveInEps().find(input);
  if (found != block.ActiveInEps().end()) TakeFrom(*found->second, HeldMark());
}

long long EndOfInput::HeldMark() const noexcept {
  if (block.ActiveOutEps().empty()) return -1;
  return InputIsLast() ? HELD : HELD_QUIETLY;
}

void EndOfInput::TakeFrom(const InputEndpoint& ep, long long held) noexcept {
  FrameBuffer& fb = *ep.FB();
  if (HasFrame(fb)) ended.set(ep.Index(), IsLastMark(fb.timestamp));
  fb.validSamples = 0;
  fb.timestamp = ended.test(ep.Index()) ? held : -1;
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

EndOfInput::Wait EndOfInput::OutputsWait() noexcept {
  Wait wait = Wait::NOTHING;
  bool unaware = false;
  for (const auto& [index, ep] : block.ActiveOutEps()) {
    const long long timestamp = ep->FB()->timestamp;
    if (timestamp == HELD)
      wait = Wait::CALLING;
    else if (timestamp == HELD_QUIETLY)
      wait = std::max(wait, Wait::QUIETLY);
    else if (timestamp != -1)
      unaware = true;
  }
  if (wait == Wait::CALLING && unaware) {
    // Calling the one that holds would also call the other with an empty input, and it might wait
    // for samples for ever.
    LOG_W(
        "A block behind one output knows nothing of the end of input: not waiting for the others");
    return Wait::NOTHING;
  }
  // The quiet one is called now and then all the same: its other inputs may have been unlinked.
  if (wait == Wait::QUIETLY && !unaware && ++quietCalls % PATIENCE == 0) return Wait::CALLING;
  return wait;
}

long EndOfInput::Waiting(Wait wait, long otherwise) noexcept {
  if (wait == Wait::NOTHING) return otherwise;
  return wait == Wait::CALLING ? 0 : FRAME_DONE_WITHOUT_OUTPUT;
}

}  // namespace zelk::blocks
