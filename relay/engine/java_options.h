// What the Java VM is started with. Pure: no VM needed.
#ifndef FERRY_ENGINE_JAVA_OPTIONS_H
#define FERRY_ENGINE_JAVA_OPTIONS_H

#include <filesystem>
#include <string>
#include <vector>

#include "config/configuration.h"

namespace ferry {

/// The product's jars, then the user's entries.
std::vector<std::string> classPathEntries(const std::vector<std::string> &productJars,
                                          const JavaSettings &settings);

/**
 * The VM's options in the order in which it gets them: the class path, ferry's own options except
 * where the user has set the same thing, then the user's.
 *
 * @param vmVersion      feature release of the VM (17, 21, ...).
 * @param errorDirectory where the VM writes its report when it crashes.
 */
std::vector<std::string> javaOptions(const std::vector<std::string> &classPath,
                                     const JavaSettings &settings, int vmVersion,
                                     const std::filesystem::path &errorDirectory);

} // namespace ferry

#endif
