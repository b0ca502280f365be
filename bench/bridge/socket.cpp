#include "socket.h"

#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {
namespace {

constexpr size_t room = size_t{1} << 22;

} // namespace

Socket::Socket(const Payload &payload, int32_t batch)
    : path_("/tmp/bench_bridge." + std::to_string(getpid())), in_(room), received_(payload, batch)
{
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    unlink(path_.c_str());
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener, 1) != 0) {
        fail("no socket at " + path_);
    }
    std::vector<std::string> words = vmOptions({});
    words.insert(words.begin(), "java");
    for (const std::string &word :
         {std::string("com.qel.ferrion.bench.bridge.SocketEnd"), path_, Payload::idl(),
          payload.typeName, std::to_string(batch), payload.content()}) {
        words.push_back(word);
    }
    std::vector<char *> arguments;
    for (std::string &word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    child_ = fork();
    if (child_ == 0) {
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    socket_ = accept(listener, nullptr, nullptr);
    close(listener);
    if (socket_ < 0) {
        fail("the second process does not come");
    }
}

Socket::~Socket()
{
    close(socket_);
    waitpid(child_, nullptr, 0);
    unlink(path_.c_str());
}

int32_t Socket::readAndReturn(void **last)
{
    put("R", 1);
    send();
    const int32_t count = getInt();
    for (int32_t i = 0; i < count; ++i) {
        const auto size = static_cast<size_t>(getInt());
        received_.infos[static_cast<size_t>(i)]->valid_data = getInt();
        auto *sample = static_cast<DDS_DynamicData *>(received_.samples[static_cast<size_t>(i)]);
        uint8_t *place = DDS_DynamicData_loan_cdr(sample, size);
        std::memcpy(place, need(size), size);
        begin_ += size;
        *last = sample;
    }
    put("L", 1);
    send();
    return count;
}

int32_t Socket::write(const Batch &batch)
{
    put("W", 1);
    putInt(static_cast<int32_t>(batch.samples.size()));
    for (size_t i = 0; i < batch.samples.size(); ++i) {
        size_t size = 0;
        const uint8_t *bytes =
            DDS_DynamicData_get_cdr(static_cast<DDS_DynamicData *>(batch.samples[i]), &size);
        putInt(static_cast<int32_t>(size));
        putInt(batch.infos[i]->valid_data);
        put(bytes, size);
    }
    send();
    return getInt();
}

const uint8_t *Socket::need(size_t size)
{
    if (end_ - begin_ < size) {
        std::memmove(in_.data(), in_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        while (end_ < size) {
            const ssize_t got = recv(socket_, in_.data() + end_, in_.size() - end_, 0);
            if (got <= 0) {
                fail("the second process has gone");
            }
            end_ += static_cast<size_t>(got);
        }
    }
    return in_.data() + begin_;
}

void Socket::put(const void *bytes, size_t size)
{
    const auto *first = static_cast<const uint8_t *>(bytes);
    out_.insert(out_.end(), first, first + size);
}

void Socket::putInt(int32_t value)
{
    put(&value, sizeof value);
}

int32_t Socket::getInt()
{
    int32_t value = 0;
    std::memcpy(&value, need(sizeof value), sizeof value);
    begin_ += sizeof value;
    return value;
}

void Socket::send()
{
    for (size_t sent = 0; sent < out_.size();) {
        const ssize_t put = ::send(socket_, out_.data() + sent, out_.size() - sent, MSG_NOSIGNAL);
        if (put <= 0) {
            fail("the second process has gone");
        }
        sent += static_cast<size_t>(put);
    }
    out_.clear();
}

} // namespace bench
