// A native plug-in that does what a test asks, and remembers what the relay did to it. It
// checks by itself what holds for every call: a clean environment, loans that are returned, infos
// that fit their samples.
#ifndef TESTS_RELAY_SCRIPTED_PLUGIN_H
#define TESTS_RELAY_SCRIPTED_PLUGIN_H

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "process/plugin_loader.h"
#include "qddsc/sample_info.h"
#include "qddsc/type_code.h"

namespace scripted {

/// What one read gives: samples (a negative one is a null element) and an error text.
struct Read {
    std::vector<int> samples;
    std::string error;
    /// Those of the samples that are ends of instances.
    std::set<int> ends = {};
    /// Bytes of samples that are to be large.
    std::map<int, std::uint32_t> bytes = {};
    /// What the host knows of the error besides.
    ferry::FailureDetails details = {};
    /// Returned in place of the number of samples.
    std::optional<std::int32_t> count = {};
};

/// A stream by its name; reader and writer of it in one.
struct Stream {
    std::deque<Read> reads;
    /// Makes up reads when there are none in the queue; runs on the session's thread.
    std::function<Read()> source;
    std::vector<std::vector<int>> writes;
    /// What a write returns, and its error text; takes all when not set.
    std::function<int(const std::vector<int> &samples, std::string &error)> onWrite;
    QEL_FerrionStreamReaderListener listener{};
    int readCalls = 0;
};

/// What a discovery reader announces: a stream, or that it has gone.
struct Announcement {
    std::string stream;
    std::string typeName = {};
    const DDS_TypeCode *type = nullptr;
    std::vector<std::string> partitions = {};
    bool disposed = false;
    ferry::Properties properties = {};
};

/// The host that hands the plug-in out, and the script of all its adapters, which are known by
/// their property `name`.
class Script : public ferry::PluginLoader {
public:
    explicit Script(const ferry::Configuration &configuration);
    /// What its readers and writers declare of their deliveries.
    std::uint32_t delivers = 0;
    std::uint32_t delivery(const ferry::AdapterSettings &, std::uint32_t,
                           const ferry::Properties &) override
    {
        return delivers;
    }
    /// Touched by the relay's threads from its start to its end.
    std::map<std::string, Stream> streams;
    /// Signals on behalf of a stream's reader.
    static void signal(const Stream &stream);
    /// "create_reader a" -> text of the error that the call reports beside its result.
    std::map<std::string, std::string> errors;
    /// Run at the start of a call, by the same name.
    std::map<std::string, std::function<void()>> hooks;
    /// Lets the discovery reader of a connection's input (or output) streams announce something,
    /// and signals. Any thread, also before the connection is made.
    void announce(const std::string &connection, const Announcement &announced, bool input = true);
    /// When the plug-ins were asked to stop by, and how many were; 0 before.
    std::atomic<int64_t> stoppedBy{0};
    std::atomic<int> notified{0};
    /// The properties that "reader a" was last created with, as "k=v " each; "" before that. Of a
    /// stream that is not in the default partition the name is "a@p,q", here and in all that goes
    /// by names. Any thread.
    std::string given(const std::string &end);
    /// Connections without discovery readers.
    std::set<std::string> silent;
    /// Handed out in place of a good record.
    std::function<QEL_FerrionAdapterPlugin *(QEL_FerrionAdapterPlugin *)> changeRecord;

    /// Whether the host does not start, or attaches no thread.
    bool cannotStart = false;
    bool rejectsThreads = false;

    /// Every call but read, write and return_loan, in order; complete once the relay has ended.
    std::vector<std::string> calls;
    /// How often there was such a call. Any thread.
    std::ptrdiff_t called(const std::string &call);
    /// Blocks the calling thread for ever.
    static void hang();

    bool start() override;
    bool attachThread() override;
    ferry::FailureDetails takeFailure(const std::string &adapter) override;
    void detachThread() override;
    void stop() override;

    // For the plug-in's functions.
    struct Discovery {
        std::deque<Announcement> announced;
        QEL_FerrionStreamReaderListener listener{};
    };
    /// By "connection in" or "connection out".
    std::map<std::string, Discovery> discoveries;
    std::mutex discoveryMutex;
    void remember(const std::string &end, const QEL_FerrionProperties &properties);
    void enter(const std::string &call, QEL_FerrionEnvironment *environment, bool remember = true);

private:
    std::atomic<int> attached_{0};
    std::mutex callsMutex_;
    std::map<std::string, std::string> given_;
};

/// What the shared library's entry point does; the library finds it in the test's executable.
[[gnu::visibility("default")]] QEL_FerrionAdapterPlugin *
createAdapter(const QEL_FerrionProperties *properties, QEL_FerrionEnvironment *environment);

/// The library's other function. Runs the hook "stop_by" on the thread that notifies.
[[gnu::visibility("default")]] void stopBy(QEL_FerrionAdapterPlugin *plugin, int64_t deadline);
/// The same for its function that gives the properties of streams.
[[gnu::visibility("default")]] const QEL_FerrionProperties *
streamProperties(QEL_FerrionStreamReader *reader, const QEL_FerrionStreamInfo *lent);

} // namespace scripted

#endif
