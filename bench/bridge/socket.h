// What a user would write instead of the bridge: the same adapter in a second process, behind a
// Unix socket.
#ifndef BENCH_BRIDGE_SOCKET_H
#define BENCH_BRIDGE_SOCKET_H

#include <string>
#include <sys/types.h>
#include <vector>

#include "host.h"

namespace bench {

/// The host's end; makes the process and ends it.
class Socket {
public:
    Socket(const Payload &payload, int32_t batch);
    ~Socket();
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;

    /// Reads a batch into native samples and gives it back. Returns the number of samples; the last
    /// one through `last`.
    int32_t readAndReturn(void **last);
    /// Returns what the adapter says that it wrote.
    int32_t write(const Batch &batch);

private:
    const uint8_t *need(size_t size);
    void put(const void *bytes, size_t size);
    void putInt(int32_t value);
    int32_t getInt();
    void send();

    std::string path_;
    pid_t child_;
    int socket_;
    std::vector<uint8_t> out_;
    std::vector<uint8_t> in_;
    size_t begin_ = 0;
    size_t end_ = 0;
    Batch received_;
};

} // namespace bench

#endif
