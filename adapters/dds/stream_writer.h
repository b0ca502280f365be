// A stream writer: samples of the host, written to one topic.
#ifndef FERRYADAPTER_DDS_STREAM_WRITER_H
#define FERRYADAPTER_DDS_STREAM_WRITER_H

#include "dds_objects.h"
#include "endpoint.h"
#include "notices.h"

namespace ferrydds {

class StreamWriter : public QEL_FerrionStreamWriter {
public:
    /// Joins the topic. Throws Failure.
    StreamWriter(Connection &connection, const Session &session,
                 const QEL_FerrionStreamInfo &stream, const QEL_FerrionProperties *properties);

    /// Writes what can be written and returns how much that was; the environment tells of the rest.
    std::int32_t write(void *const *samples, DDS_SampleInfo *const *infos, std::int32_t count,
                       QEL_FerrionEnvironment *environment);
    /// Throws Failure.
    void update(const QEL_FerrionProperties *properties);
    /// Waits for readers that have not acknowledged everything, as long as `linger` says; tells
    /// what they may have missed, and what else was not told yet.
    void finish(QEL_FerrionEnvironment *environment);

private:
    void awaitReaders();
    void countUnheard(std::int32_t written);
    void tellUnheard();
    DDS_ReturnCode_t writeOne(const DDS_DynamicData *sample, const DDS_SampleInfo *info,
                              DDS_ErrorText &error);

    const Participant participant_;
    Endpoint endpoint_;
    const bool keyed_;
    const bool timestamps_;
    /// Whether `wait_for_readers` has been met.
    bool readersThere_ = false;
    bool anyWritten_ = false;
    /// Samples written since there was a reader, where the writer keeps none for later ones.
    std::uint64_t unheard_ = 0;
    Notices notices_;
    Owned<DDS_DataWriter> writer_;
};

} // namespace ferrydds

#endif
