// An output that goes its own way: the buffer between the route that fills it and the route that
// moves on what is in it.
#ifndef FERRY_ENGINE_BUFFERED_OUTPUT_H
#define FERRY_ENGINE_BUFFERED_OUTPUT_H

#include <atomic>
#include <memory>

#include "config/configuration.h"
#include "engine/stored_stream.h"
#include "state/state_directory.h"

namespace ferry {

class BufferedOutput {
public:
    /// Both outlive it. Touches nothing before open(). `onRoom` is called on the second route's
    /// thread when there may be room again.
    BufferedOutput(const OutputBuffer &settings, StateDirectory &directory,
                   std::function<void()> onRoom);

    /// Control thread: has the file open, and does nothing if it is. What fails may be tried again,
    /// but for `rejected`.
    StateResult open();
    /// The same, but makes no file, and leaves one alone that a process has.
    StateResult probe();
    /// Control thread: whether the file will never be the right one.
    bool isRejected() const
    {
        return rejected_;
    }
    StoredStream &stream()
    {
        return *stream_;
    }
    /// Any thread. What was dropped is counted from this process's start on.
    BufferLevel level() const;
    /// Any thread: whether it is on the disk, and how many bytes it may hold.
    bool isStored() const
    {
        return settings_.settings.stored;
    }
    std::uint64_t maxBytes() const
    {
        return settings_.settings.maxBytes;
    }
    /// "the store of connection/stream", for messages.
    const std::string &label() const
    {
        return label_;
    }

private:
    const OutputBuffer &settings_;
    StateDirectory &directory_;
    const std::string label_;
    bool open_ = false;
    bool rejected_ = false;
    std::unique_ptr<SampleBuffer> buffer_;
    std::unique_ptr<StoredStream> stream_;
    std::atomic<std::uint64_t> droppedBefore_{0};
};

} // namespace ferry

#endif
