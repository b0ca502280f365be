// Making anew the objects of the plug-ins that are out of service.
#include <algorithm>

#include "engine/assembly.h"

namespace ferry {

/// An adapter is made once: what keeps it from being made stands in the configuration.
bool Assembly::mayRestart(const Adapter &adapter) const
{
    return configuration_.restart.has_value() && !reporter_.anyMistake() &&
           adapter.plugin != nullptr && !adapter.occupied;
}

bool Assembly::isPossible(const Route &route) const
{
    const auto possible = [this](const StreamSettings &end) {
        return end.buffer ? !buffers_[*end.buffer]->isRejected()
                          : mayRestart(*connections_[end.connection]->adapter);
    };
    const RouteSettings &settings = route.settings();
    return !route.isRejected() && possible(settings.input) &&
           std::all_of(settings.outputs.begin(), settings.outputs.end(), possible);
}

bool Assembly::isReconnecting(std::size_t connection) const
{
    return connections_[connection]->broken && mayRestart(*connections_[connection]->adapter);
}

std::vector<std::size_t> Assembly::reconnect(const std::function<bool()> &stop)
{
    std::vector<std::size_t> back;
    for (std::size_t i = 0; i < connections_.size(); ++i) {
        Connection &connection = *connections_[i];
        if (isReconnecting(i) && connection.timer && !stop() &&
            Clock::now() >= connection.timer->due() && !connection.timer->exhausted(Clock::now())) {
            reopen(connection);
            if (!connection.broken) {
                back.push_back(i);
            }
        }
    }
    markReconnecting();
    return back;
}

/// For other threads.
void Assembly::markReconnecting()
{
    bool any = false;
    for (std::size_t i = 0; i < connections_.size(); ++i) {
        const Connection &connection = *connections_[i];
        any = any || isReconnecting(i);
        if (isReconnecting(i) && connection.timer && !connection.timer->exhausted(Clock::now())) {
            board_.retryAt(ObjectBoard::Kind::connection, i, nanoseconds(connection.timer->due()));
        }
    }
    if (!any) {
        reconnectingSince_.store(0);
    } else if (reconnectingSince_.load() == 0) {
        reconnectingSince_.store(nanoseconds(Clock::now()));
    }
}

Clock::time_point Assembly::nextReconnect() const
{
    Clock::time_point next = Clock::time_point::max();
    for (std::size_t i = 0; i < connections_.size(); ++i) {
        const Connection &connection = *connections_[i];
        if (isReconnecting(i) && connection.timer && !connection.timer->exhausted(Clock::now())) {
            next = std::min(next, connection.timer->due());
        }
    }
    return next;
}

void Assembly::hurry(const RouteSettings &route)
{
    const auto hurryOne = [this](const StreamSettings &end) {
        if (!end.buffer && isReconnecting(end.connection)) {
            std::optional<RestartTimer> &timer = connections_[end.connection]->timer;
            timer.emplace(*configuration_.restart);
            timer->failed(Clock::now());
            timer->hurry(Clock::now());
        }
    };
    hurryOne(route.input);
    std::for_each(route.outputs.begin(), route.outputs.end(), hurryOne);
}

/// Deletes the connection with its sessions, which nobody uses, and makes it anew.
void Assembly::reopen(Connection &connection)
{
    for (const auto &session : pluginSessions_) {
        if (session->connection == &connection) {
            closeSession(*session);
        }
    }
    closeConnection(connection);
    forgetSessions();
    connection.broken = false;
    openConnection(connection);
    if (connection.timer) {
        connection.timer->attempted(Clock::now(), !connection.broken);
    }
}

/// Those that could not be made, or have been deleted, are made when they are next needed.
void Assembly::forgetSessions()
{
    pluginSessions_.erase(
        std::remove_if(pluginSessions_.begin(), pluginSessions_.end(),
                       [](const auto &session) { return session->handle == nullptr; }),
        pluginSessions_.end());
}

bool Assembly::isUsed(const Connection &connection)
{
    bool used = connection.busy || connection.adapter->occupied;
    const auto isHere = [&](const StreamSettings &end) {
        return !end.buffer && connections_[end.connection].get() == &connection;
    };
    registry_.visit([&](Route &route) {
        used = used || (route.input().reader != nullptr && isHere(route.settings().input));
        for (const auto &delivery : route.deliveries()) {
            used = used || (delivery->end().writer != nullptr && isHere(*delivery->end().settings));
        }
    });
    const auto &rules = configuration_.discovery;
    return used || std::any_of(rules.begin(), rules.end(), [&](const DiscoverySettings &rule) {
               return connections_[rule.connection].get() == &connection;
           });
}

std::vector<std::size_t> Assembly::renew(const RouteSettings &route)
{
    std::vector<std::size_t> renewed;
    forgetSessions();
    std::vector<std::size_t> mine;
    const auto add = [&](const StreamSettings &end) {
        if (!end.buffer) {
            mine.push_back(end.connection);
        }
    };
    add(route.input);
    std::for_each(route.outputs.begin(), route.outputs.end(), add);
    std::sort(mine.begin(), mine.end());
    mine.erase(std::unique(mine.begin(), mine.end()), mine.end());
    for (const std::size_t index : mine) {
        Connection &connection = *connections_[index];
        if (connection.handle != nullptr && !connection.broken && !isUsed(connection)) {
            source(index, true).reader = source(index, false).reader = nullptr;
            reopen(connection);
            renewed.push_back(index);
        }
    }
    return renewed;
}

} // namespace ferry
