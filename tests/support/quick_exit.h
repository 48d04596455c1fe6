// For tests of many processes, and of processes that cannot end as others do.
#pragma once

namespace test {

/// Ends the process without its exit handlers, which would wait for a route whose thread is no
/// more. What a build for coverage has counted is kept.
[[noreturn]] void QuickExit(int status);

}  // namespace test
