// Where this ferry is installed, and its parts that are loaded only when needed.
#ifndef FERRY_LAUNCHER_INSTALLATION_H
#define FERRY_LAUNCHER_INSTALLATION_H

#include <filesystem>
#include <string>
#include <vector>

#include "process/entry.h"

namespace ferry {

struct Installation {
    std::filesystem::path libraries;
    std::filesystem::path jarDirectory;
    /// Java adapters: a folder each, of the name of its class.
    std::filesystem::path adapterDirectory;
    /// Of projects that ferry can make.
    std::filesystem::path templates;
    /// A relay that is run in order to learn which classes one needs.
    std::filesystem::path training;
    /// Every jar that all adapters see, sorted: the product's own and those put beside them.
    std::vector<std::string> jars;

    /// The product's jars that are not there.
    std::vector<std::string> missingJars() const;
    /// Classes of the Java adapters that are there, sorted.
    std::vector<std::string> adapters() const;
    /// The jars of one of them, sorted; none for a class that is no adapter of the installation.
    std::vector<std::string> adapterJars(std::string javaClass) const;
    /// Names of the native plug-ins that are there, sorted.
    std::vector<std::string> plugins() const;
    std::filesystem::path bridge() const
    {
        return libraries / "libferryjni.so";
    }
    std::filesystem::path plugin(const std::string &name) const
    {
        return libraries / (pluginPrefix + name + pluginSuffix);
    }
    /// The class of an adapter that is there, by its short name; any other name as it is.
    std::string classOf(const std::string &name) const;
    /// Classes and short names of the adapters that are there.
    std::vector<std::string> adapterNames() const;
    /// Completes names and paths of adapters that belong to the installation, and reports native
    /// ones that do not exist.
    void complete(Configuration &configuration, Diagnostics &diagnostics) const;
};

/// Relative to the running executable: bin, lib and share/ferryjni lie side by side.
Installation findInstallation();

using RelayMain = int (*)(const RelayRequest *);

/// Loads a Java VM's library, which satisfies the bridge's need of one. It starts no VM. Returns
/// the loader's reason on failure, else "".
std::string loadVm(const std::filesystem::path &vmLibrary);

/// Loads a library, which stays loaded, and finds a symbol. Null, with the loader's reason, when
/// that fails.
void *findSymbol(const std::filesystem::path &library, const std::string &symbol,
                 std::string &reason);

/// Loads the relay's library. Null, with the loader's reason, when that fails.
RelayMain loadRelay(const Installation &installation, std::string &reason);

} // namespace ferry

#endif
