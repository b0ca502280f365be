// Finds a Java VM's library: the one that the user names, else the system's.
#ifndef FERRY_LAUNCHER_VIRTUAL_MACHINE_H
#define FERRY_LAUNCHER_VIRTUAL_MACHINE_H

#include <filesystem>
#include <string>
#include <vector>

namespace ferry {

/// A directory that was looked at.
struct VmCandidate {
    /// "JAVA_HOME", "/usr/lib/jvm", ...
    std::string source;
    std::filesystem::path home;
    std::filesystem::path library;
    /// Feature release (17, 21, ...); 0 when the installation does not say.
    int version = 0;
    std::string fullVersion;
    /// Why it cannot be used; empty when it can.
    std::string problem;
};

struct VmSearch {
    /// In the order of preference; locations without any installation are not listed.
    std::vector<VmCandidate> candidates;
    /// The locations looked at, for people.
    std::vector<std::string> locations;
    /// Why a location that the user named has no usable VM. No other one is taken in its stead.
    std::string rejection;
    const VmCandidate *chosen = nullptr;
};

/// The oldest release that adapters can count on.
constexpr int oldestVm = 17;

struct VmLocations {
    /// --java-home, then java.home of the configuration; empty when not given.
    std::filesystem::path commandLine;
    std::filesystem::path configuration;
    /// JAVA_HOME and PATH of the environment.
    std::string javaHome;
    std::string path;
    std::filesystem::path systemDirectory = "/usr/lib/jvm";
};

/// Locations as the environment has them, and that of --java-home ("" when not given).
VmLocations vmLocations(const std::filesystem::path &javaHome);

/// The result points into itself: it is not to be copied.
void findVm(const VmLocations &locations, VmSearch &search);

/// For a failed search: what was looked at, and what to install.
std::string noVmText(const VmSearch &search);

} // namespace ferry

#endif
