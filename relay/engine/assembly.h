// Every object of every plug-in, made in order and deleted in the opposite one, all on the control
// thread: a plug-in sees its connections used by one thread at a time.
#ifndef FERRY_ENGINE_ASSEMBLY_H
#define FERRY_ENGINE_ASSEMBLY_H

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/reporter.h"
#include "engine/roster.h"
#include "engine/session.h"

struct QEL_FerrionStreamInfo;

namespace ferry {

/// One side of what a connection announces: its input streams, or its output streams. Control
/// thread, but for the signal, which may come from any thread, also while the connection is being
/// made.
struct Announcer {
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
    /// The last read brought news, so there may be more.
    std::atomic<bool> more{false};
    /// The last read failed: signals do not count until the next look, or a failing reader would
    /// spin.
    std::atomic<bool> failed{false};

    /// Any thread: whether there may be something to read.
    bool isPending() const
    {
        return !failed.load() && (more.load() || signalled.load());
    }
};

class Assembly {
public:
    /// `wake` is called when a connection has something to announce, on any thread.
    Assembly(const Configuration &configuration, PluginHost &host, Reporter &reporter,
             Roster &roster, std::vector<std::unique_ptr<Session>> &sessions,
             const std::function<void()> &wake);

    /// Makes everything that can be made. A failure puts the routes that depend on it out of
    /// service and is logged, reported and counted. `stop` is asked between any two calls.
    void build(const std::function<bool()> &stop);
    /// Makes a route's writers and its reader; its state tells whether that went well.
    void open(Route &route);
    /// Deletes the reader and the writers of a route that no session has.
    void close(Route &route);
    /// Gets a discovery reader; false when there is none.
    bool openAnnouncer(Announcer &announcer);
    /// Reads a discovery reader once and shows each element to `body`, with its properties (null
    /// when there are none), whatever the read reports; false when it failed, which is logged once
    /// in a while.
    bool read(Announcer &announcer, const std::function<void(const QEL_FerrionStreamInfo &,
                                                             const QEL_FerrionProperties *)> &body);
    /// Logs, reports and counts what is out of service by itself.
    void refuse(const std::string &what, const std::string &reason);
    /// Two of each connection.
    const std::vector<std::unique_ptr<Announcer>> &announcers() const
    {
        return announcers_;
    }
    Reporter &reporter()
    {
        return reporter_;
    }
    /// Deletes everything but what threads that were given up are inside of.
    void tearDown();

    /// Any thread.
    std::size_t problems() const
    {
        return problems_.load();
    }
    /// True when the tear-down had to leave something behind.
    bool leftSomething() const
    {
        return leftSomething_;
    }
    /// What the control thread is doing now, or "". Any thread.
    std::string where() const;
    /// Where the control thread is. The supervisor's thread, or one that only looks.
    const CallGuard &guard() const
    {
        return call_.load()->guard;
    }
    /// Gives up a control thread that is inside a call: it never comes out again, and another one
    /// may close everything that is not of the same adapter. False when it is not inside.
    bool giveUp();

private:
    struct Adapter {
        const AdapterSettings *settings = nullptr;
        QEL_FerrionAdapterPlugin *plugin = nullptr;
        bool busy = false;
        /// A control thread that was given up is inside: nothing of it may be touched.
        bool occupied = false;
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

    /// What belongs to one control thread.
    struct Call {
        CallEnvironment environment;
        CallGuard guard;
    };

    /// For as long as a call takes: its description.
    class Stay {
    public:
        Stay(Assembly &assembly, const std::string &what, const Adapter &adapter)
            : assembly_(assembly), call_(*assembly.call_.load()), adapter_(adapter.settings->name)
        {
            assembly_.setWhere(what);
            call_.guard.enter("call", nullptr, &adapter);
        }
        ~Stay()
        {
            call_.guard.leave();
            assembly_.setWhere("");
            if (call_.environment.failed() && !call_.environment.explained()) {
                call_.environment.explain(assembly_.host_.takeFailure(adapter_));
            }
        }
        Stay(const Stay &) = delete;
        Stay &operator=(const Stay &) = delete;
        /// The thread's own, also when it has been given up since it came in.
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
    std::string refusal(const QEL_FerrionAdapterPlugin *plugin) const;
    void openConnection(Connection &connection);
    PluginSession &sessionOf(std::size_t session, std::size_t connection);
    bool openRoute(Route &route);
    template<class Handle, class Create>
    Handle *openEnd(Route &route, RouteEnd &end, const StreamSettings &settings,
                    const std::string &kind, Create &&create);
    bool openWriter(Route &route, WriterEnd &output, const StreamSettings &settings);
    bool openReader(Route &route);
    PluginSession *place(RouteEnd &end, const StreamSettings &settings, const Route &route);
    bool announcerFailed(Announcer &announcer);

    void markBusy();
    bool isBusy(const void *object) const;
    void closeReader(Route &route);
    void closeWriters(Route &route);
    void closeSessions();
    void closeConnections();
    void closeAdapters();
    PluginSession *findSession(std::size_t session, const StreamSettings &settings);
    void closed(const std::string &adapter, const std::string &what);
    void problem(const std::string &what, const std::string &adapter, const std::string &operation,
                 Place place);

    /// Runs one slot call, which is given the thread's environment, while `where` tells of it.
    template<class Body> auto call(const std::string &what, const Adapter &adapter, Body &&body)
    {
        const Stay stay(*this, what, adapter);
        return body(stay.environment());
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
    Roster &roster_;
    std::vector<std::unique_ptr<Session>> &sessions_;
    std::vector<std::unique_ptr<Announcer>> announcers_;
    std::vector<std::unique_ptr<Adapter>> adapters_;
    std::vector<std::unique_ptr<Connection>> connections_;
    std::vector<std::unique_ptr<PluginSession>> pluginSessions_;
    std::unique_ptr<Call> ownedCall_ = std::make_unique<Call>();
    /// The same; threads that only look read it while it changes.
    std::atomic<Call *> call_{ownedCall_.get()};
    mutable std::mutex whereMutex_;
    std::string where_;
    std::atomic<std::size_t> problems_{0};
    /// What threads that were given up are inside of.
    std::vector<const void *> busy_;
    bool leftSomething_ = false;
};

} // namespace ferry

#endif
