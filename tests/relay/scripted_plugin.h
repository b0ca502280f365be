// A native plug-in that does what a test tells it, and remembers what the relay did to it. It
// checks by itself what holds for every call: a clean environment, and loans that are returned.
#ifndef TESTS_RELAY_SCRIPTED_PLUGIN_H
#define TESTS_RELAY_SCRIPTED_PLUGIN_H

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/plugin.h"
#include "qddsc/sample_info.h"

namespace scripted {

/// What one read gives: samples (a negative one is a null element) and an error text.
struct Read {
    std::vector<int> samples;
    std::string error;
};

struct Write {
    std::vector<int> samples;
    /// Each information's sequence number, which the reader set to the sample; -1 where it is
    /// missing.
    std::vector<int> infos;
    /// The array that the samples came in.
    const void *array = nullptr;
};

/// A stream by its name; reader and writer of it in one.
struct Stream {
    std::deque<Read> reads;
    /// Makes up reads when there are none in the queue; runs on the session's thread.
    std::function<Read()> source;
    std::vector<Write> writes;
    /// What a write returns, and its error text; takes all when not set.
    std::function<int(const Write &, std::string &error)> onWrite;
    QEL_FerrionStreamReaderListener listener{};
    int readCalls = 0;
};

/// The host that hands the plug-in out, and the script of all of them. Adapters are told apart by
/// name.
class Script : public ferry::PluginHost {
public:
    Script();
    ~Script() override;

    Stream &stream(const std::string &name);
    /// Puts reads into a stream's queue and signals, from the calling thread.
    void push(const std::string &name, const Read &read);
    /// "create_reader a" -> text of the error that the call reports beside its result.
    std::map<std::string, std::string> errors;
    /// Run at the start of a call, by the same name.
    std::map<std::string, std::function<void()>> hooks;
    /// Signals from within create_stream_reader.
    bool signalDuringCreate = false;
    /// Streams that the discovery readers announce.
    std::vector<QEL_FerrionStreamInfo> announced;
    /// Handed out in place of a good record.
    std::function<QEL_FerrionAdapterPlugin *(QEL_FerrionAdapterPlugin *)> changeRecord;

    /// Every call but read, write and return_loan, in order.
    std::vector<std::string> calls() const;
    /// Rules of the interface that the relay broke.
    std::vector<std::string> violations() const;
    /// Blocks the calling thread for ever.
    static void hang();

    bool start() override;
    QEL_FerrionAdapterPlugin *open(const ferry::AdapterSettings &settings,
                                   const QEL_FerrionProperties *properties,
                                   ferry::CallEnvironment &environment) override;
    bool attachThread() override;
    void detachThread() override;
    void stop() override;

    // For the plug-in's functions.
    bool enter(const std::string &call, QEL_FerrionEnvironment *environment, bool remember = true);
    void violation(const std::string &text);

    mutable std::mutex mutex;
    std::condition_variable changed;

private:
    std::map<std::string, Stream> streams_;
    std::vector<std::string> calls_;
    std::vector<std::string> violations_;
    std::atomic<int> attached_{0};
};

} // namespace scripted

#endif
