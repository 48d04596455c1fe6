// Takes the logging library's place in a test executable and keeps what the library logged.
#pragma once

#include <string>
#include <vector>

namespace test {

/// The trace holds every log record as "LEVEL FILE FUNCTION: MESSAGE", every call that configures
/// the logging as "vantrel_set_level(4)", and the notes of blocks and callbacks, in the order in
/// which they happened. A record without a line, or with other leading arguments than 0, ends in
/// "<malformed>". A log file below /missing/ is refused. [any-thread]

/// Adds a line of the test's own.
void Note(const std::string& text);

/// Empties the trace and returns it; records of other levels than `levels` are left out.
std::vector<std::string> TakeTrace(const std::string& levels = "EWIDV");

/// The console's thread tells of its own life at its own pace; its records are left out of the
/// trace unless a test is about them.
void TraceConsole(bool on);

/// Waits until the trace holds `line` at least `times` times. A minute without it is a failure.
void WaitFor(const std::string& line, int times = 1);

/// Writes every line to the descriptor `fd` as well, at once: for a process that is about to exit.
void MirrorTrace(int fd);

/// What printf's %p makes of `pointer`.
std::string PointerText(const void* pointer);

}  // namespace test
