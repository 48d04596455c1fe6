// Link support/Allocator.cpp into a test executable: it then allocates for everybody in the
// process, plug-ins and the library included.
#pragma once

#include <atomic>
#include <cstddef>

namespace test {

/// Asked before each allocation of any thread; where it answers false, std::bad_alloc is thrown.
/// Null lets everything through. What it points at must not allocate. [any-thread]
extern std::atomic<bool (*)(std::size_t size)> mayAllocate;

}  // namespace test
