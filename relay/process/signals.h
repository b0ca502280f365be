// Turns stop signals into an orderly stop, from a thread of its own: neither a Java VM nor a
// blocked terminal stands in its way.
#ifndef FERRY_PROCESS_SIGNALS_H
#define FERRY_PROCESS_SIGNALS_H

#include <atomic>
#include <chrono>
#include <functional>

#include "engine/thread.h"

namespace ferry {

/// Ignores the signals that would end the process although nobody means that: USR1 and USR2, those
/// of timers and input (ALRM, VTALRM, PROF, IO, STKFLT), and those of a closed pipe and of a file
/// that is too large, which become errors of the write. One that has a handler keeps it. A Java VM
/// that is started afterwards uses another signal than USR2.
void ignoreStraySignals();

class SignalWatcher {
public:
    /// QUIT calls `dump`. INT, TERM, HUP, XCPU and PWR call `stop`, the first that comes; a second
    /// one ends the process with 128 + its number. When the process is still there `limit` after
    /// the first, it is ended with `lateCode`. INT and HUP are left alone if the process was
    /// started with them ignored, as by nohup.
    SignalWatcher(std::function<void()> stop, std::function<void()> dump,
                  std::chrono::milliseconds limit, int lateCode);
    ~SignalWatcher();
    SignalWatcher(const SignalWatcher &) = delete;
    SignalWatcher &operator=(const SignalWatcher &) = delete;

    /// Blocks these signals in the calling thread and in all that it will start, so it has to come
    /// before there are others. Until then they end the process as they end any. False when the
    /// system gives no thread or descriptor.
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
