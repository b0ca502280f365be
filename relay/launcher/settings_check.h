// Holds a configuration against the settings that its adapters declare, before any is made.
#ifndef FERRY_LAUNCHER_SETTINGS_CHECK_H
#define FERRY_LAUNCHER_SETTINGS_CHECK_H

#include <optional>
#include <string>
#include <vector>

#include "config/configuration.h"
#include "launcher/declarations.h"
#include "launcher/installation.h"

namespace ferry {

/// What a native plug-in declares. The library is loaded for that and stays loaded.
Declarations nativeDeclarations(const std::string &name, const std::filesystem::path &library,
                                const std::string &entry);

/// The properties of a configuration against the tables of its native adapters.
void checkNativeSettings(const Configuration &configuration, Diagnostics &diagnostics);

// Java declarations are objects, and the relay reaches Java through adapters alone: they are asked
// in a process of its own, of the Java installation in `javaHome`.

/// The same for Java adapters. False if nobody could be asked.
bool checkJavaSettings(const std::filesystem::path &javaHome, const Installation &installation,
                       const Configuration &configuration, Diagnostics &diagnostics);

/// What the classes of adapters declare; nothing if nobody could be asked.
std::optional<std::vector<Declarations>>
javaDeclarations(const std::filesystem::path &javaHome, const Installation &installation,
                 const std::vector<AdapterSettings> &adapters, const JavaSettings &java);

} // namespace ferry

#endif
