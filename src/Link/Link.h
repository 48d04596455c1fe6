// Joins one output endpoint to one input endpoint and owns the sample bytes between them.
#pragma once

#include <zelk/Endpoint.h>

#include <memory>
#include <string>
#include <vector>

#include "Link/LinkView.h"

namespace zelk {

/// Created, connected, used and destroyed on its route's thread only. [route-thread]
class Link {
 public:
  Link(const std::string& routeName, const std::string& name, unsigned int rate,
       SampleFormat format, unsigned int channels, long samplesPerFrame);
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  /// Attaches to both endpoints and tells both blocks, the output side first. Returns 0, or after a
  /// full roll-back: -20 for a null or active endpoint and for a size that is negative, overflows
  /// or cannot be allocated; else the code of the block that refused.
  int Connect(OutputEndpoint* out, InputEndpoint* in);

  /// Detaches from both endpoints, telling the output's block first.
  void Disconnect();

  /// Changes the frame size; both descriptors see the new `data` and `samplesPerFrame`. False, with
  /// nothing changed but a record, when the size is refused as in `Connect`. Needs a connection.
  bool Reallocate(long samplesPerFrame);

  /// Reallocates, then puts `bytes` bytes of `src` in front; `src` may lie in the buffer itself.
  bool Reallocate(long samplesPerFrame, const void* src, std::size_t bytes);

  /// Publishes both ends' descriptors to the console.
  void Publish() noexcept;

  /// How many of the valid samples of a descriptor lie in this link's buffer; 0 for none.
  std::size_t SamplesInside(const FrameBuffer& fb) const noexcept;

  /// How many of `wanted` bytes from `data` on lie in this link's buffer.
  std::size_t BytesInside(const unsigned char* data, std::size_t wanted) const noexcept;

 private:
  friend class Block;
  friend class RouteImpl;

  bool SizeInBytes(long samples, std::size_t& bytes) const noexcept;
  bool ResizeBuffer(long samples);
  void Attach(OutputEndpoint* out, InputEndpoint* in);
  static void Detach(Endpoint& ep);
  void Describe(OutputEndpoint* out, InputEndpoint* in);
  int InformBlocks(OutputEndpoint* out, InputEndpoint* in);

  // Constant after construction.
  const std::string routeName;
  const std::string name;
  const unsigned int rate;
  const SampleFormat format;
  const unsigned int channels;

  // Route thread only.
  long samplesPerFrame;
  OutputEndpoint* outEp = nullptr;
  std::vector<unsigned char> buffer;
  InputEndpoint* inEp = nullptr;

  // Shared with the console; see LinkView.
  const std::shared_ptr<LinkView> view;
};

}  // namespace zelk
