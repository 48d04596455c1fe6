// How a check, in a process of its own, tells the program what it finds and what it is doing, so
// that both are known when the block takes the process down with it.
#pragma once

#include <atomic>
#include <string>

namespace validate {

/// In memory that both processes share.
struct Progress {
  std::atomic<long long> since;  ///< monotonic milliseconds; 0 outside the block's code
  char call[200];                ///< what is, or was last, being called
};

/// The kinds of lines that a check sends.
enum LineKind : char {
  FAULT = 'F',
  NOTE = 'N',
  LOG = 'L',
  FORGET = 'X',  ///< the log so far is of no interest
  ROLES = 'R',
  END = 'E',  ///< the check came to its own end
};

/// Milliseconds of a clock that both processes read. [any-thread]
long long Now();

/// The checking process's way to the program, set up once after the fork. [any-thread]
class Report {
 public:
  static void Open(Progress* progress, int fd);
  static void Send(LineKind kind, const std::string& text);
  static void Fault(const std::string& text) { Send(FAULT, text); }
  static void Note(const std::string& text) { Send(NOTE, text); }
};

/// Around a call into the block's code, which the program gives up waiting for after a while.
class Calling {
 public:
  explicit Calling(const std::string& what);
  Calling(const Calling&) = delete;
  Calling& operator=(const Calling&) = delete;
  ~Calling();
};

}  // namespace validate
