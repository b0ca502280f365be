#include "control/server.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace ferry {
namespace {

/// What one look at a client reads.
constexpr std::size_t readSize = std::size_t{16} << 10;
/// What clients wait for that connect while there are no descriptors.
constexpr std::chrono::milliseconds acceptPause{1000};

bool isOwn(const Peer &peer)
{
    return peer.user == geteuid() || peer.user == 0;
}

} // namespace

Server::Server(Handler handler, Refusal refusal, ServerLimits limits)
    : handler_(std::move(handler)), refusal_(std::move(refusal)), limits_(limits)
{
}

Server::~Server()
{
    if (thread_.joinable()) {
        const std::uint64_t one = 1;
        if (write(end_, &one, sizeof one) == static_cast<ssize_t>(sizeof one)) {
            thread_.join();
        }
    }
    if (end_ >= 0) {
        close(end_);
    }
}

bool Server::start(int listener)
{
    listener_ = listener;
    end_ = eventfd(0, EFD_CLOEXEC);
    return end_ >= 0 && thread_.start("ferry:socket", [this] { run(); });
}

void Server::run()
{
    std::vector<pollfd> watched;
    for (;;) {
        const bool accepts = Clock::now() >= acceptAt_;
        watched = {{end_, POLLIN, 0}, {accepts ? listener_ : -1, POLLIN, 0}};
        for (const Client &client : clients_) {
            // One answer at a time: who does not take it is not heard.
            const int wanted = !client.out.empty() ? POLLOUT : client.ended ? 0 : POLLIN;
            watched.push_back({client.socket.descriptor(), static_cast<short>(wanted), 0});
        }
        poll(watched.data(), watched.size(), timeout());
        if (watched[0].revents != 0) {
            clients_.clear();
            return;
        }
        for (std::size_t i = 0; i < clients_.size(); ++i) {
            serve(clients_[i], watched[i + 2].revents);
        }
        clients_.erase(std::remove_if(clients_.begin(), clients_.end(),
                                      [](const Client &client) { return client.gone; }),
                       clients_.end());
        if (watched[1].revents != 0) {
            accept();
        }
    }
}

/// Until the first client is to be left, or the next one may come.
int Server::timeout() const
{
    Clock::time_point next = Clock::time_point::max();
    const Clock::time_point now = Clock::now();
    if (now < acceptAt_) {
        next = acceptAt_;
    }
    for (const Client &client : clients_) {
        next = std::min(next, client.leaveBy);
    }
    if (next == Clock::time_point::max()) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - now).count();
    return static_cast<int>(std::max<std::int64_t>(left, 0));
}

void Server::accept()
{
    UnixSocket socket(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket.valid()) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
            acceptAt_ = Clock::now() + acceptPause;
        }
        return;
    }
    const Peer peer = peerOf(socket.descriptor());
    if (!isOwn(peer)) {
        refuse(socket, "not_allowed", "this relay belongs to another user");
    } else if (clients_.size() >= limits_.clients) {
        refuse(socket, "busy", "too many clients are connected");
    } else {
        clients_.emplace_back();
        clients_.back().socket = std::move(socket);
        clients_.back().peer = peer;
        clients_.back().leaveBy = Clock::now() + limits_.idle;
    }
}

/// As far as the socket takes it at once, which it does when it is new.
void Server::refuse(const UnixSocket &socket, const char *code, const std::string &text) const
{
    const std::string line = refusal_(code, text) + "\n";
    static_cast<void>(::send(socket.descriptor(), line.data(), line.size(), MSG_NOSIGNAL));
}

void Server::serve(Client &client, short events)
{
    if ((events & POLLIN) != 0) {
        receive(client);
    }
    if ((events & POLLOUT) != 0) {
        send(client);
    }
    answer(client);
    const bool done = client.ended && client.out.empty();
    client.gone = client.gone || done || (events & (POLLERR | POLLNVAL)) != 0 ||
                  ((events & POLLHUP) != 0 && (events & (POLLIN | POLLOUT)) == 0) ||
                  Clock::now() >= client.leaveBy;
}

void Server::receive(Client &client)
{
    char buffer[readSize];
    const ssize_t count = recv(client.socket.descriptor(), buffer, sizeof buffer, 0);
    if (count > 0) {
        client.in.append(buffer, static_cast<std::size_t>(count));
    } else if (count == 0) {
        // The last line may do without its end.
        client.ended = true;
        if (!client.in.empty()) {
            client.in += '\n';
        }
    } else if (errno != EAGAIN && errno != EINTR) {
        client.gone = true;
    }
}

/// Answers the requests that are complete, one after the other, as far as their answers are taken.
void Server::answer(Client &client)
{
    std::size_t begin = 0;
    while (client.out.empty() && !client.gone) {
        const std::size_t end = client.in.find('\n', begin);
        if (std::min(end, client.in.size()) - begin > limits_.requestBytes) {
            client.in.clear();
            client.ended = true;
            say(client, refusal_("too_large", "a request is longer than the " +
                                                  std::to_string(limits_.requestBytes) +
                                                  " bytes that it may have"));
            return;
        }
        if (end == std::string::npos) {
            break;
        }
        const std::string_view line = std::string_view(client.in).substr(begin, end - begin);
        begin = end + 1;
        if (line.find_first_not_of(" \t\r") != std::string_view::npos) {
            say(client, handler_(line, client.peer));
        }
    }
    client.in.erase(0, begin);
}

void Server::say(Client &client, const std::string &text)
{
    client.out = text + "\n";
    client.sent = 0;
    client.leaveBy = Clock::now() + limits_.idle;
    send(client);
}

void Server::send(Client &client)
{
    while (client.sent < client.out.size()) {
        const ssize_t count = ::send(client.socket.descriptor(), client.out.data() + client.sent,
                                     client.out.size() - client.sent, MSG_NOSIGNAL);
        if (count < 0) {
            client.gone = errno != EAGAIN && errno != EINTR;
            return;
        }
        client.sent += static_cast<std::size_t>(count);
        client.leaveBy = Clock::now() + limits_.idle;
    }
    client.out.clear();
    client.sent = 0;
}

} // namespace ferry
