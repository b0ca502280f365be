// A stream writer: samples of the host, written to one topic.
#ifndef FERRYADAPTER_DDS_STREAM_WRITER_H
#define FERRYADAPTER_DDS_STREAM_WRITER_H

#include <cstdint>
#include <string>
#include <vector>

#include "dds_objects.h"
#include "endpoint.h"
#include "notices.h"

namespace ferrydds {

class StreamWriter : public QEL_FerrionStreamWriter {
public:
    /// Joins the topic. Throws Failure.
    StreamWriter(Connection &connection, const Session &session,
                 const QEL_FerrionStreamInfo &stream, const QEL_FerrionProperties *properties);
    ~StreamWriter();
    StreamWriter(const StreamWriter &) = delete;
    StreamWriter &operator=(const StreamWriter &) = delete;

    /// Writes samples up to the first that cannot be written, and returns how many that were. A
    /// write to nobody counts, unless readers are waited for.
    std::int32_t write(void *const *samples, DDS_SampleInfo *const *infos, std::int32_t count,
                       QEL_FerrionEnvironment *environment);
    /// Throws Failure.
    void update(const QEL_FerrionProperties *properties);
    /// Waits for readers that have not acknowledged everything, as long as `linger` says. Reports
    /// what they may have missed, and what else has not been reported yet.
    void finish(QEL_FerrionEnvironment *environment);

private:
    /// What a host gives to one write.
    struct Slice {
        void *const *samples;
        DDS_SampleInfo *const *infos;
        std::int32_t count;
    };
    /// What became of it.
    struct Outcome {
        /// The first so many of the slice.
        std::int32_t written = 0;
        /// Of these, the ones written while there was no reader.
        std::int32_t unheard = 0;
        /// Readers were slow, or memory is short: the rest was not tried.
        bool gaveUp = false;
        /// There were fewer readers than wanted: the rest was not tried.
        bool cut = false;
        /// Why the next sample could not be written; "" if it was none's fault.
        std::string reason;
    };
    using Readers = std::vector<std::uint64_t>;

    Outcome writeAll(const Slice &slice);
    DDS_ReturnCode_t writeOne(const DDS_DynamicData *sample, const DDS_SampleInfo *info,
                              DDS_ErrorText &error);
    Outcome writeToReaders(const Slice &slice, QEL_FerrionEnvironment *environment);
    Readers awaitReaders();
    Readers readers() const;
    bool reached(const Readers &before, const Outcome &outcome,
                 QEL_FerrionEnvironment *environment);
    std::string mismatches() const;
    std::string until(Setting::Index setting) const;
    void reportUnheard(std::int32_t unheard, QEL_FerrionEnvironment *environment);

    const Participant participant_;
    Stop &stop_;
    Endpoint endpoint_;
    const bool timestamps_;
    /// Readers that every write is for.
    const std::uint32_t wanted_;
    /// Samples written since there was a reader, where the writer keeps none for later ones.
    std::uint64_t unheard_ = 0;
    Notices notices_;
    Solitude solitude_;
    Owned<DDS_DataWriter> writer_;
};

} // namespace ferrydds

#endif
