// One call of a plug-in slot, seen from the host: its environment, its properties, and where a
// thread is while it is inside. Plus the interface through which the relay gets plug-ins at all.
#ifndef FERRY_ENGINE_PLUGIN_H
#define FERRY_ENGINE_PLUGIN_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "config/configuration.h"
#include "ferryjni/plugin.h"

namespace ferry {

/// What the plug-ins' runtime knows of a failed call beyond the call's own environment.
struct FailureDetails {
    /// A sentence for people, in one line, in place of the environment's text; "" when there is
    /// none.
    std::string text;
    /// What two failures of the same kind have in common; "" when that is their text.
    std::string cause;
    /// Samples that the adapter says it had to pass over.
    std::uint64_t rejected = 0;
};

/// The environment of one call after another. Used by one thread at a time.
class CallEnvironment {
public:
    /// Zeroed, to be passed to the next call.
    QEL_FerrionEnvironment *fresh()
    {
        std::memset(&raw_, 0, sizeof raw_);
        if (explained_) {
            details_ = {};
            explained_ = false;
        }
        return &raw_;
    }
    bool failed() const
    {
        return raw_.errorFlag != 0;
    }
    int code() const
    {
        return raw_.errorCode;
    }
    const char *text() const
    {
        if (!details_.text.empty()) {
            return details_.text.c_str();
        }
        return raw_.message[0] != '\0' ? raw_.message : "no reason given";
    }
    /// What tells one failure that repeats from another.
    const char *cause() const
    {
        return details_.cause.empty() ? text() : details_.cause.c_str();
    }
    std::uint64_t rejected() const
    {
        return details_.rejected;
    }
    /// Records a failure that the host itself found.
    void fail(const std::string &text);
    /// Whether nobody knows more of the failure: the host found it, or it was asked for.
    bool explained() const
    {
        return explained_;
    }
    /// Adds to a failure what else is known of it.
    void explain(FailureDetails details)
    {
        details_ = std::move(details);
        explained_ = true;
    }

private:
    QEL_FerrionEnvironment raw_{};
    FailureDetails details_;
    bool explained_ = false;
};

/// A property list as the plug-in interface wants it. Plug-ins keep nothing of it.
class PropertyList {
public:
    explicit PropertyList(const Properties &properties);
    PropertyList(const PropertyList &) = delete;
    PropertyList &operator=(const PropertyList &) = delete;
    /// Never null: an adapter may look properties up without asking whether there are any.
    const QEL_FerrionProperties *get() const
    {
        return &list_;
    }

private:
    Properties texts_;
    std::vector<QEL_FerrionNameValue> pairs_;
    QEL_FerrionProperties list_{};
};

/// Where a thread is. The thread itself enters and leaves; another thread may give up on it while
/// it is inside: then it never comes out again, and everything but the object that it is inside of
/// may be used by others.
class CallGuard {
public:
    /// `operation` is a literal, `object` the plug-in's object that the call works on, `owner` what
    /// the caller works for; the last two only identify.
    void enter(const char *operation, const void *object, const void *owner = nullptr);
    /// Parks the calling thread for ever when it has been given up.
    void leave();

    /// True when the thread was inside a call, and will not come out of it any more.
    bool giveUp();
    bool givenUp() const
    {
        return state_.load() == State::abandoned;
    }
    bool inside() const
    {
        return state_.load() == State::inside;
    }
    /// How many calls there have been, with the present one.
    std::uint64_t calls() const
    {
        return calls_.load();
    }

    /// The call that the thread is or was last in; null before the first.
    const char *operation() const
    {
        return operation_.load();
    }
    const void *object() const
    {
        return object_.load();
    }
    const void *owner() const
    {
        return owner_.load();
    }

private:
    enum class State { outside, inside, abandoned };

    std::atomic<State> state_{State::outside};
    std::atomic<const char *> operation_{nullptr};
    std::atomic<const void *> object_{nullptr};
    std::atomic<const void *> owner_{nullptr};
    std::atomic<std::uint64_t> calls_{0};
};

/// Finds calls that do not come back. Looks now and then, so it is late by the time between looks.
class StallWatch {
public:
    using Clock = std::chrono::steady_clock;

    /// How long the guard's thread has been seen in one call when that is worth telling: after
    /// `limit`, and each time it has doubled; else 0.
    Clock::duration look(const CallGuard &guard, Clock::time_point now, Clock::duration limit);

private:
    std::uint64_t call_ = 0;
    Clock::time_point since_;
    Clock::duration next_{0};
};

/// Where plug-ins come from, and what their threads need. The relay calls start, open and stop on
/// its control thread, the other two on each of its session threads.
class PluginHost {
public:
    virtual ~PluginHost() = default;

    /// Prepares what the adapters need; false, after logging why, when that failed.
    virtual bool start() = 0;
    /// Makes an adapter's plug-in; a failure is in the environment, whatever is returned.
    virtual QEL_FerrionAdapterPlugin *open(const AdapterSettings &settings,
                                           const QEL_FerrionProperties *properties,
                                           CallEnvironment &environment) = 0;
    /// Makes the calling thread fit to call plug-ins; false, after logging why, when that failed.
    virtual bool attachThread() = 0;
    virtual void detachThread() = 0;
    /// Ends what start made. Every plug-in is gone, every thread is detached.
    virtual void stop() = 0;
    /// What else is known of the failure that the last call on this thread has reported. Asked
    /// once, right after that call, which was one of the adapter `adapter`; what is not asked for
    /// belongs to no later failure.
    virtual FailureDetails takeFailure(const std::string &adapter)
    {
        static_cast<void>(adapter);
        return {};
    }
    /// Tells the plug-ins that can be told to come back from whatever they wait for by then. Not
    /// once plug-ins are being deleted. May hang in one of them. Any thread.
    virtual void stopBy(std::chrono::steady_clock::time_point) {}
    /// Whether any plug-in can be told. Any thread.
    virtual bool anyStopBy() const
    {
        return false;
    }
    /// The optional function `name` of a plug-in that was opened, see ferryjni/plugin.h; null when
    /// it has none.
    virtual void *find(const AdapterSettings &settings, const std::string &name)
    {
        static_cast<void>(settings);
        static_cast<void>(name);
        return nullptr;
    }
    /// What the threads of the plug-ins' runtime are doing, for people. Any thread, any time.
    virtual std::string threadDump()
    {
        return "";
    }
};

/// Logs a failed call of an adapter, with its own text.
void logAdapterFailure(const char *context, const std::string &adapter,
                       const std::string &operation, const CallEnvironment &environment);

} // namespace ferry

#endif
