// What a host tells about itself in its status report, as values.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vosh {

struct PortStatus {
  bool output = false;
  std::uint64_t index = 0;
  std::string link;
  std::uint64_t rate = 0;  ///< Hz
  std::string format;
  std::uint64_t channels = 0;
  std::int64_t samplesPerFrame = 0;
  std::int64_t timestamp = -1;  ///< microseconds; -1 before the first frame
};

struct BlockStatus {
  std::string name;
  std::vector<PortStatus> ports;
};

struct RouteStatus {
  std::string name;
  std::string state;  ///< STOPPED, RUNNING, BROKEN_RUNNING or EXIT
  std::uint64_t okFrames = 0;
  std::uint64_t errorFrames = 0;
  std::vector<BlockStatus> blocks;
};

struct FifoStatus {
  std::string name;
  std::int64_t fill = 0;
  std::int64_t capacity = 0;
  std::int64_t percent = 0;
};

struct StatusReport {
  std::vector<RouteStatus> routes;
  std::vector<FifoStatus> fifos;

  /// The route of that name, or null.
  const RouteStatus* Find(std::string_view route) const;
};

/// Reads the reply to "status". Lines that are none of the report's are skipped: hosts cut lines
/// that are too long.
StatusReport ParseStatus(std::string_view text);

}  // namespace vosh
