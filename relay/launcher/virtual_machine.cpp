#include "launcher/virtual_machine.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

namespace ferry {
namespace fs = std::filesystem;
namespace {

fs::path real(const fs::path &path)
{
    std::error_code error;
    const fs::path result = fs::canonical(path, error);
    return error ? path : result;
}

bool isThere(const fs::path &path)
{
    std::error_code error;
    return fs::exists(path, error);
}

/// JAVA_VERSION="17.0.15" of the file `release` that every JDK carries.
std::string readVersion(const fs::path &home)
{
    std::ifstream file(home / "release");
    const std::string key = "JAVA_VERSION=\"";
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(key, 0) == 0) {
            return line.substr(key.size(), line.find('"', key.size()) - key.size());
        }
    }
    return "";
}

VmCandidate examine(const std::string &source, const fs::path &home)
{
    VmCandidate candidate;
    candidate.source = source;
    candidate.home = real(home);
    candidate.library = candidate.home / "lib" / "server" / "libjvm.so";
    candidate.fullVersion = readVersion(candidate.home);
    candidate.version = static_cast<int>(std::strtol(candidate.fullVersion.c_str(), nullptr, 10));
    if (!isThere(home)) {
        candidate.problem = "there is no such directory";
    } else if (!isThere(candidate.library)) {
        candidate.problem = "it has no lib/server/libjvm.so";
    } else if (candidate.version > 0 && candidate.version < oldestVm) {
        candidate.problem =
            fmt::format("it is version {}, older than {}", candidate.fullVersion, oldestVm);
    }
    return candidate;
}

/// The home of the first `java` on the path: <home>/bin/java, links resolved.
fs::path homeOnPath(const std::string &path)
{
    std::istringstream directories(path);
    for (std::string directory; std::getline(directories, directory, ':');) {
        const fs::path program = fs::path(directory) / "java";
        if (!directory.empty() && isThere(program)) {
            return real(program).parent_path().parent_path();
        }
    }
    return {};
}

/// default-java first, then the newest.
std::vector<VmCandidate> systemVms(const fs::path &directory)
{
    std::vector<VmCandidate> found;
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(directory, error)) {
        if (entry.path().filename() != "default-java" && fs::is_directory(entry.path(), error) &&
            isThere(entry.path() / "lib" / "server" / "libjvm.so")) {
            found.push_back(examine(directory.string(), entry.path()));
        }
    }
    std::sort(found.begin(), found.end(), [](const VmCandidate &a, const VmCandidate &b) {
        return a.version != b.version ? a.version > b.version : a.home < b.home;
    });
    if (isThere(directory / "default-java")) {
        found.insert(found.begin(),
                     examine((directory / "default-java").string(), directory / "default-java"));
    }
    return found;
}

void add(VmSearch &search, const VmCandidate &candidate)
{
    const auto same = [&](const VmCandidate &known) { return known.home == candidate.home; };
    if (std::none_of(search.candidates.begin(), search.candidates.end(), same)) {
        search.candidates.push_back(candidate);
    }
}

/// A location that the user names is the only one that counts.
bool takeNamed(VmSearch &search, const std::string &source, const fs::path &home)
{
    if (home.empty()) {
        return false;
    }
    search.candidates.push_back(examine(source, home));
    const VmCandidate &candidate = search.candidates.back();
    if (!candidate.problem.empty()) {
        search.rejection =
            fmt::format("{} names {}, but {}", source, home.string(), candidate.problem);
    }
    return true;
}

} // namespace

VmLocations vmLocations(const std::filesystem::path &javaHome)
{
    VmLocations locations;
    const char *home = std::getenv("JAVA_HOME");
    const char *path = std::getenv("PATH");
    locations.javaHome = home == nullptr ? "" : home;
    locations.path = path == nullptr ? "" : path;
    if (!javaHome.empty()) {
        locations.commandLine = std::filesystem::absolute(javaHome);
    }
    return locations;
}

void findVm(const VmLocations &locations, VmSearch &search)
{
    search.locations = {"JAVA_HOME", "java on the PATH", locations.systemDirectory / "default-java",
                        locations.systemDirectory / "*"};
    const bool named =
        takeNamed(search, "--java-home", locations.commandLine) ||
        takeNamed(search, "java.home of the configuration", locations.configuration) ||
        takeNamed(search, "JAVA_HOME", locations.javaHome);
    if (!named) {
        const fs::path home = homeOnPath(locations.path);
        if (!home.empty()) {
            add(search, examine("java on the PATH", home));
        }
        for (const VmCandidate &candidate : systemVms(locations.systemDirectory)) {
            add(search, candidate);
        }
    }
    const auto usable =
        std::find_if(search.candidates.begin(), search.candidates.end(),
                     [](const auto &candidate) { return candidate.problem.empty(); });
    search.chosen = usable == search.candidates.end() ? nullptr : &*usable;
}

std::string noVmText(const VmSearch &search)
{
    std::string text;
    if (!search.rejection.empty()) {
        text = fmt::format("{}.\n  No other Java VM is tried when one is named.", search.rejection);
    } else {
        text = fmt::format("no Java VM of version {} or newer was found. Looked at:", oldestVm);
        for (const std::string &location : search.locations) {
            text += "\n  " + location;
        }
        for (const VmCandidate &candidate : search.candidates) {
            text += fmt::format("\n  {}: {}", candidate.home.string(), candidate.problem);
        }
    }
    return text + "\n  On Debian and Ubuntu: apt install openjdk-17-jre-headless";
}

} // namespace ferry
