#include "control/unix_socket.h"

#include <cerrno>
#include <cstring>

#include <fmt/format.h>
#include <unistd.h>

namespace ferry {

UnixSocket::~UnixSocket()
{
    if (valid()) {
        const int before = errno;
        close(descriptor_);
        errno = before;
    }
}

Peer peerOf(int descriptor)
{
    ucred credentials{};
    socklen_t length = sizeof credentials;
    if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) {
        return {};
    }
    return {credentials.pid, credentials.uid};
}

UnixSocket newUnixSocket()
{
    return UnixSocket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

bool makeAddress(const std::filesystem::path &path, sockaddr_un &address)
{
    const std::string &text = path.native();
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    if (text.empty() || text.size() >= sizeof address.sun_path) {
        return false;
    }
    std::memcpy(address.sun_path, text.data(), text.size());
    return true;
}

UnixSocket connectTo(const std::filesystem::path &path, std::string &problem)
{
    sockaddr_un address{};
    UnixSocket socket = newUnixSocket();
    if (!makeAddress(path, address)) {
        errno = ENAMETOOLONG;
    } else if (socket.valid() &&
               connect(socket.descriptor(), reinterpret_cast<sockaddr *>(&address),
                       sizeof address) == 0) {
        return socket;
    }
    const int error = errno;
    problem = fmt::format("{}: {}", path.string(), std::strerror(error));
    socket = {};
    errno = error;
    return {};
}

} // namespace ferry
