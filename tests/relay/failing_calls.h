// One call of SQLite or of the system that fails, whichever the test chooses.
#ifndef TESTS_RELAY_FAILING_CALLS_H
#define TESTS_RELAY_FAILING_CALLS_H

#include <cerrno>

#include <sqlite3.h>

namespace failing {

struct Failure {
    /// The so-manieth call from now on fails, of whatever thread; none if this is not positive.
    int at = 0;
    int sqlite = SQLITE_OK;
    int system = 0;
    /// SQLite does what it is asked, and reports a failure all the same.
    bool afterwards = false;
};
extern Failure failure;

} // namespace failing

#endif
