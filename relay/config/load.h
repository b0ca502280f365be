// Reads a configuration file.
#ifndef FERRY_CONFIG_LOAD_H
#define FERRY_CONFIG_LOAD_H

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "config/configuration.h"
#include "config/diagnostics.h"

namespace ferry {

/// What a configuration must have.
enum class Needs { routes, connections };

/// Reads and checks the file whole, its types included. Nothing if it is no YAML at all; else what
/// it says, which is of use for further checks only if `diagnostics` has found anything. References
/// to what does not exist have an index beyond the end. Types are interned for the life of the
/// process.
std::optional<Configuration> loadConfiguration(const std::string &file, Diagnostics &diagnostics,
                                               Needs needs = Needs::routes);

/// The jars in a directory, sorted; none if it is not one.
std::vector<std::string> jarsIn(const std::filesystem::path &directory);

} // namespace ferry

#endif
