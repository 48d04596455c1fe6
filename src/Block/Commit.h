// The commit of a frame: descriptors travel across the links, samples stay where they are. In line
// for the frame loop, of which it is the larger half.
#pragma once

#include <zelk/Block.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Link/LinkView.h"

namespace zelk {

/// Copies a descriptor to the other end of its link and publishes it. What blocks store goes field
/// by field: a wide load over what was just stored narrowly waits until that has reached the cache.
inline void Pass(const FrameBuffer& from, FrameBuffer& to, LinkView& view) {
  std::memcpy(static_cast<void*>(&to), &from, offsetof(FrameBuffer, samplesPerFrame));
  to.samplesPerFrame = from.samplesPerFrame;
  to.validSamples = from.validSamples;
  to.rate = from.rate;
  to.timestamp = from.timestamp;
  view.PublishCommit(from);
}

inline void Block::Commit() {
  // Ports are mostly used from 0 on, so trying them in turn is the shortest way to the active ones.
  // An active port without a peer belongs to a block that is tested alone.
  InputEndpoint* in = inEps;
  for (std::uint32_t rest = activeIns; rest != 0; rest >>= 1, ++in) {
    if ((rest & 1) == 0 || in->peer == nullptr) continue;
    Pass(in->fb, in->peer->fb, *in->view);
  }
  OutputEndpoint* out = outEps;
  for (std::uint32_t rest = activeOuts; rest != 0; rest >>= 1, ++out) {
    if ((rest & 1) == 0 || out->peer == nullptr) continue;
    Pass(out->fb, out->peer->fb, *out->view);
    if (dumpPath != nullptr && !dumpPath->empty()) Dump(*out);
  }
}

inline void Block::Prefetch() const {
  __builtin_prefetch(this);
  __builtin_prefetch(&inEps[0].fb);
  __builtin_prefetch(&outEps[0].fb);
}

}  // namespace zelk
