// An output that goes its own way, as the two ends of a plug-in: a writer that puts samples into a
// buffer (a store on the disk, or a queue in memory), and a reader that lends them again. So the
// way from the buffer to the real output is an ordinary route, with all that routes do.
//
//   StoredStream stream(buffer, type);              the buffer is open and outlives the stream
//   WriterEnd: stream.writer(), StoredStream::operations      the output of the first route
//   stream.start(listener);                         before its route reads; again for each new one
//   ReaderEnd: stream.reader(), StoredStream::operations      the input of the second route
//   stream.stop();                                  in place of deleting the reader: no signal
//   comes
//                                                   any more, and a loan that is out is lent again
//
// `operations` has read, return_loan and write, and no others. write takes all samples or none. It
// fails while the buffer is full, or its disk; try it again. When there may be room again after
// that, `onRoom` is called, on the reader's thread. A loan that comes back is the acknowledgement
// that the output has it. read lends as many samples as one write of the output may have, as the
// buffer's settings say, so that a crash doubles no more than one write.
//
// Writer and reader have a thread each. `level` of the buffer tells what is in it.
#ifndef FERRY_ENGINE_STORED_STREAM_H
#define FERRY_ENGINE_STORED_STREAM_H

#include <atomic>
#include <functional>
#include <mutex>
#include <vector>

#include "ferryjni/plugin.h"
#include "qddsc/dynamic_data.h"
#include "state/sample_buffer.h"

namespace ferry {

class StoredStream {
public:
    static const QEL_FerrionAdapterOperations operations;

    /// Both outlive the stream. `onRoom` may be empty; it must not call back.
    StoredStream(SampleBuffer &buffer, const DDS_TypeCode *type, std::function<void()> onRoom = {});
    ~StoredStream();
    StoredStream(const StoredStream &) = delete;
    StoredStream &operator=(const StoredStream &) = delete;

    QEL_FerrionStreamWriter *writer()
    {
        return &writer_;
    }
    QEL_FerrionStreamReader *reader()
    {
        return &reader_;
    }
    /// Before the first write: whether the samples' numbers tell those that come again.
    void setNumbered(bool numbered)
    {
        numbered_ = numbered;
    }
    /// The listener is signalled at once if samples are waiting. Any thread, while no route reads.
    void start(const QEL_FerrionStreamReaderListener &listener);
    /// Any thread, while no route reads.
    void stop();

private:
    struct Writer : QEL_FerrionStreamWriter {
        StoredStream *stream = nullptr;
    };
    struct Reader : QEL_FerrionStreamReader {
        StoredStream *stream = nullptr;
    };
    static std::int32_t write(QEL_FerrionStreamWriter *writer, void *const *samples,
                              DDS_SampleInfo *const *infos, std::int32_t count,
                              QEL_FerrionEnvironment *environment);
    static void read(QEL_FerrionStreamReader *reader, void ***samples, DDS_SampleInfo ***infos,
                     std::int32_t *count, QEL_FerrionEnvironment *environment);
    static void returnLoan(QEL_FerrionStreamReader *reader, void **samples, DDS_SampleInfo **infos,
                           std::int32_t count, QEL_FerrionEnvironment *environment);

    static QEL_FerrionAdapterOperations table();
    bool lend();
    bool lendOne(std::int32_t index);
    void release();
    void signal();
    void lookForRoom();

    SampleBuffer &buffer_;
    const DDS_TypeCode *const type_;
    const std::function<void()> onRoom_;
    Writer writer_;
    Reader reader_;
    bool numbered_ = false;

    std::mutex listenerMutex_;
    QEL_FerrionStreamReaderListener listener_{};
    /// What the buffer held when the writer found no room; 0 since it may have some again.
    std::atomic<std::uint64_t> fullAt_{0};

    // The reader's thread.
    StoredSlice slice_;
    /// Samples of the type, used again for each loan; what the loan does not need is kept.
    std::vector<void *> samples_;
    std::vector<DDS_SampleInfo *> infos_;
};

} // namespace ferry

#endif
