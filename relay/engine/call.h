// One call of a plug-in's operation, seen from the host: its environment, what is known of its
// failure, and its properties.
#ifndef FERRY_ENGINE_CALL_H
#define FERRY_ENGINE_CALL_H

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "config/configuration.h"
#include "ferryjni/plugin.h"

namespace ferry {

/// What a source could not make a sample of.
struct RejectedRecord {
    /// As it stands in the source; of any bytes.
    std::string raw;
    /// For people: what is wrong with it, and where in the source it is.
    std::string reason;
    std::string position;
};

/// What the plug-ins' runtime knows of a failed call beyond the call's own environment.
struct FailureDetails {
    /// A sentence for people, in one line, in place of the environment's text; "" when there is
    /// none.
    std::string text;
    /// What two failures of the same kind have in common; "" when that is their text.
    std::string cause;
    /// Of a read, what the adapter passed over because it is no sample. Of a write it is 1 if the
    /// sample behind those that were taken is bad data, so that it would fail again.
    std::uint64_t rejected = 0;
    /// Of a write: the samples taken before it failed, a prefix. A call into Java cannot both
    /// return a count and throw, so this stands in place of what the call returned.
    std::int32_t taken = 0;
    /// What a read passed over, as far as the adapter hands it over; it keeps none of it.
    std::vector<RejectedRecord> records{};
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
    /// What distinguishes one repeated failure from another.
    const char *cause() const
    {
        return details_.cause.empty() ? text() : details_.cause.c_str();
    }
    std::uint64_t rejected() const
    {
        return details_.rejected;
    }
    /// Samples that a failed write took, if its count cannot say so.
    std::int32_t taken() const
    {
        return details_.taken;
    }
    const std::vector<RejectedRecord> &records() const
    {
        return details_.records;
    }
    /// Records a failure that the host itself found.
    void fail(const std::string &text);
    /// Whether all is known of the failure: the host found it, or its details were asked for.
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

/// Logs a failed call of an adapter, with its own text.
void logAdapterFailure(const char *context, const std::string &adapter,
                       const std::string &operation, const CallEnvironment &environment);

} // namespace ferry

#endif
