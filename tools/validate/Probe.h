// The ends of the graph that zelk-validate puts a block into: blocks whose hooks are the program's.
#pragma once

#include <zelk/Block.h>

#include <functional>

namespace validate {

/// What a probe does. The program owns it and changes it only while the route is stopped.
struct ProbeHooks {
  bool refusesLinks = false;
  std::function<void()> call;  ///< what setting any parameter runs, on the route's thread
  std::function<long(zelk::Block&)> frame;
};

/// Command of `Block::ioctl` by which a probe gets its `ProbeHooks*`, borrowed.
inline constexpr unsigned int IOCTL_BIND_PROBE = 0x7A6CF001;

/// The plug-in, as `Route::NewBlock` finds it beside the stock blocks.
inline constexpr const char* PROBE_FILE = "validate-probe.so";

}  // namespace validate
