#include "control/client.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>
#include <poll.h>

#include "control/unix_socket.h"

namespace ferry {
namespace {

using Clock = std::chrono::steady_clock;

/// What no relay says in one line.
constexpr std::size_t mostBytes = std::size_t{64} << 20;

/// Whether the socket is ready before the time.
bool wait(const UnixSocket &socket, short event, Clock::time_point end)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    pollfd watched = {socket.descriptor(), event, 0};
    return left > 0 && poll(&watched, 1, static_cast<int>(left)) > 0;
}

/// False, with errno, if that could not be sent.
bool sendAll(const UnixSocket &socket, const std::string &text, Clock::time_point end)
{
    std::size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t count =
            send(socket.descriptor(), text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count > 0) {
            sent += static_cast<std::size_t>(count);
        } else if (errno != EAGAIN && errno != EINTR) {
            return false;
        } else if (!wait(socket, POLLOUT, end)) {
            errno = ETIMEDOUT;
            return false;
        }
    }
    return true;
}

} // namespace

Reply ask(const std::filesystem::path &path, const std::string &line,
          std::chrono::milliseconds limit)
{
    Reply reply;
    const Clock::time_point end = Clock::now() + limit;
    const UnixSocket socket = connectTo(path, reply.problem);
    if (!socket.valid()) {
        return reply;
    }
    // What it had to say before it closed the connection is read all the same.
    const bool sent = sendAll(socket, line + "\n", end);
    const int sendError = errno;
    char buffer[16384];
    while (reply.line.size() < mostBytes && wait(socket, POLLIN, end)) {
        const ssize_t count = recv(socket.descriptor(), buffer, sizeof buffer, 0);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        const char *const stop = std::find(buffer, buffer + count, '\n');
        reply.line.append(buffer, static_cast<std::size_t>(stop - buffer));
        if (stop != buffer + count) {
            return reply;
        }
    }
    reply.line.clear();
    reply.problem = Clock::now() >= end ? fmt::format("{}: no answer within {} s", path.string(),
                                                      limit.count() / 1000)
                    : sent              ? fmt::format("{}: the relay has ended", path.string())
                           : fmt::format("{}: {}", path.string(), std::strerror(sendError));
    return reply;
}

} // namespace ferry
