// Taking the objects of the plug-ins apart, and reading what their connections announce.
#include <algorithm>

#include "engine/assembly.h"
#include "engine/log.h"

namespace ferry {

void Assembly::closed(const std::string &adapter, const std::string &what)
{
    if (environment_.failed()) {
        ++problems_;
        logAdapterFailure("FERRYRelay_tearDown", adapter, "delete " + what, environment_);
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

/// A thread that was given up sits inside one reader or writer for ever: that object, and those
/// that it belongs to, stay. Everything else can be closed, so that it gets to write out what it
/// holds.
void Assembly::markBusy()
{
    for (std::size_t i = 0; i < sessions_.size(); ++i) {
        if (!sessions_[i]->guard().givenUp()) {
            continue;
        }
        const void *object = sessions_[i]->guard().object();
        const auto mark = [&](const StreamSettings &settings) {
            if (PluginSession *owner = findSession(i, settings)) {
                owner->busy = owner->connection->busy = owner->connection->adapter->busy = true;
            }
        };
        for (const auto &route : sessions_[i]->routes()) {
            if (route->input().reader == object) {
                mark(route->settings().input);
            }
            for (const auto &output : route->outputs()) {
                if (output->writer == object) {
                    mark(*output->settings);
                }
            }
        }
        busy_.push_back(object);
        leftSomething_ = true;
    }
}

void Assembly::tearDown()
{
    markBusy();
    for (std::size_t i = 0; i < sessions_.size(); ++i) {
        for (const auto &route : sessions_[i]->routes()) {
            closeReader(*route, i);
        }
    }
    for (std::size_t i = 0; i < sessions_.size(); ++i) {
        for (const auto &route : sessions_[i]->routes()) {
            closeWriters(*route, i);
        }
    }
    closeSessions();
    closeConnections();
    closeAdapters();
}

void Assembly::closeReader(Route &route, std::size_t session)
{
    Input &input = route.input();
    if (input.reader == nullptr || isBusy(input.reader)) {
        return;
    }
    if (const auto slot = input.operations->delete_stream_reader) {
        const std::string what = "reader of " + input.label;
        call("delete of " + what, [&](QEL_FerrionEnvironment *raw) {
            slot(findSession(session, *input.settings)->connection->handle, input.reader, raw);
        });
        closed(*input.adapter, what);
    }
    input.reader = nullptr;
}

void Assembly::closeWriters(Route &route, std::size_t session)
{
    for (const auto &output : route.outputs()) {
        if (output->writer == nullptr || isBusy(output->writer)) {
            continue;
        }
        if (const auto slot = output->operations->delete_stream_writer) {
            const std::string what = "writer of " + output->label;
            call("delete of " + what, [&](QEL_FerrionEnvironment *raw) {
                slot(findSession(session, *output->settings)->connection->handle, output->writer,
                     raw);
            });
            closed(*output->adapter, what);
        }
        output->writer = nullptr;
    }
}

void Assembly::closeSessions()
{
    for (auto each = pluginSessions_.rbegin(); each != pluginSessions_.rend(); ++each) {
        PluginSession *const session = each->get();
        if (session->handle == nullptr || session->busy) {
            continue;
        }
        const Connection &owner = *session->connection;
        const std::string what = "session " + configuration_.sessions[session->session].name +
                                 " of connection " + owner.settings->name;
        call("delete of " + what, [&](QEL_FerrionEnvironment *raw) {
            owner.operations().delete_session(owner.handle, session->handle, raw);
        });
        closed(owner.adapter->settings->name, what);
        session->handle = nullptr;
    }
}

void Assembly::closeConnections()
{
    for (auto each = connections_.rbegin(); each != connections_.rend(); ++each) {
        Connection *const connection = each->get();
        if (connection->handle == nullptr || connection->busy) {
            continue;
        }
        const std::string what = "connection " + connection->settings->name;
        call("delete of " + what, [&](QEL_FerrionEnvironment *raw) {
            connection->operations().delete_connection(connection->adapter->plugin,
                                                       connection->handle, raw);
        });
        closed(connection->adapter->settings->name, what);
        connection->handle = nullptr;
    }
}

void Assembly::closeAdapters()
{
    for (auto each = adapters_.rbegin(); each != adapters_.rend(); ++each) {
        Adapter *const adapter = each->get();
        if (adapter->plugin == nullptr || adapter->busy) {
            continue;
        }
        const std::string what = "adapter " + adapter->settings->name;
        call("delete of " + what, [&](QEL_FerrionEnvironment *raw) {
            adapter->plugin->operations.delete_adapter(adapter->plugin, raw);
        });
        closed(adapter->settings->name, what);
        adapter->plugin = nullptr;
    }
}

void Assembly::reportStreams()
{
    for (const auto &connection : connections_) {
        if (connection->handle != nullptr && !connection->broken) {
            readDiscovery(*connection, true);
            readDiscovery(*connection, false);
        }
    }
}

void Assembly::readDiscovery(Connection &connection, bool inputs)
{
    const QEL_FerrionAdapterOperations &operations = connection.operations();
    const auto get =
        inputs ? operations.get_pub_discovery_reader : operations.get_sub_discovery_reader;
    if (get == nullptr || operations.read == nullptr || operations.return_loan == nullptr) {
        return;
    }
    const std::string what = "discovery of connection " + connection.settings->name;
    const std::string &adapter = connection.adapter->settings->name;
    QEL_FerrionStreamReader *reader =
        call(what, [&](QEL_FerrionEnvironment *raw) { return get(connection.handle, raw); });
    if (environment_.failed()) {
        problem("connection " + connection.settings->name, adapter, what);
        return;
    }
    if (reader == nullptr) {
        return;
    }
    void **samples = nullptr;
    DDS_SampleInfo **infos = nullptr;
    std::int32_t count = 0;
    call(what, [&](QEL_FerrionEnvironment *raw) {
        operations.read(reader, &samples, &infos, &count, raw);
    });
    if (environment_.failed()) {
        problem("connection " + connection.settings->name, adapter, what);
    }
    for (std::int32_t i = 0; samples != nullptr && i < count; ++i) {
        if (samples[i] != nullptr) {
            describe(connection, *static_cast<QEL_FerrionStreamInfo *>(samples[i]), inputs);
        }
    }
    call(what, [&](QEL_FerrionEnvironment *raw) {
        operations.return_loan(reader, samples, infos, count, raw);
    });
    if (environment_.failed()) {
        problem("connection " + connection.settings->name, adapter, what);
    }
}

void Assembly::describe(const Connection &connection, const QEL_FerrionStreamInfo &info, bool input)
{
    if (info.disposed != 0 || info.streamName == nullptr) {
        return;
    }
    const std::string type = info.typeName == nullptr ? "" : std::string(", type ") + info.typeName;
    reporter_.good((input ? "input stream " : "output stream ") + connection.settings->name + "/" +
                       info.streamName,
                   "announced" + type);
    compareTypes(connection, info, input);
}

/// A warning only: the name is the adapter's guess, the configuration's is what counts.
void Assembly::compareTypes(const Connection &connection, const QEL_FerrionStreamInfo &info,
                            bool input)
{
    if (info.typeName == nullptr) {
        return;
    }
    const std::size_t index =
        static_cast<std::size_t>(connection.settings - configuration_.connections.data());
    for (const RouteSettings &route : configuration_.routes) {
        const auto matches = [&](const StreamSettings &stream) {
            return stream.connection == index && stream.stream == info.streamName;
        };
        const bool concerned =
            input ? matches(route.input)
                  : std::any_of(route.outputs.begin(), route.outputs.end(), matches);
        if (concerned && route.typeName != info.typeName) {
            logMessage(FERRYLOG_BIT_WARNING, "FERRYRelay_check",
                       FERRY_LOG_ROUTETYPE_INCONSISTENCY_sss, info.streamName,
                       route.typeName.c_str(), info.typeName);
        }
    }
}

} // namespace ferry
