#include "control/socket_directory.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "control/unix_socket.h"

namespace ferry {
namespace fs = std::filesystem;
namespace {

constexpr const char *suffix = ".sock";
/// What is left of a name of a relay. The address of a socket has 108 bytes for its whole path.
constexpr std::size_t maxName = 40;

/// An absolute path in a variable of the environment. A service manager may give several.
std::optional<fs::path> fromEnvironment(const char *variable)
{
    const char *const value = std::getenv(variable);
    const std::string text = value == nullptr ? "" : value;
    const fs::path path = text.substr(0, text.find(':'));
    return path.is_absolute() ? std::optional<fs::path>(path) : std::nullopt;
}

fs::path inTemporary()
{
    return fmt::format("/tmp/ferry-{}", geteuid());
}

template<class Body> void forEachSocket(const fs::path &directory, Body &&body)
{
    std::error_code error;
    for (fs::directory_iterator at(directory, error), end; !error && at != end;
         at.increment(error)) {
        std::error_code typeError;
        if (at->path().extension() == suffix &&
            fs::symlink_status(at->path(), typeError).type() == fs::file_type::socket) {
            body(at->path());
        }
    }
}

} // namespace

fs::path socketDirectory()
{
    if (const auto service = fromEnvironment("RUNTIME_DIRECTORY")) {
        return *service;
    }
    if (const auto login = fromEnvironment("XDG_RUNTIME_DIR")) {
        return *login / "ferry";
    }
    return geteuid() == 0 ? fs::path("/run/ferry") : inTemporary();
}

std::vector<fs::path> socketDirectories()
{
    std::vector<fs::path> all{socketDirectory()};
    for (const fs::path &other : {fs::path("/run/ferry"), inTemporary()}) {
        if (std::find(all.begin(), all.end(), other) == all.end()) {
            all.push_back(other);
        }
    }
    return all;
}

std::string prepareSocketDirectory(const fs::path &directory)
{
    const bool made = mkdir(directory.c_str(), S_IRWXU) == 0;
    if (!made && errno != EEXIST) {
        return fmt::format("the directory {} cannot be made: {}", directory.string(),
                           std::strerror(errno));
    }
    struct stat found {};
    if (lstat(directory.c_str(), &found) != 0 || !S_ISDIR(found.st_mode)) {
        return fmt::format("{} is not a directory", directory.string());
    }
    if (found.st_uid != geteuid()) {
        return fmt::format("the directory {} belongs to user {}", directory.string(), found.st_uid);
    }
    if ((found.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return fmt::format("others may write to the directory {}", directory.string());
    }
    return "";
}

std::string socketName(const std::string &relay, pid_t process)
{
    std::string name = relay.substr(0, maxName);
    std::replace_if(
        name.begin(), name.end(),
        [](unsigned char c) { return std::isalnum(c) == 0 && std::strchr("._-", c) == nullptr; },
        '_');
    return fmt::format("{}-{}{}", name.empty() ? "ferry" : name, process, suffix);
}

SocketProbe probeSocket(const fs::path &path)
{
    SocketProbe probe;
    const UnixSocket socket = connectTo(path, probe.problem);
    if (socket.valid()) {
        probe.state = SocketState::live;
        probe.process = peerOf(socket.descriptor()).process;
    } else if (errno == EAGAIN) {
        probe.state = SocketState::live;
    } else if (errno == ECONNREFUSED) {
        probe.state = SocketState::stale;
    }
    return probe;
}

std::vector<RunningRelay> runningRelays(const std::vector<fs::path> &directories,
                                        const std::string &name)
{
    std::vector<RunningRelay> relays;
    for (const fs::path &directory : directories) {
        forEachSocket(directory, [&](const fs::path &path) {
            const std::string stem = path.stem().string();
            const std::string own = stem.substr(0, stem.rfind('-'));
            if (!name.empty() && name != own && name != stem) {
                return;
            }
            const SocketProbe probe = probeSocket(path);
            if (probe.state == SocketState::live) {
                relays.push_back({own, probe.process, path});
            }
        });
    }
    return relays;
}

void removeStaleSockets(const fs::path &directory)
{
    forEachSocket(directory, [](const fs::path &path) {
        if (probeSocket(path).state == SocketState::stale) {
            unlink(path.c_str());
        }
    });
}

} // namespace ferry
