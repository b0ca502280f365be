// The socket at which a relay can be asked and steered, as a file of this user alone.
#ifndef FERRY_CONTROL_CONTROL_SOCKET_H
#define FERRY_CONTROL_CONTROL_SOCKET_H

#include <filesystem>
#include <string>

#include "control/unix_socket.h"

namespace ferry {

class ControlSocket {
public:
    ControlSocket() = default;
    ~ControlSocket()
    {
        remove();
    }
    ControlSocket(const ControlSocket &) = delete;
    ControlSocket &operator=(const ControlSocket &) = delete;

    /// Listens at the path. One that a process has left there is replaced, one that somebody
    /// listens to is not. Returns why it cannot, or "".
    std::string open(const std::filesystem::path &path);
    /// The same in this user's directory, under the relay's name; removes there what processes have
    /// left.
    std::string openNamed(const std::filesystem::path &directory, const std::string &relay);

    /// Removes the file, unless it is another one by now.
    void remove();

    int descriptor() const
    {
        return socket_.descriptor();
    }
    const std::filesystem::path &path() const
    {
        return path_;
    }

private:
    std::string listenAt(const std::filesystem::path &path);

    std::filesystem::path path_;
    UnixSocket socket_;
    dev_t device_ = 0;
    ino_t file_ = 0;
};

} // namespace ferry

#endif
