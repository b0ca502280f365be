// See resources.h.
#include "resources.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "qddscdr/error_text.h"

namespace qddsdomain {

namespace {

using qddscdr::setError;

/// With one interface and no multicast a domain keeps 5 descriptors, has 9 for moments, and starts
/// 6 threads. Multicast takes two sockets and a thread more, and each interface one or two sockets.
constexpr size_t descriptorsNeeded = 16;
constexpr size_t descriptorsPerInterface = 4;
constexpr size_t threadsNeeded = 10;

class Descriptors {
public:
    Descriptors() = default;
    Descriptors(const Descriptors &) = delete;
    Descriptors &operator=(const Descriptors &) = delete;
    ~Descriptors()
    {
        for (const int one : open) {
            (void)close(one);
        }
    }
    bool add()
    {
        const int one = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (one >= 0) {
            open.push_back(one);
        }
        return one >= 0;
    }
    size_t count() const
    {
        return open.size();
    }

private:
    std::vector<int> open;
};

/// Threads that are there together until it goes.
class Threads {
public:
    Threads() = default;
    Threads(const Threads &) = delete;
    Threads &operator=(const Threads &) = delete;
    ~Threads()
    {
        {
            const std::lock_guard<std::mutex> guard(mutex);
            ending = true;
            changed.notify_all();
        }
        for (std::thread &one : running) {
            one.join();
        }
    }
    void add()
    {
        running.emplace_back([this] {
            std::unique_lock<std::mutex> lock(mutex);
            changed.wait(lock, [this] { return ending; });
        });
    }
    size_t count() const
    {
        return running.size();
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    bool ending = false;
    std::vector<std::thread> running;
};

unsigned long long limitOf(__rlimit_resource_t resource)
{
    rlimit limit{};
    (void)getrlimit(resource, &limit);
    return limit.rlim_cur;
}

} // namespace

bool hasRoomForDomain(size_t interfaces, DDS_ErrorText *error)
{
    const size_t needed = descriptorsNeeded + descriptorsPerInterface * interfaces;
    Descriptors descriptors;
    while (descriptors.count() < needed) {
        if (!descriptors.add()) {
            setError(error,
                     "a domain takes %zu file descriptors, of which the process can open %zu more "
                     "(its limit is %llu, ulimit -n): %s",
                     needed, descriptors.count(), limitOf(RLIMIT_NOFILE),
                     std::system_category().message(errno).c_str());
            return false;
        }
    }
    Threads threads;
    while (threads.count() < threadsNeeded) {
        try {
            threads.add();
        } catch (const std::system_error &problem) {
            setError(error,
                     "a domain takes %zu threads, of which the process can start %zu more (the "
                     "user's limit is %llu, ulimit -u): %s",
                     threadsNeeded, threads.count(), limitOf(RLIMIT_NPROC),
                     problem.code().message().c_str());
            return false;
        }
    }
    return true;
}

} // namespace qddsdomain
