// Makes allocations and system calls of this process fail, one at a time. Link support/Faults.cpp
// into a test executable: it takes the place of operator new and of the calls below for everybody
// in the process, plug-ins and the library included.
#pragma once

#include <string>

namespace test {

/// The calls that can fail; "new" is an allocation, which fails with std::bad_alloc.
///   new socket bind listen accept4 poll recv send pipe2 fchmod chmod unlink getsockopt fcntl fopen
///   fwrite fgets dlopen dlsym pthread_create write close shutdown
///
/// Lets the `nth` call (from 1) of `function` from now on fail with `error` as its errno; a fault
/// that was set before is forgotten. Calls of gtest and of the logging count, too, if they are made
/// before `ClearFault()`. [any-thread]
void SetFault(const std::string& function, long nth, int error);

/// No call fails any more. Whether one did.
bool ClearFault();

/// How many E and W records the library logged since the last `SetFault`.
long RecordsOfFault();

}  // namespace test
