// Counts the heap allocations of the whole process, whatever library makes them.
#pragma once

#include <cstdint>

namespace bench {

/// Both return how many allocations were counted up to now; off, an allocation costs what it always
/// does but for the look at a flag. [any-thread]
std::uint64_t StartCounting();
std::uint64_t StopCounting();

}  // namespace bench
