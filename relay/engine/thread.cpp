#include "engine/thread.h"

#include <cstddef>

namespace ferry {
namespace {

constexpr std::size_t stackSize = std::size_t{8} << 20;
/// What the kernel keeps of a thread's name.
constexpr std::size_t maxNameLength = 15;

} // namespace

bool Thread::start(const std::string &name, std::function<void()> body)
{
    body_ = std::move(body);
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return false;
    }
    pthread_attr_setstacksize(&attributes, stackSize);
    joinable_ = pthread_create(&handle_, &attributes, run, this) == 0;
    pthread_attr_destroy(&attributes);
    if (joinable_) {
        pthread_setname_np(handle_, name.substr(0, maxNameLength).c_str());
    }
    return joinable_;
}

void *Thread::run(void *self)
{
    static_cast<Thread *>(self)->body_();
    return nullptr;
}

void Thread::join()
{
    if (joinable_) {
        joinable_ = false;
        pthread_join(handle_, nullptr);
    }
}

void Thread::forget()
{
    if (joinable_) {
        joinable_ = false;
        pthread_detach(handle_);
    }
}

} // namespace ferry
