// Creates every object of every plug-in, and deletes them in the opposite order. All of it runs on
// the control thread, so a plug-in sees its connections used by one thread at a time.
#ifndef FERRY_ENGINE_ASSEMBLY_H
#define FERRY_ENGINE_ASSEMBLY_H

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/object_board.h"
#include "engine/reporter.h"
#include "engine/restart_timer.h"
#include "engine/route_registry.h"
#include "engine/session.h"

struct QEL_FerrionStreamInfo;

namespace ferry {

/// Where announcements come from: a connection's input streams, or its output streams. Control
/// thread. Only the signal may come from any thread, even while the connection is being created.
struct DiscoverySource {
    std::size_t connection = 0;
    bool inputs = true;
    /// "input streams of connection in", for messages.
    std::string label;
    /// Owned by the connection; null when it announces nothing.
    QEL_FerrionStreamReader *reader = nullptr;
    /// Null when the plug-in has no such function.
    QEL_FerrionAdapterPlugin_StreamPropertiesFn properties = nullptr;
    std::atomic<bool> signalled{false};
    std::function<void()> wake;
    RepeatFilter filter;
    /// The last read brought changes, so there may be more.
    std::atomic<bool> more{false};
    /// The last read failed. Signals do not count until the next poll: a failing reader would spin.
    std::atomic<bool> failed{false};

    /// Any thread: whether there may be something to read.
    bool isPending() const
    {
        return !failed.load() && (more.load() || signalled.load());
    }
};

class Assembly {
public:
    /// `wake` is called on any thread when a connection has something to announce.
    Assembly(const Configuration &configuration, PluginHost &host, Reporter &reporter,
             RouteRegistry &registry, std::vector<std::unique_ptr<Session>> &sessions,
             const BufferedOutputs &buffers, const std::function<void()> &wake);

    /// Creates all that it can. A failure is logged, reported and counted, and puts the routes that
    /// depend on it out of service. `stop` is asked between any two calls.
    void build(const std::function<bool()> &stop);
    /// Creates a route's writers and its reader, and sets its state: active or failed.
    void open(Route &route);
    /// Deletes the reader and the writers of a route that no session has.
    void close(Route &route);
    /// Gets a discovery reader; false if there is none.
    bool openSource(DiscoverySource &source);
    /// Reads a discovery reader once and passes each element to `body` with its properties, null if
    /// there are none. Elements count even if the read reports an error. False after an error,
    /// which is logged unless it repeats.
    bool read(DiscoverySource &source,
              const std::function<void(const QEL_FerrionStreamInfo &,
                                       const QEL_FerrionProperties *)> &body);
    /// Logs, reports and counts what is out of service although no call failed.
    void reject(const std::string &what, const std::string &reason);
    /// Two of each connection, that of the input streams first.
    const std::vector<std::unique_ptr<DiscoverySource>> &sources() const
    {
        return sources_;
    }
    DiscoverySource &source(std::size_t connection, bool inputs) const
    {
        return *sources_[2 * connection + (inputs ? 0 : 1)];
    }
    Reporter &reporter()
    {
        return reporter_;
    }
    /// An end of the route whose adapter does not carry samples that nobody looks into, or null.
    const StreamSettings *endWithoutOpaque(const RouteSettings &route);
    /// Whether nothing that will not change keeps the route from being made: its adapters are
    /// there.
    bool isPossible(const Route &route) const;
    /// Makes anew the connections that are out of service and due; returns those that are back.
    std::vector<std::size_t> reconnect(const std::function<bool()> &stop);
    /// When to do that next.
    Clock::time_point nextReconnect() const;
    /// Whether the connection is out of service, but will be made anew.
    bool isReconnecting(std::size_t connection) const;
    /// Since when any connection has been out of service and made anew in vain, in nanoseconds of
    /// Clock; 0 if none is. Any thread.
    std::int64_t reconnectingSince() const
    {
        return reconnectingSince_.load();
    }
    /// Has the route's connections that are out of service made anew at once, even if that had been
    /// given up.
    void hurry(const RouteSettings &route);
    /// Makes anew the connections of a route that is closed if nothing else uses them: an adapter
    /// may need new objects. Returns those whose discovery readers are gone with that.
    std::vector<std::size_t> renew(const RouteSettings &route);
    /// Deletes everything, except the objects in which threads were given up.
    void tearDown();

    /// What has become of adapters and connections. Any thread.
    const ObjectBoard &board() const
    {
        return board_;
    }
    /// Any thread.
    std::size_t problems() const
    {
        return problems_.load();
    }
    /// Whether the tear-down had to leave something behind.
    bool leftSomething() const
    {
        return leftSomething_;
    }
    /// What the control thread is doing now, or "". Any thread.
    std::string where() const;
    /// Where the control thread is. Any thread.
    const CallGuard &guard() const
    {
        return call_.load()->guard;
    }
    /// Gives up a control thread inside a call: it never returns from there, and another thread may
    /// close the objects of all other adapters. False if it is not inside a call.
    bool giveUp();

private:
    /// How often a failure that goes on is logged.
    static constexpr std::chrono::minutes restartPause{10};
    /// Of how many objects failures are known.
    static constexpr std::size_t mostFailures = 1000;

