// Turns stop signals into an orderly stop, from a thread of its own: neither a Java VM nor a
// blocked terminal stands in its way.
#ifndef FERRY_ENGINE_SIGNALS_H
#define FERRY_ENGINE_SIGNALS_H

#include <atomic>
#include <chrono>
#include <functional>

#include "engine/thread.h"

namespace ferry {

/// Blocks the stop signals (INT, TERM, HUP) and QUIT in the calling thread and in all that it will
/// start. To be called before there are other threads. A write to a closed pipe becomes an error
/// from here on.
void blockStopSignals();

class SignalWatcher {
public:
    /// QUIT calls `dump`. The first other signal calls `stop`; a second one ends the process with
    /// 128 + its number. When the process is still there `limit` after the first, it is ended with
    /// `lateCode`.
    SignalWatcher(std::function<void()> stop, std::function<void()> dump,
                  std::chrono::milliseconds limit, int lateCode);
    ~SignalWatcher();
    SignalWatcher(const SignalWatcher &) = delete;
    SignalWatcher &operator=(const SignalWatcher &) = delete;

    bool start();
    /// The first signal's number, 0 when there was none.
    int received() const
    {
        return received_.load();
    }

private:
    void run();

    const std::function<void()> stop_;
    const std::function<void()> dump_;
    const std::chrono::milliseconds limit_;
    const int lateCode_;
    std::atomic<int> received_{0};
    int signals_ = -1;
    int end_ = -1;
    Thread thread_;
};

} // namespace ferry

#endif
