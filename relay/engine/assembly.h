// Every object of every plug-in, made in order and deleted in the opposite one, all on the control
// thread: a plug-in sees its connections used by one thread at a time.
#ifndef FERRY_ENGINE_ASSEMBLY_H
#define FERRY_ENGINE_ASSEMBLY_H

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/reporter.h"
#include "engine/session.h"

namespace ferry {

class Assembly {
public:
    Assembly(const Configuration &configuration, PluginHost &host, Reporter &reporter,
             std::vector<std::unique_ptr<Session>> &sessions);

    /// Makes everything that can be made. A failure puts the routes that depend on it out of
    /// service and is logged, reported and counted. `stop` is asked between any two calls.
    void build(const std::function<bool()> &stop);
    /// Reads the discovery readers once and reports the streams that they announce.
    void reportStreams();
    /// Deletes everything but what threads that were given up are inside of.
    void tearDown();

    std::size_t problems() const
    {
        return problems_;
    }
    /// True when the tear-down had to leave something behind.
    bool leftSomething() const
    {
        return leftSomething_;
    }
    /// What the control thread is doing now, or "". Any thread.
    std::string where() const;

private:
    struct Adapter {
        const AdapterSettings *settings = nullptr;
        QEL_FerrionAdapterPlugin *plugin = nullptr;
        bool busy = false;
    };
    struct Connection {
        const ConnectionSettings *settings = nullptr;
        Adapter *adapter = nullptr;
        QEL_FerrionConnection *handle = nullptr;
        /// Creation failed: it can only be deleted.
        bool broken = false;
        bool busy = false;
        const QEL_FerrionAdapterOperations &operations() const
        {
            return adapter->plugin->operations;
        }
    };
    /// One relay session's session of one connection; a null handle is one that could not be made.
    struct PluginSession {
        std::size_t session = 0;
        Connection *connection = nullptr;
        QEL_FerrionSession *handle = nullptr;
        bool busy = false;
    };

    /// For as long as a call takes: its description.
    class Stay {
    public:
        Stay(Assembly &assembly, const std::string &what) : assembly_(assembly)
        {
            assembly_.setWhere(what);
        }
        ~Stay()
        {
            assembly_.setWhere("");
        }
        Stay(const Stay &) = delete;
        Stay &operator=(const Stay &) = delete;

    private:
        Assembly &assembly_;
    };

    void setWhere(const std::string &what);
    void openAdapter(Adapter &adapter);
    std::string refusal(const QEL_FerrionAdapterPlugin *plugin) const;
    void openConnection(Connection &connection);
    PluginSession &sessionOf(std::size_t session, std::size_t connection);
    bool openRoute(Route &route, std::size_t session);
    template<class Handle, class Create>
    Handle *openEnd(Route &route, Endpoint &end, const StreamSettings &settings,
                    std::size_t session, const std::string &kind, Create &&create);
    bool openWriter(Route &route, Output &output, const StreamSettings &settings,
                    std::size_t session);
    bool openReader(Route &route, std::size_t session);
    PluginSession *place(Endpoint &endpoint, const StreamSettings &settings, std::size_t session,
                         const Route &route);
    void readDiscovery(Connection &connection, bool inputs);
    void describe(const Connection &connection, const QEL_FerrionStreamInfo &info, bool input);
    void compareTypes(const Connection &connection, const QEL_FerrionStreamInfo &info, bool input);

    void markBusy();
    bool isBusy(const void *object) const;
    void closeReader(Route &route, std::size_t session);
    void closeWriters(Route &route, std::size_t session);
    void closeSessions();
    void closeConnections();
    void closeAdapters();
    PluginSession *findSession(std::size_t session, const StreamSettings &settings);
    void closed(const std::string &adapter, const std::string &what);
    void problem(const std::string &what, const std::string &adapter, const std::string &operation);

    /// Runs one slot call with a fresh environment, while `where` tells what is going on.
    template<class Body> auto call(const std::string &what, Body &&body)
    {
        const Stay stay(*this, what);
        return body(environment_.fresh());
    }

    const Configuration &configuration_;
    PluginHost &host_;
    Reporter &reporter_;
    std::vector<std::unique_ptr<Session>> &sessions_;
    std::vector<std::unique_ptr<Adapter>> adapters_;
    std::vector<std::unique_ptr<Connection>> connections_;
    std::vector<std::unique_ptr<PluginSession>> pluginSessions_;
    CallEnvironment environment_;
    mutable std::mutex whereMutex_;
    std::string where_;
    std::size_t problems_ = 0;
    /// What threads that were given up are inside of.
    std::vector<const void *> busy_;
    bool leftSomething_ = false;
};

} // namespace ferry

#endif
