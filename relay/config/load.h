// Reads a configuration file.
#ifndef FERRY_CONFIG_LOAD_H
#define FERRY_CONFIG_LOAD_H

#include <optional>
#include <string>

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

} // namespace ferry

#endif
