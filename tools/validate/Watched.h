// What the block did, in one call, to the descriptors and bytes of its ports.
#pragma once

#include <zelk/Block.h>

#include <cstdint>
#include <string>
#include <vector>

namespace validate {

/// Made before a call of the block, asked after it. [route-thread]
class Watched {
 public:
  explicit Watched(const zelk::Block& block);

  /// Tells of every descriptor that says what cannot be. `call` names the call for the report.
  void Judge(const std::string& call) const;

  /// Inputs that held a frame and hold none any more.
  int Taken() const;

 private:
  struct Port {
    const zelk::Endpoint* endpoint;
    bool output;
    zelk::FrameBuffer before;
    std::uint64_t bytes;  // of a full output
  };

  static std::uint64_t Digest(const zelk::Endpoint& endpoint);
  static void JudgePort(const Port& port, const std::string& call);

  std::vector<Port> ports;
};

}  // namespace validate
