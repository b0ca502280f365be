// Answers requests at a control socket: a line of JSON each, and one line for an answer. It has a
// thread of its own, which never waits for a client, so neither a slow client nor a hostile one
// costs a route anything.
#ifndef FERRY_CONTROL_SERVER_H
#define FERRY_CONTROL_SERVER_H

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "control/unix_socket.h"
#include "engine/thread.h"

namespace ferry {

struct ServerLimits {
    /// Of a request.
    std::size_t requestBytes = std::size_t{64} << 10;
    std::size_t clients = 16;
    /// A client that neither asks anything nor takes its answer for that long is left.
    std::chrono::milliseconds idle{60000};
};

class Server {
public:
    /// Returns the answer to a line, without a line feed. Runs on the server's thread.
    using Handler = std::function<std::string(std::string_view line, const Peer &peer)>;
    /// What a client is told that the server does not hear: it asks too much, or there are too
    /// many.
    using Refusal = std::function<std::string(const char *code, const std::string &text)>;

    Server(Handler handler, Refusal refusal, ServerLimits limits = {});
    /// Ends the thread, and lets go of all clients.
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    /// Serves a socket that listens, which outlives the server. False if the system gives no
    /// thread or descriptor.
    bool start(int listener);

private:
    using Clock = std::chrono::steady_clock;

    struct Client {
        UnixSocket socket;
        Peer peer;
        std::string in;
        /// The answer, and how much of it the client has.
        std::string out;
        std::size_t sent = 0;
        /// It will send no more, or is not to be heard any more.
        bool ended = false;
        bool gone = false;
        Clock::time_point leaveBy{};
    };

    void run();
    void accept();
    void refuse(const UnixSocket &socket, const char *code, const std::string &text) const;
    void serve(Client &client, short events);
    void receive(Client &client);
    void answer(Client &client);
    void say(Client &client, const std::string &text);
    void send(Client &client);
    int timeout() const;

    const Handler handler_;
    const Refusal refusal_;
    const ServerLimits limits_;
    int listener_ = -1;
    int end_ = -1;
    Thread thread_;
    std::vector<Client> clients_;
    /// The system has no descriptor for another client: it is asked again at that time.
    Clock::time_point acceptAt_{};
};

} // namespace ferry

#endif
