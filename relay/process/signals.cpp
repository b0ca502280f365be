#include "process/signals.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace ferry {
namespace {

bool isIgnored(int signal)
{
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t watchedSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGTERM, SIGQUIT, SIGXCPU, SIGPWR}) {
        sigaddset(&set, signal);
    }
    for (const int signal : {SIGINT, SIGHUP}) {
        if (!isIgnored(signal)) {
            sigaddset(&set, signal);
        }
    }
    return set;
}

} // namespace

void ignoreStraySignals()
{
    for (const int signal :
         {SIGPIPE, SIGXFSZ, SIGUSR1, SIGUSR2, SIGALRM, SIGVTALRM, SIGPROF, SIGIO, SIGSTKFLT}) {
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
            std::signal(signal, SIG_IGN);
        }
    }
    // A Java VM would take USR2 for itself, and abort when somebody else sends it.
    setenv("_JAVA_SR_SIGNUM", std::to_string(SIGRTMAX).c_str(), 0);
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
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
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
