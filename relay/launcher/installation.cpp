#include "launcher/installation.h"

#include <algorithm>
#include <cctype>
#include <dlfcn.h>

#include <fmt/format.h>

#include "config/load.h"
#include "settings/suggestion.h"

namespace ferry {
namespace fs = std::filesystem;
namespace {

std::string loaderReason()
{
    const char *text = dlerror();
    return text == nullptr ? "unknown reason" : text;
}

/// "com.qel.ferrion.adapters.file.FileAdapter" is also "file".
std::string shortName(const std::string &javaClass)
{
    static const std::string ending = "Adapter";
    std::string name = javaClass.substr(javaClass.rfind('.') + 1);
    if (name.size() > ending.size() &&
        name.compare(name.size() - ending.size(), ending.size(), ending) == 0) {
        name.resize(name.size() - ending.size());
    }
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return name;
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
    for (const char *name :
         {"qdds.jar", "ferrion-adapter.jar", "ferrion-kit.jar", "ferrion-relay.jar"}) {
        if (!fs::exists(jarDirectory / name, error)) {
            missing.push_back((jarDirectory / name).string());
        }
    }
    for (const std::string &adapter : adapters()) {
        if (adapterJars(adapter).empty()) {
            missing.push_back((adapterDirectory / adapter / "*.jar").string());
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

std::string Installation::classOf(const std::string &name) const
{
    const std::vector<std::string> classes = adapters();
    const auto found = std::find_if(classes.begin(), classes.end(), [&](const std::string &each) {
        return shortName(each) == name;
    });
    return found == classes.end() ? name : *found;
}

std::vector<std::string> Installation::adapterNames() const
{
    std::vector<std::string> names = adapters();
    for (const std::string &each : adapters()) {
        names.push_back(shortName(each));
    }
    return names;
}

void Installation::complete(Configuration &configuration, Diagnostics &diagnostics) const
{
    std::error_code error;
    for (AdapterSettings &adapter : configuration.adapters) {
        if (!adapter.library.empty() && adapter.library.is_relative()) {
            const std::string name =
                adapter.library.stem().string().substr(sizeof pluginPrefix - 1);
            adapter.library = libraries / adapter.library;
            if (!fs::exists(adapter.library, error)) {
                diagnostics.add(adapter.place, "adapters.{}.plugin: there is no {}{}", adapter.name,
                                adapter.library.string(), suggestion(name, plugins()));
            }
        }
        if (!adapter.javaClass.empty()) {
            adapter.javaClass = classOf(adapter.javaClass);
            std::replace(adapter.javaClass.begin(), adapter.javaClass.end(), '.', '/');
            adapter.installedJars = adapterJars(adapter.javaClass);
        }
    }
}

std::string loadVm(const fs::path &vmLibrary)
{
    // Global: the bridge, which needs a libjvm.so by name, is satisfied with this one.
    return dlopen(vmLibrary.c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr ? loaderReason() : "";
}

void *findSymbol(const fs::path &library, const std::string &symbol, std::string &reason)
{
    void *const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    void *const found = handle == nullptr ? nullptr : dlsym(handle, symbol.c_str());
    if (found == nullptr) {
        reason = loaderReason();
    }
    return found;
}

RelayMain loadRelay(const Installation &installation, std::string &reason)
{
    return reinterpret_cast<RelayMain>(
        findSymbol(installation.libraries / "libferryrelay.so", "ferry_relay_main", reason));
}

} // namespace ferry
