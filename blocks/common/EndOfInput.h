// How the end of a source's input travels through a graph without losing a sample.
//
// A route stops at the first FRAME_END_OF_FILE, so a source may give that answer only when nobody
// behind it still has work: not the join that also listens to a longer source, not the blocks that
// this join feeds. Blocks tell each other through the time stamps of the frames:
//
//   * The last frame says so. A source marks it: -2 - t instead of a time t, LAST_WITHOUT_TIME
//     instead of -1. A block that knows nothing of this sees a negative time, that is, none.
//   * A block that takes a last frame puts all that it still holds into its own last frame.
//   * It takes the samples as ever, but leaves HELD in the time stamp of its input. Its commit
//     returns that to the producer, and so on up to the source, which then has to wait.
//   * Once its own last frame was taken and is not held, it lets its inputs go: their time stamps
//     become -1, and its producers do the same in the next frame.
//   * A source whose last frame was taken and is not held answers FRAME_END_OF_FILE.
//
// A waiting block answers 0 with empty outputs, so that the blocks that hold it are called; only
// what has marked its input HELD is ever called that way. A join that still has a living input
// marks HELD_QUIETLY: that input calls it, and a second call in a frame would find it waiting.
#pragma once

#include <zelk/Block.h>

#include <bitset>
#include <climits>
#include <optional>
#include <vector>

namespace zelk::blocks {

inline constexpr long long LAST_WITHOUT_TIME = LLONG_MIN;
inline constexpr long long HELD = LLONG_MIN + 1;
inline constexpr long long HELD_QUIETLY = LLONG_MIN + 2;

/// Whether a time stamp marks the last frame of a stream. [any-thread]
constexpr bool IsLastMark(long long timestamp) noexcept {
  return timestamp == LAST_WITHOUT_TIME || (timestamp <= -2 && timestamp > HELD_QUIETLY);
}

/// The time in a time stamp, marked or not; -1 for none.
constexpr long long TimeOf(long long timestamp) noexcept {
  if (timestamp >= -1) return timestamp;
  return timestamp <= HELD_QUIETLY ? -1 : -2 - timestamp;
}

/// The time stamp of a last frame of time `time`.
constexpr long long LastMark(long long time) noexcept {
  return time < 0 || time > LLONG_MAX - 4 ? LAST_WITHOUT_TIME : -2 - time;
}

/// One block's part in this. Borrows the block, whose member it is. [route-thread, real-time safe]
class EndOfInput {
 public:
  explicit EndOfInput(Block& owner) : block(owner) {}

  /// Call from `Block::Start()`: forgets an earlier end.
  void Start() noexcept;

  /// Call from `OnInEpLinked()`: forgets what an earlier link of this input said.
  void Linked(std::size_t input) noexcept { ended.reset(input); }

  /// Call from `On…EpLinked()` with the port: notes what its link agreed on. Allocates.
  void Agree(const InputEndpoint& ep) { Note(agreedIns, ep); }
  void Agree(const OutputEndpoint& ep) { Note(agreedOuts, ep); }

  // Both put the descriptors right, whatever a neighbour wrote there, and answer -20 after an E
  // record where an output's data are beyond that: who trusted them would write outside of the
  // link's buffer.

  /// First thing in a source's `ProcessFrame()`: its answer, or nothing when it is to make a frame.
  std::optional<long> SourceAnswer();

  /// First thing in every other block's `ProcessFrame()`: its answer, or nothing when all outputs
  /// are empty and every input holds a frame, an end without samples, or has ended before.
  ///
  /// While an input is missing the answer is FRAME_PENDING: any other would commit the block, and a
  /// commit in the very wave in which a producer fills the missing frame can wipe that out.
  /// Likewise while an output is full: a commit beside its consumer's would hand it the frame
  /// twice. After as many calls as no graph is deep the answer is FRAME_DONE_WITHOUT_OUTPUT, and
  /// `GaveUp()` is true; or 0 for a full output, so that its consumer is called.
  std::optional<long> Answer();

  /// Whether the last `Answer()` gave up waiting. A join that keeps queues may then take what is
  /// there instead of returning the answer, so that no producer finds its frame untaken.
  bool GaveUp() const noexcept { return gaveUp; }

  /// Whether the inputs, once taken, have all ended: the frame made of them is the last one.
  bool InputIsLast() const noexcept;

  /// Whether this input has ended; its last frame was taken.
  bool Ended(std::size_t input) const noexcept { return ended.test(input); }

  /// Takes the frame of every active input that has one.
  void Take() noexcept;

  /// Takes the frame of one input, if it has one; for joins that keep queues.
  void Take(std::size_t input) noexcept;

  /// Publishes what the block wrote into its active outputs: `samples` per channel, the first of
  /// time `time`. Returns what `ProcessFrame()` answers. `samples` may be 0: the end of a stream
  /// then travels without a frame if all consumers are known to understand it.
  long Send(long samples, long long time, bool last) noexcept;

 private:
  long long HeldMark() const noexcept;
  void TakeFrom(const InputEndpoint& ep, long long held) noexcept;
  struct Agreed {
    SampleFormat format = BYTE;
    unsigned int channels = 0;
    unsigned int rate = 0;
  };
  static void Note(std::vector<Agreed>& agreed, const Endpoint& ep);
  static void PutRight(const std::vector<Agreed>& agreed, const Endpoint& ep) noexcept;
  bool PutRight() const noexcept;

  bool OutputsEmpty() const noexcept;
  /// What the consumers' marks ask for: nothing, to wait, or to wait and call them.
  enum class Wait { NOTHING, QUIETLY, CALLING };
  Wait OutputsWait() noexcept;
  static long Waiting(Wait wait, long otherwise) noexcept;

  Block& block;
  std::vector<Agreed> agreedIns, agreedOuts;  // by port
  std::bitset<MAX_EPS> ended;                 // inputs whose last frame was taken
  bool lastSent = false;
  long long sentTime = -1;  // of the frame before; tells whether consumers answer in time stamps
  int pendings = 0;
  int quietCalls = 0;
  bool gaveUp = false;
};

}  // namespace zelk::blocks
