// Holds a configuration against the settings that its Java adapters declare, before any is made.
#ifndef FERRY_LAUNCHER_SETTINGS_CHECK_H
#define FERRY_LAUNCHER_SETTINGS_CHECK_H

#include <optional>
#include <string>
#include <vector>

#include "config/configuration.h"
#include "launcher/installation.h"

namespace ferry {

/// The declarations are Java objects, and the relay reaches Java through adapters alone: they are
/// asked in a process of its own.
class SettingsCheck {
public:
    /// Installation and configuration outlive this object.
    SettingsCheck(const std::filesystem::path &javaHome, const Installation &installation,
                  const Configuration &configuration);

    /// Adds what is wrong with the file's properties. False when nobody could be asked.
    bool run(Diagnostics &diagnostics) const;
    /// What a class declares, or without a name all adapters of the configuration, for people.
    std::optional<std::string> describe(const std::string &javaClass) const;

private:
    using Paths = std::vector<std::string>;

    /// The class paths of adapters, each once; adapters of one are asked together.
    std::vector<Paths> adapterPaths() const;
    bool run(const Paths &own, Diagnostics &diagnostics) const;
    std::optional<std::string> ask(const Paths &own, const std::vector<std::string> &classes,
                                   const std::string &input) const;

    std::filesystem::path program_;
    const Installation &installation_;
    const Configuration &configuration_;
};

} // namespace ferry

#endif
