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

void *find(const fs::path &library, const std::string &symbol, std::string &reason)
{
    void *const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    void *const found = handle == nullptr ? nullptr : dlsym(handle, symbol.c_str());
    if (found == nullptr) {
        reason = loaderReason();
    }
    return found;
}

std::vector<std::string> jarsIn(const fs::path &directory)
{
    std::vector<std::string> jars;
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(directory, error)) {
        if (entry.path().extension() == ".jar") {
            jars.push_back(entry.path().string());
        }
    }
    std::sort(jars.begin(), jars.end());
    return jars;
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
    installation.adapterDirectory = root / "share" / "ferryjni" / "adapters";
    installation.templates = root / "share" / "ferryjni" / "templates";
    installation.training = root / "share" / "ferryjni" / "training";
    installation.jars = jarsIn(installation.jarDirectory);
    return installation;
}

std::vector<std::string> Installation::missingJars() const
{
    std::vector<std::string> missing;
    std::error_code error;
    for (const fs::path &jar :
         {jarDirectory / "qdds.jar", jarDirectory / "ferrion-adapter.jar",
          jarDirectory / "ferrion-kit.jar", jarDirectory / "ferrion-relay.jar",
          adapterDirectory / "com.qel.ferrion.adapters.file.FileAdapter/ferrion-adapter-file.jar",
          adapterDirectory / "com.qel.ferrion.adapters.sql.SqlAdapter/ferrion-adapter-sql.jar"}) {
        if (!fs::exists(jar, error)) {
            missing.push_back(jar.string());
        }
    }
    return missing;
}

std::vector<std::string> Installation::adapters() const
{
    std::vector<std::string> names;
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(adapterDirectory, error)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> Installation::adapterJars(std::string javaClass) const
{
    std::replace(javaClass.begin(), javaClass.end(), '/', '.');
    return jarsIn(adapterDirectory / javaClass);
}

std::vector<std::string> Installation::plugins() const
{
    const std::string prefix = pluginPrefix;
    std::vector<std::string> names;
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(libraries, error)) {
        const std::string stem = entry.path().stem().string();
        if (stem.rfind(prefix, 0) == 0 && entry.path().extension() == pluginSuffix) {
            names.push_back(stem.substr(prefix.size()));
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

void Installation::complete(Configuration &configuration) const
{
    for (AdapterSettings &adapter : configuration.adapters) {
        if (!adapter.library.empty() && adapter.library.is_relative()) {
            adapter.library = libraries / adapter.library;
        }
        if (!adapter.javaClass.empty()) {
            adapter.installedJars = adapterJars(adapter.javaClass);
        }
    }
}

std::string loadVm(const fs::path &vmLibrary)
{
    // Global: the bridge, which needs a libjvm.so by name, is satisfied with this one.
    return dlopen(vmLibrary.c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr ? loaderReason() : "";
}

bool hasSymbol(const fs::path &library, const std::string &symbol, std::string &reason)
{
    return find(library, symbol, reason) != nullptr;
}

RelayMain loadRelay(const Installation &installation, std::string &reason)
{
    return reinterpret_cast<RelayMain>(
        find(installation.libraries / "libferryrelay.so", "ferry_relay_main", reason));
}

} // namespace ferry
