// ferry: reads the command line and the configuration, finds a Java VM where an adapter needs one,
// and hands over to the relay.
#include <cstdio>
#include <iostream>

#include "launcher/complain.h"
#include "launcher/verb.h"
#include "process/exit_code.h"
#include "process/signals.h"

namespace {

using namespace ferry;

/// The exit code, which is none of success when results could not be written.
int withResultsWritten(int code)
{
    std::cout.flush();
    const bool written = std::cout.good() && std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    if (!written) {
        complain("ferry: results could not be written to standard output");
    }
    return code == exitOk && !written ? exitErrors : code;
}

} // namespace

int main(int argc, char **argv)
{
    ignoreStraySignals();
    int code = exitNoStart;
    try {
        code = runCommandLine(argc, argv);
    } catch (const std::exception &error) {
        complain(std::string("ferry: ") + error.what());
    }
    return withResultsWritten(code);
}
