// What the functions that this program puts in front of other libraries' have seen.
#pragma once

#define ZELK_IN_FRONT __attribute__((visibility("default")))

namespace validate {

/// Whether the library's console has been refused its socket. [any-thread]
bool ConsoleRefused();

/// From now on records of every level are sent, not only errors and warnings. [any-thread]
void SendAllRecords();

/// How often `operator new` was called on the calling thread. [any-thread]
long Allocations();

}  // namespace validate
