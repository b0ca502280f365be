// A Unix stream socket: owned, not inherited by programs that are started, never blocking.
#ifndef FERRY_CONTROL_UNIX_SOCKET_H
#define FERRY_CONTROL_UNIX_SOCKET_H

#include <filesystem>
#include <string>
#include <utility>

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

namespace ferry {

class UnixSocket {
public:
    UnixSocket() = default;
    explicit UnixSocket(int descriptor) : descriptor_(descriptor) {}
    ~UnixSocket();
    UnixSocket(UnixSocket &&other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    UnixSocket &operator=(UnixSocket &&other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    bool valid() const
    {
        return descriptor_ >= 0;
    }
    int descriptor() const
    {
        return descriptor_;
    }

private:
    int descriptor_ = -1;
};

/// Who is at the other end, as the system knows it.
struct Peer {
    pid_t process = 0;
    uid_t user = static_cast<uid_t>(-1);
};

Peer peerOf(int descriptor);

/// A new socket; not valid, with errno, if there is none.
UnixSocket newUnixSocket();

/// False if the path is longer than an address can be.
bool makeAddress(const std::filesystem::path &path, sockaddr_un &address);

/// Not valid, with errno and a text, if nobody listens there. It never waits: EAGAIN is the error
/// if somebody listens who is busy.
UnixSocket connectTo(const std::filesystem::path &path, std::string &problem);

} // namespace ferry

#endif
