// Where control sockets lie, for the relay that makes one and for the verbs that look for it.
#ifndef FERRY_CONTROL_SOCKET_DIRECTORY_H
#define FERRY_CONTROL_SOCKET_DIRECTORY_H

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace ferry {

/// The directory of this user's control sockets: that of the service manager, that of the login
/// session, one in /run for root, else one in /tmp.
std::filesystem::path socketDirectory();

/// All directories in which a relay that this user may steer can have its socket.
std::vector<std::filesystem::path> socketDirectories();

/// Makes the directory of this user where it does not exist. Returns why it cannot be used, or "":
/// in a directory of somebody else another socket could be put in place of ours.
std::string prepareSocketDirectory(const std::filesystem::path &directory);

/// The file name of a relay's socket: its name, as far as a file name can hold it, and its process.
std::string socketName(const std::string &relay, pid_t process);

/// What is known of a socket without asking.
enum class SocketState {
    /// Nobody listens any more: its process has ended without removing it.
    stale,
    live,
    /// No socket, or not for this user.
    unusable
};

struct SocketProbe {
    SocketState state = SocketState::unusable;
    /// Of a live one: who listens; 0 if it is too busy to say.
    pid_t process = 0;
    std::string problem;
};

/// Connects, and disconnects.
SocketProbe probeSocket(const std::filesystem::path &path);

/// A relay that runs.
struct RunningRelay {
    /// As its socket is called.
    std::string name;
    pid_t process = 0;
    std::filesystem::path path;
};

/// The relays whose sockets are in these directories, with that name if one is given.
std::vector<RunningRelay> runningRelays(const std::vector<std::filesystem::path> &directories,
                                        const std::string &name = "");

/// Removes the sockets of a directory to which nobody listens.
void removeStaleSockets(const std::filesystem::path &directory);

} // namespace ferry

#endif
