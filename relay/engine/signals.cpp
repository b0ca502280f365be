#include "engine/signals.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace ferry {
namespace {

sigset_t watchedSignals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGHUP);
    sigaddset(&set, SIGQUIT);
    return set;
}

} // namespace

void blockStopSignals()
{
    const sigset_t set = watchedSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

SignalWatcher::SignalWatcher(std::function<void()> stop, std::function<void()> dump,
                             std::chrono::milliseconds limit, int lateCode)
    : stop_(std::move(stop)), dump_(std::move(dump)), limit_(limit), lateCode_(lateCode)
{
}

SignalWatcher::~SignalWatcher()
{
    if (thread_.joinable()) {
        const std::uint64_t one = 1;
        if (write(end_, &one, sizeof one) == static_cast<ssize_t>(sizeof one)) {
            thread_.join();
        }
    }
    close(signals_);
    close(end_);
}

bool SignalWatcher::start()
{
    const sigset_t set = watchedSignals();
    signals_ = signalfd(-1, &set, SFD_CLOEXEC);
    end_ = eventfd(0, EFD_CLOEXEC);
    return signals_ >= 0 && end_ >= 0 && thread_.start("ferry:signals", [this] { run(); });
}

void SignalWatcher::run()
{
    std::chrono::steady_clock::time_point deadline;
    for (;;) {
        pollfd watched[] = {{end_, POLLIN, 0}, {signals_, POLLIN, 0}};
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        const int timeout =
            received() == 0 ? -1
                            : static_cast<int>(std::max(left.count(), decltype(left.count()){0}));
        const int ready = poll(watched, 2, timeout);
        if (ready == 0) {
            _exit(lateCode_);
        }
        if (watched[0].revents != 0) {
            return;
        }
        signalfd_siginfo info{};
        if (watched[1].revents == 0 ||
            read(signals_, &info, sizeof info) != static_cast<ssize_t>(sizeof info)) {
            continue;
        }
        if (info.ssi_signo == SIGQUIT) {
            dump_();
            continue;
        }
        if (received() != 0) {
            _exit(128 + static_cast<int>(info.ssi_signo));
        }
        deadline = std::chrono::steady_clock::now() + limit_;
        received_.store(static_cast<int>(info.ssi_signo));
        stop_();
    }
}

} // namespace ferry
