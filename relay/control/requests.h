// What a relay can be asked and told at its control socket.
#ifndef FERRY_CONTROL_REQUESTS_H
#define FERRY_CONTROL_REQUESTS_H

#include <string>
#include <string_view>

#include "control/unix_socket.h"
#include "engine/relay.h"

namespace ferry {

class Requests {
public:
    /// Both outlive it.
    Requests(const Configuration &configuration, Relay &relay)
        : configuration_(configuration), relay_(relay)
    {
    }

    /// The answer to a line, in a line. What is not understood has no effect. Any thread.
    std::string answer(std::string_view line, const Peer &peer) const;
    /// The answer to what is not even looked at.
    static std::string refusal(const char *code, const std::string &text);

private:
    std::string why(const std::string &route) const;

    const Configuration &configuration_;
    Relay &relay_;
};

} // namespace ferry

#endif
