// Takes the logging library's place in a test executable and counts what the library logs: a record
// costs no memory. With SHOW_RECORDS in the environment it also prints them.
#pragma once

namespace test {

/// How many E and W records there were so far. [any-thread]
long CountedRecords();

}  // namespace test
