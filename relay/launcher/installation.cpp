#include "launcher/installation.h"

#include <algorithm>
#include <dlfcn.h>

namespace ferry {
namespace fs = std::filesystem;
namespace {

std::string loaderReason()
{
    const char *text = dlerror();
    return text == nullptr ? "unknown reason" : text;
}

} // namespace

Installation findInstallation()
{
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    const fs::path root = self.parent_path().parent_path();
    Installation installation;
    // Distributions put libraries into directories of several names; ours are beside each other.
    for (const char *name : {"lib", "lib/x86_64-linux-gnu", "lib/aarch64-linux-gnu", "lib64"}) {
        installation.libraries = root / name;
        if (fs::exists(installation.libraries / "libferryrelay.so", error)) {
            break;
        }
    }
    installation.jarDirectory = root / "share" / "ferryjni" / "java";
    for (const auto &entry : fs::directory_iterator(installation.jarDirectory, error)) {
        if (entry.path().extension() == ".jar") {
            installation.jars.push_back(entry.path().string());
        }
    }
    std::sort(installation.jars.begin(), installation.jars.end());
    return installation;
}

std::vector<std::string> Installation::missingJars() const
{
    std::vector<std::string> missing;
    for (const char *name : {"qdds.jar", "ferrion-adapter.jar", "ferrion-adapter-file.jar"}) {
        if (std::find(jars.begin(), jars.end(), (jarDirectory / name).string()) == jars.end()) {
            missing.emplace_back(name);
        }
    }
    return missing;
}

RelayMain loadRelay(const fs::path &vmLibrary, const Installation &installation,
                    std::string &reason)
{
    // Global: the relay's library, which needs a libjvm.so by name, is satisfied with this one.
    if (dlopen(vmLibrary.c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr) {
        reason = loaderReason();
        return nullptr;
    }
    const fs::path library = installation.libraries / "libferryrelay.so";
    void *relay = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    void *entry = relay == nullptr ? nullptr : dlsym(relay, "ferry_relay_main");
    if (entry == nullptr) {
        reason = loaderReason();
        return nullptr;
    }
    return reinterpret_cast<RelayMain>(entry);
}

} // namespace ferry
