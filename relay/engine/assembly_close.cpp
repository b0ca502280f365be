// Deleting the objects of the plug-ins.
#include <algorithm>

#include "engine/assembly.h"
#include "engine/log.h"

namespace ferry {

void Assembly::closed(const std::string &adapter, const std::string &what)
{
    if (environment().failed()) {
        ++problems_;
        logAdapterFailure("FERRYRelay_tearDown", adapter, fmt::format("delete {}", what),
                          environment());
    }
}

bool Assembly::isBusy(const void *object) const
{
    return std::find(busy_.begin(), busy_.end(), object) != busy_.end();
}

Assembly::PluginSession *Assembly::findSession(std::size_t session, const StreamSettings &settings)
{
    for (const auto &known : pluginSessions_) {
        if (known->session == session &&
            known->connection == connections_[settings.connection].get()) {
            return known.get();
        }
    }
    return nullptr;
}

/// A thread that was given up sits inside one reader or writer for ever. That object stays, and so
/// do those it belongs to. All others are deleted, which lets them write out what they hold.
void Assembly::markBusy()
{
    for (std::size_t i = 0; i < sessions_.size(); ++i) {
        if (!sessions_[i]->guard().givenUp()) {
            continue;
        }
        const void *object = sessions_[i]->guard().object();
        const auto mark = [&](const StreamSettings &settings) {
            if (settings.buffer) {
                return;
            }
            if (PluginSession *owner = findSession(i, settings)) {
                owner->busy = owner->connection->busy = owner->connection->adapter->busy = true;
            }
        };
        registry_.visit([&](Route &route) {
            if (route.input().reader == object) {
                mark(route.settings().input);
            }
            for (const auto &delivery : route.deliveries()) {
                if (delivery->end().writer == object) {
                    mark(*delivery->end().settings);
                }
            }
        });
        busy_.push_back(object);
        leftSomething_ = true;
    }
}

void Assembly::tearDown()
{
    markBusy();
    registry_.visit([this](Route &route) { closeReader(route); });
    registry_.visit([this](Route &route) { closeWriters(route); });
    closeSessions();
    closeConnections();
    closeAdapters();
}

void Assembly::close(Route &route)
{
    closeReader(route);
    closeWriters(route);
}

void Assembly::closeReader(Route &route)
{
    ReaderEnd &input = route.input();
    if (input.reader != nullptr && input.buffer != nullptr) {
        input.buffer->stream().stop();
        input.reader = nullptr;
    }
    if (input.reader == nullptr || isBusy(input.reader) || adapterOf(*input.settings).occupied) {
        return;
    }
    if (const auto slot = input.operations->delete_stream_reader) {
        const std::string what = fmt::format("reader of {}", input.label);
        call(fmt::format("delete of {}", what), adapterOf(*input.settings),
             [&](CallEnvironment &own) {
                 slot(connections_[input.settings->connection]->handle, input.reader, own.fresh());
             });
        closed(*input.adapter, what);
    }
    input.reader = nullptr;
}

void Assembly::closeWriters(Route &route)
{
    for (const auto &delivery : route.deliveries()) {
        WriterEnd &output = delivery->end();
        if (output.buffer != nullptr) {
            output.writer = nullptr;
        }
        if (output.writer == nullptr || isBusy(output.writer) ||
            adapterOf(*output.settings).occupied) {
            continue;
        }
        if (const auto slot = output.operations->delete_stream_writer) {
            const std::string what = fmt::format("writer of {}", output.label);
            call(fmt::format("delete of {}", what), adapterOf(*output.settings),
                 [&](CallEnvironment &own) {
                     slot(connections_[output.settings->connection]->handle, output.writer,
                          own.fresh());
                 });
            closed(*output.adapter, what);
        }
        output.writer = nullptr;
    }
}

void Assembly::closeSessions()
{
    for (auto each = pluginSessions_.rbegin(); each != pluginSessions_.rend(); ++each) {
        closeSession(**each);
    }
}

void Assembly::closeSession(PluginSession &session)
{
    const Connection &owner = *session.connection;
    if (session.handle == nullptr || session.busy || owner.adapter->occupied) {
        return;
    }
    const std::string what =
        fmt::format("session {} of connection {}", configuration_.sessions[session.session].name,
                    owner.settings->name);
    call(fmt::format("delete of {}", what), *owner.adapter, [&](CallEnvironment &own) {
        owner.operations().delete_session(owner.handle, session.handle, own.fresh());
    });
    closed(owner.adapter->settings->name, what);
    session.handle = nullptr;
}

void Assembly::closeConnections()
{
    for (auto each = connections_.rbegin(); each != connections_.rend(); ++each) {
        closeConnection(**each);
    }
}

void Assembly::closeConnection(Connection &connection)
{
    if (connection.handle == nullptr || connection.busy || connection.adapter->occupied) {
        return;
    }
    const std::string what = fmt::format("connection {}", connection.settings->name);
    call(fmt::format("delete of {}", what), *connection.adapter, [&](CallEnvironment &own) {
        connection.operations().delete_connection(connection.adapter->plugin, connection.handle,
                                                  own.fresh());
    });
    closed(connection.adapter->settings->name, what);
    board_.closed(ObjectBoard::Kind::connection, indexOf(connection));
    connection.handle = nullptr;
}

void Assembly::closeAdapters()
{
    for (auto each = adapters_.rbegin(); each != adapters_.rend(); ++each) {
        Adapter *const adapter = each->get();
        if (adapter->plugin == nullptr || adapter->busy || adapter->occupied) {
            continue;
        }
        const std::string what = fmt::format("adapter {}", adapter->settings->name);
        call(fmt::format("delete of {}", what), *adapter, [&](CallEnvironment &own) {
            adapter->plugin->operations.delete_adapter(adapter->plugin, own.fresh());
        });
        closed(adapter->settings->name, what);
        adapter->plugin = nullptr;
    }
}

} // namespace ferry
