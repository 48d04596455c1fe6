// Where finished records go: descriptors, written without a lock.
#pragma once

#include <cstddef>

namespace vantrel {

/// Keeps a SIGPIPE from a dead reader away from the host while it lives. The signal mask belongs to
/// the thread, so other threads and the host's own handler are not affected.
class PipeSignalHeld {
 public:
  PipeSignalHeld();
  ~PipeSignalHeld();
  PipeSignalHeld(const PipeSignalHeld&) = delete;
  PipeSignalHeld& operator=(const PipeSignalHeld&) = delete;

  /// Writes all of `data` with one `write`, with more only where the kernel took a part. An output
  /// that is dead or full loses the record in silence.
  void WriteWhole(int descriptor, const char* data, std::size_t size) const;

 private:
  void TakeAway() const;

  bool blockedBefore = false;
  bool pendingBefore = false;  // then it is not ours to take away
};

/// Appends to `path` from now on; null ends that. Returns 0 or a negative error number, and then
/// the earlier file stays. Safe beside threads that write; itself for one caller at a time.
int SetLogFile(const char* path);

/// The descriptor of the log file, or -1 for none. Its number never changes once it exists.
int LogFile();

}  // namespace vantrel
