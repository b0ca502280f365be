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

/// Java declarations are objects, and the relay reaches Java through adapters alone: they are asked
/// in a process of its own.
class JavaDeclarations {
public:
    /// The installation outlives this object.
    JavaDeclarations(const std::filesystem::path &javaHome, const Installation &installation);

    /// Adds what is wrong with the properties of Java adapters. False if nobody could be asked.
    bool check(const Configuration &configuration, Diagnostics &diagnostics) const;

    /// What classes declare, in their order; nothing if nobody could be asked.
    std::optional<std::vector<Declarations>>
    declarations(const std::vector<AdapterSettings> &adapters, const JavaSettings &java) const;

private:
    using Paths = std::vector<std::string>;

    bool checkThoseOf(const Paths &own, const Configuration &configuration,
                      Diagnostics &diagnostics) const;
    std::optional<std::vector<std::string>> ask(const Paths &own, const Paths &shared,
                                                const std::vector<std::string> &classes,
                                                const std::string &input) const;

    std::filesystem::path program_;
    const Installation &installation_;
};

} // namespace ferry

#endif
