// What verbs that start a relay have in common.
#ifndef FERRY_LAUNCHER_START_H
#define FERRY_LAUNCHER_START_H

#include <optional>
#include <string>

#include "config/load.h"
#include "launcher/installation.h"
#include "launcher/settings_check.h"
#include "launcher/virtual_machine.h"
#include "process/run_options.h"

namespace ferry {

/// A configuration file, read and held against what is installed. Complaints are collected.
class ConfigurationFile {
public:
    explicit ConfigurationFile(const std::string &file, Needs needs = Needs::routes);

    /// Null for a file that is no YAML.
    Configuration *configuration()
    {
        return configuration_ ? &*configuration_ : nullptr;
    }
    Diagnostics &diagnostics()
    {
        return diagnostics_;
    }
    /// Prints the complaints; whether there were none.
    bool complain() const;

private:
    std::string file_;
    Diagnostics diagnostics_;
    std::optional<Configuration> configuration_;
};

/// The Java VM for a configuration; nothing after reporting why there is none.
std::optional<VmCandidate> chooseVm(const std::filesystem::path &javaHome,
                                    const Configuration &configuration);

/// Starts a relay and runs it to its end. `vm` is for configurations with Java adapters and null
/// for others; `explain` finds what Java adapters have against the configuration. Returns the exit
/// code.
int startRelay(const Configuration &configuration, const RunOptions &options, const VmCandidate *vm,
               std::function<std::vector<std::string>()> explain = {});

} // namespace ferry

#endif
