// The ways in which operators reach a relay that runs.
#ifndef FERRY_CONTROL_CONTROL_H
#define FERRY_CONTROL_CONTROL_H

#include "config/configuration.h"
#include "control/control_socket.h"
#include "control/http_server.h"
#include "control/requests.h"
#include "control/server.h"

namespace ferry {

class Control {
public:
    /// Both outlive it.
    Control(const Configuration &configuration, Relay &relay);

    /// As the configuration says. Returns why not, or "".
    std::string start();
    /// The same for HTTP, if the configuration has it.
    std::string startHttp();
    /// Where the socket is; empty without one.
    const std::filesystem::path &path() const
    {
        return socket_.path();
    }
    /// For a process that ends without unwinding.
    void removeSocket()
    {
        socket_.remove();
    }

private:
    HttpAnswer page(const std::string &path) const;

    const Configuration &configuration_;
    const Relay &relay_;
    ControlSocket socket_;
    Requests requests_;
    Server server_;
    std::unique_ptr<HttpServer> http_;
};

} // namespace ferry

#endif
