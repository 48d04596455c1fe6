// Where the library calls code that is not its own: hooks of plug-ins and callbacks of the host.
#pragma once

#include <exception>
#include <utility>

#if defined(__GLIBCXX__)
#include <cxxabi.h>
#endif

namespace zelk {

/// Runs `call`; an exception that leaves it ends here and goes to `report` as a text. Returns
/// `failure` then. A thread's forced unwinding (cancellation) is no exception and passes through.
template <typename Result, typename Call, typename Report>
Result Guarded(Result failure, Call&& call, Report&& report) {
  try {
    return std::forward<Call>(call)();
#if defined(__GLIBCXX__)
  } catch (abi::__forced_unwind&) {
    throw;
#endif
  } catch (const std::exception& e) {
    report(e.what());
  } catch (...) {
    report("unknown exception");
  }
  return failure;
}

/// The same for calls without a result.
template <typename Call, typename Report>
void Guarded(Call&& call, Report&& report) {
  Guarded(
      0,
      [&] {
        call();
        return 0;
      },
      report);
}

}  // namespace zelk