    struct Adapter {
        const AdapterSettings *settings = nullptr;
        QEL_FerrionAdapterPlugin *plugin = nullptr;
        bool busy = false;
        /// A control thread was given up inside: no object of this adapter may be touched.
        bool occupied = false;
    };
    struct Connection {
        const ConnectionSettings *settings = nullptr;
        Adapter *adapter = nullptr;
        QEL_FerrionConnection *handle = nullptr;
        /// Creation failed: it can only be deleted.
        bool broken = false;
        bool busy = false;
        std::optional<RestartTimer> timer;
        const QEL_FerrionAdapterOperations &operations() const
        {
            return adapter->plugin->operations;
        }
    };
    /// The session that a connection created for one session of the relay. Null handle: it failed.
    struct PluginSession {
        std::size_t session = 0;
        Connection *connection = nullptr;
        QEL_FerrionSession *handle = nullptr;
        bool busy = false;
    };

    /// What belongs to one control thread.
    struct Call {
        CallEnvironment environment;
        CallGuard guard;
    };

    /// For as long as a call takes: its description.
    class CallScope {
    public:
        CallScope(Assembly &assembly, const std::string &what, const Adapter &adapter)
            : assembly_(assembly), call_(*assembly.call_.load()), adapter_(adapter.settings->name)
        {
            assembly_.setWhere(what);
            call_.guard.enter("call", nullptr, &adapter);
        }
        ~CallScope()
        {
            call_.guard.leave();
            assembly_.setWhere("");
            if (call_.environment.failed() && !call_.environment.explained()) {
                call_.environment.explain(assembly_.host_.takeFailure(adapter_));
            }
        }
        CallScope(const CallScope &) = delete;
        CallScope &operator=(const CallScope &) = delete;
        /// The thread's own, even if it has been given up since it entered.
        CallEnvironment &environment() const
        {
            return call_.environment;
        }

    private:
        Assembly &assembly_;
        Call &call_;
        const std::string &adapter_;
    };

    void setWhere(const std::string &what);
    void openAdapter(Adapter &adapter);
    std::string rejectionOf(const QEL_FerrionAdapterPlugin *plugin) const;
    void openConnection(Connection &connection);
    PluginSession &sessionOf(std::size_t session, std::size_t connection);
    bool openRoute(Route &route);
    template<class Handle, class Create>
    Handle *openEnd(Route &route, RouteEnd &end, const StreamSettings &settings,
                    const std::string &kind, Create &&create);
    std::uint32_t deliveryOf(std::size_t session, const StreamSettings &end, std::uint32_t role);
    bool numbers(const RouteSettings &route);
    std::string obstacleToOnce(const RouteSettings &route, const StreamSettings &output);
    void rejectOutput(Route &route, const StreamSettings &settings, const std::string &obstacle);
    bool openBuffer(Route &route, RouteEnd &end, const StreamSettings &settings);
    bool openWriter(Route &route, WriterEnd &output, const StreamSettings &settings);
    bool openReader(Route &route);
    PluginSession *attach(RouteEnd &end, const StreamSettings &settings, const Route &route);
    bool sourceFailed(DiscoverySource &source);

    void markBusy();
    bool isBusy(const void *object) const;
    void closeReader(Route &route);
    void closeWriters(Route &route);
    void closeSessions();
    void closeConnections();
    void closeSession(PluginSession &session);
    void closeConnection(Connection &connection);
    void markReconnecting();
    void reopen(Connection &connection);
    void forgetSessions();
    bool isUsed(const Connection &connection);
    bool mayRestart(const Adapter &adapter) const;
    void closeAdapters();
    std::size_t indexOf(const Connection &connection) const;
    PluginSession *findSession(std::size_t session, const StreamSettings &settings);
    void closed(const std::string &adapter, const std::string &what);
    void problem(const std::string &what, const Adapter &adapter, const std::string &operation,
                 Place place);
    bool admits(const std::string &what, const char *cause);

    /// Runs one call of a plug-in with the thread's environment. Meanwhile `where` names it.
    template<class Body> auto call(const std::string &what, const Adapter &adapter, Body &&body)
    {
        const CallScope scope(*this, what, adapter);
        return body(scope.environment());
    }
    /// What the last call left; outside of calls only.
    CallEnvironment &environment()
    {
        return call_.load()->environment;
    }
    Adapter &adapterOf(const StreamSettings &end)
    {
        return *connections_[end.connection]->adapter;
    }

    const Configuration &configuration_;
    PluginHost &host_;
    Reporter &reporter_;
    RouteRegistry &registry_;
    std::vector<std::unique_ptr<Session>> &sessions_;
    const BufferedOutputs &buffers_;
    ObjectBoard board_;
    std::vector<std::unique_ptr<DiscoverySource>> sources_;
    std::vector<std::unique_ptr<Adapter>> adapters_;
    std::vector<std::unique_ptr<Connection>> connections_;
    std::vector<std::unique_ptr<PluginSession>> pluginSessions_;
    std::unique_ptr<Call> ownedCall_ = std::make_unique<Call>();
    /// The same, for other threads: they read it while it changes.
    std::atomic<Call *> call_{ownedCall_.get()};
    mutable std::mutex whereMutex_;
    std::string where_;
    std::atomic<std::size_t> problems_{0};
    std::atomic<std::int64_t> reconnectingSince_{0};
    /// What has been logged of objects that are made anew again and again.
    std::map<std::string, RepeatFilter> failures_;
    /// Objects in which threads were given up.
    std::vector<const void *> busy_;
    bool leftSomething_ = false;
};

} // namespace ferry

#endif
