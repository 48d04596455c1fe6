// The numbered ports of a block.
#pragma once

#include <zelk/Export.h>
#include <zelk/FrameBuffer.h>

#include <cstddef>

namespace zelk {

class Block;
class Link;
struct LinkView;

/// Every block has this many input and this many output endpoints.
inline constexpr std::size_t MAX_EPS = 32;

/// One port of a block. Owned by its block, lives as long as it. [route-thread]
class ZELK_EXPORT Endpoint {
 public:
  /// Descriptor of the frame that passes through this port. Never null; keeps its last values while
  /// the port is inactive. Real-time safe.
  FrameBuffer* FB() const noexcept { return &fb; }

  /// Number of the port inside its block, 0 to `MAX_EPS` - 1; `MAX_EPS` outside a block.
  std::size_t Index() const noexcept { return index; }

  /// Samples per channel that may be read from `FB()->data`: `validSamples`, but never more than
  /// the link's buffer holds, whatever a faulty block at the other end wrote into the descriptor. 0
  /// when the port is inactive. Real-time safe.
  long Available() const noexcept;

  /// Whether a link is attached.
  bool IsActive() const noexcept { return link != nullptr; }

 protected:
  friend class Block;
  friend class Link;
  friend class RouteImpl;

  std::size_t index = MAX_EPS;  ///< see `Index()`
  Block* block = nullptr;       ///< the owner
  Link* link = nullptr;         ///< null while inactive
  mutable FrameBuffer fb;       ///< see `FB()`

 private:
  // The link's other end and its published face, here because every commit needs both.
  Endpoint* peer = nullptr;
  LinkView* view = nullptr;
};

/// A port that receives frames. The consumer reads `FB()`, then sets its `validSamples` to 0.
class ZELK_EXPORT InputEndpoint : public Endpoint {};

/// A port that sends frames. The producer waits for `validSamples` 0, fills `data`, and sets
/// `validSamples` and `timestamp`; the consumer sees it after the producer's commit.
class ZELK_EXPORT OutputEndpoint : public Endpoint {
 public:
  /// Changes the link's frame size to `samples` per channel; both ends see the new `data` and
  /// `samplesPerFrame` at once. Existing bytes stay up to the new size, added bytes are zero,
  /// `validSamples` and `timestamp` stay as they are.
  ///
  /// Does nothing when the port is inactive. A negative size, one whose bytes overflow, or one that
  /// cannot be allocated leaves everything as it was and is logged. May allocate, so it is
  /// real-time safe only for the size that the link has already. [route-thread & linked]
  void Resize(long samples);

  /// Publishes a frame of any length in one call: resizes as above, copies `samples` per channel
  /// from `src`, and sets `validSamples` and `timestamp`. `src` may lie in the link's own buffer;
  /// null copies nothing. A resize that failed publishes nothing. [route-thread & linked]
  void Resize(long samples, const void* src, long long timestamp);
};

}  // namespace zelk
