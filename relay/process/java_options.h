// What the Java VM is started with. Pure: no VM needed.
#ifndef FERRY_PROCESS_JAVA_OPTIONS_H
#define FERRY_PROCESS_JAVA_OPTIONS_H

#include <filesystem>
#include <string>
#include <vector>

#include "config/configuration.h"

namespace ferry {

/// What the command line asks of the VM for people who look for a fault.
struct JavaDebugging {
    /// Where debuggers attach, on the loopback interface; 0 for nowhere.
    int port = 0;
    /// Checks every JNI call.
    bool check = false;
};

/// Never one that other machines reach: who attaches may do anything.
inline std::string debuggerAddress(int port)
{
    return "127.0.0.1:" + std::to_string(port);
}

/// The product's jars, then the user's entries.
std::vector<std::string> classPathEntries(const std::vector<std::string> &productJars,
                                          const JavaSettings &settings);

/**
 * The VM's options in the order in which it gets them: the class path, ferry's own options except
 * where the user has set the same thing, then the user's.
 *
 * @param level          from which on the JDK's loggers log.
 * @param vmVersion      feature release of the VM (17, 21, ...).
 * @param errorDirectory where the VM writes its report when it crashes.
 * @param classArchive   used when it is there.
 */
std::vector<std::string> javaOptions(const std::vector<std::string> &classPath,
                                     const JavaSettings &settings, LogLevel level, int vmVersion,
                                     const std::filesystem::path &errorDirectory,
                                     const JavaDebugging &debugging = {},
                                     const std::filesystem::path &classArchive = {});

} // namespace ferry

#endif
