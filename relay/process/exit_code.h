// What ferry's exit status means; documented for users.
#ifndef FERRY_PROCESS_EXIT_CODE_H
#define FERRY_PROCESS_EXIT_CODE_H

namespace ferry {

enum ExitCode : int {
    /// Everything done, or stopped by a signal in time.
    exitOk = 0,
    /// It ran, but samples were lost or something failed, however it was stopped.
    exitErrors = 1,
    /// Bad command line or configuration.
    exitUsage = 2,
    /// Nothing could be started.
    exitNoStart = 3,
    /// Asked to stop, but an adapter did not return in time: the process was ended.
    exitHung = 4
};

} // namespace ferry

#endif
