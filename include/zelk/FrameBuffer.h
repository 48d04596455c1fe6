// Descriptor of one frame of samples.
#pragma once

#include <zelk/SampleFormat.h>

namespace zelk {

/// Describes one frame: where its bytes are, how they are encoded, how many are valid.
///
/// The bytes belong to the link, and both of its endpoints hold a descriptor that points at them.
/// A frame is `samplesPerFrame` × `channels` × `BytesPerSample(format)` bytes, interleaved.
///
/// `validSamples` is the hand-shake between two blocks: a producer sets it when the frame is
/// filled, the consumer sets it to 0 when it has taken the frame. Only the route's thread touches a
/// descriptor. A block writes `validSamples` and `timestamp`; the other fields are the link's.
struct FrameBuffer {
  unsigned char* data = nullptr;  ///< first byte of the link's buffer; null before the first link
  SampleFormat format = BYTE;     ///< encoding of the samples
  unsigned int channels = 0;      ///< interleaved channels
  long samplesPerFrame = 0;       ///< capacity of the buffer, samples per channel
  long validSamples = 0;          ///< samples per channel held now; 0 means empty
  unsigned int rate = 0;          ///< sample rate in Hz
  long long timestamp = -1;       ///< time of the first sample in microseconds; negative: none
};

}  // namespace zelk
