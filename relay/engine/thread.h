// A thread with a stack of known size: Java runs on it, and the default may be anything.
#ifndef FERRY_ENGINE_THREAD_H
#define FERRY_ENGINE_THREAD_H

#include <functional>
#include <pthread.h>
#include <string>

namespace ferry {

class Thread {
public:
    Thread() = default;
    /// A thread that still runs must have been joined or forgotten.
    ~Thread() = default;
    Thread(const Thread &) = delete;
    Thread &operator=(const Thread &) = delete;

    /// Starts `body`; false if the system rejects it. `name` is what the system's tools show.
    bool start(const std::string &name, std::function<void()> body);
    void join();
    /// Leaves the thread to itself; it must not touch this object any more.
    void forget();
    bool joinable() const
    {
        return joinable_;
    }

private:
    static void *run(void *self);

    pthread_t handle_{};
    bool joinable_ = false;
    std::function<void()> body_;
};

} // namespace ferry

#endif
