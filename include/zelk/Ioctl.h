// Commands of `Block::ioctl` that the stock blocks understand.
#pragma once

namespace zelk {

/// The argument's type stands with each command; null arguments are allowed where it says so. A
/// command returns 0, or -20 where a block does not know it. [any-thread, real-time safe]
enum IoctlCommand : unsigned int {
  /// fifosrc, fifosink: `arg` is a `zelk::FIFO*` (as such, not as one of its bases), whose elements
  /// are one sample of all channels in the format of the block's link. It is borrowed until another
  /// one, or null, is bound; bind before the route starts, and unbind or delete it only while the
  /// route is stopped. `FIFO::Shutdown()` ends a wait at any time.
  IOCTL_BIND_FIFO = 0x7A6C0001,

  /// fifosrc: `arg` points at a `long long`, the number of samples per channel, counted from the
  /// start of the route, after which the input ends; negative or null when that is not known. The
  /// number is copied. Announce it before the last frame's samples are awaited: a frame that is
  /// being waited for keeps its length.
  IOCTL_TOTAL_SAMPLES = 0x7A6C0002,
};

}  // namespace zelk
