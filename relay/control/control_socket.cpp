#include "control/control_socket.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "control/socket_directory.h"

namespace ferry {
namespace fs = std::filesystem;
namespace {

constexpr int backlog = 16;

/// One relay at a time looks at the sockets of a directory and makes its own, so that none takes
/// for stale what another one is about to listen to.
class DirectoryLock {
public:
    explicit DirectoryLock(const fs::path &directory)
        : descriptor_(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        // Nobody has it for long, but for somebody who means ill.
        for (int attempt = 0; attempt < 100 && descriptor_ >= 0 && !locked_; ++attempt) {
            locked_ = flock(descriptor_, LOCK_EX | LOCK_NB) == 0;
            if (!locked_) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        }
        if (!locked_) {
            problem_ =
                fmt::format("the directory {} {}: {}", directory.string(),
                            descriptor_ < 0 ? "cannot be opened" : "is locked by another process",
                            std::strerror(errno));
        }
    }
    ~DirectoryLock()
    {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }
    DirectoryLock(const DirectoryLock &) = delete;
    DirectoryLock &operator=(const DirectoryLock &) = delete;

    const std::string &problem() const
    {
        return problem_;
    }

private:
    int descriptor_;
    bool locked_ = false;
    std::string problem_;
};

/// Makes room at the path; why not, or "".
std::string makeRoom(const fs::path &path)
{
    struct stat found {};
    if (lstat(path.c_str(), &found) != 0) {
        return errno == ENOENT ? "" : fmt::format("{}: {}", path.string(), std::strerror(errno));
    }
    if (!S_ISSOCK(found.st_mode)) {
        return fmt::format("{} is there and is no socket", path.string());
    }
    const SocketProbe probe = probeSocket(path);
    if (probe.state == SocketState::live) {
        return probe.process == 0
                   ? fmt::format("another process listens at {}", path.string())
                   : fmt::format("process {} listens at {}", probe.process, path.string());
    }
    if (probe.state != SocketState::stale) {
        return probe.problem;
    }
    return unlink(path.c_str()) == 0
               ? ""
               : fmt::format("{} cannot be replaced: {}", path.string(), std::strerror(errno));
}

} // namespace

void ControlSocket::remove()
{
    struct stat found {};
    if (socket_.valid() && lstat(path_.c_str(), &found) == 0 && found.st_dev == device_ &&
        found.st_ino == file_) {
        unlink(path_.c_str());
    }
}

std::string ControlSocket::open(const fs::path &path)
{
    const DirectoryLock lock(path.parent_path());
    return lock.problem().empty() ? listenAt(path) : lock.problem();
}

std::string ControlSocket::openNamed(const fs::path &directory, const std::string &relay)
{
    std::string problem = prepareSocketDirectory(directory);
    if (!problem.empty()) {
        return problem;
    }
    const DirectoryLock lock(directory);
    if (!lock.problem().empty()) {
        return lock.problem();
    }
    removeStaleSockets(directory);
    return listenAt(directory / socketName(relay, getpid()));
}

std::string ControlSocket::listenAt(const fs::path &path)
{
    sockaddr_un address{};
    if (!makeAddress(path, address)) {
        return fmt::format("the path {} is longer than the {} bytes that a socket's may have",
                           path.string(), sizeof address.sun_path - 1);
    }
    std::string obstacle = makeRoom(path);
    if (!obstacle.empty()) {
        return obstacle;
    }
    UnixSocket made = newUnixSocket();
    struct stat file {};
    // The file gets the socket's own mode, so that at no moment anybody else may connect.
    if (!made.valid() || fchmod(made.descriptor(), S_IRUSR | S_IWUSR) != 0 ||
        bind(made.descriptor(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(made.descriptor(), backlog) != 0 || lstat(path.c_str(), &file) != 0) {
        return fmt::format("{}: {}", path.string(), std::strerror(errno));
    }
    socket_ = std::move(made);
    path_ = path;
    device_ = file.st_dev;
    file_ = file.st_ino;
    return "";
}

} // namespace ferry
