// Where this ferry is installed, and its parts that are loaded only when needed.
#ifndef FERRY_LAUNCHER_INSTALLATION_H
#define FERRY_LAUNCHER_INSTALLATION_H

#include <filesystem>
#include <string>
#include <vector>

#include "engine/entry.h"

namespace ferry {

struct Installation {
    std::filesystem::path libraries;
    std::filesystem::path jarDirectory;
    /// Every jar there, sorted: the product's own and those of adapters put beside them.
    std::vector<std::string> jars;

    /// Names of the product's jars that are not there.
    std::vector<std::string> missingJars() const;
};

/// Relative to the running executable: bin, lib and share/ferryjni/java lie side by side.
Installation findInstallation();

using RelayMain = int (*)(const RelayRequest *);

/// Loads the VM's library and then the relay's. Null, with the loader's reason, when one cannot be.
RelayMain loadRelay(const std::filesystem::path &vmLibrary, const Installation &installation,
                    std::string &reason);

} // namespace ferry

#endif
