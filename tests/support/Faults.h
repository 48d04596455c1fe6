// Makes allocations and system calls of this process fail, one at a time. Link support/Faults.cpp
// and support/Allocator.cpp into a test executable: they take the place of operator new and of the
// calls below for everybody in the process, plug-ins and the library included. A dlopen of the
// library's is then the executable's: bare plug-in names are found by LD_LIBRARY_PATH alone.
#pragma once

#include <string>

namespace test {

/// The calls that can fail; "new" is an allocation, which fails with std::bad_alloc.
///   new socket bind listen accept4 poll recv send write pipe2 fchmod chmod unlink getsockopt fcntl
///   shutdown close open dup3 fopen fwrite fgets fclose dlopen dlsym dlclose pthread_create
///
/// Lets the `nth` call (from 1) of `function` from now on fail with `error` as its errno; a fault
/// that was set before is forgotten. What frees its argument has freed it when it fails. Calls of
/// gtest and of the logging count, too, if they are made before `ClearFault()`. [any-thread]
void SetFault(const std::string& function, long nth, int error);

/// No call fails any more. Whether one did.
bool ClearFault();

/// How many descriptors were closed that were not open.
int StrayCloses();

}  // namespace test
