// A stream reader: samples of one topic, lent to the host.
#ifndef FERRYADAPTER_DDS_STREAM_READER_H
#define FERRYADAPTER_DDS_STREAM_READER_H

#include <vector>

#include "dds_objects.h"
#include "endpoint.h"
#include "notices.h"
#include "reader.h"

namespace ferrydds {

class StreamReader final : public Reader {
public:
    /// Joins the topic. The listener (may be null) can be called before the constructor has
    /// returned, with the object's address; then nothing of the object is touched. Throws Failure.
    StreamReader(Connection &connection, const Session &session,
                 const QEL_FerrionStreamInfo &stream, const QEL_FerrionProperties *properties,
                 const QEL_FerrionStreamReaderListener *listener);
    ~StreamReader() override;

    Loan read(QEL_FerrionEnvironment *environment) override;
    void returnLoan() override;
    void update(const QEL_FerrionProperties *properties) override;
    /// Reports what went wrong and has not been reported yet.
    void reportLast(QEL_FerrionEnvironment *environment);

private:
    static void onData(void *self);
    std::int32_t take(std::int32_t limit, std::int64_t bytes, QEL_FerrionEnvironment *environment);
    void grow(std::int32_t limit);
    void renew();

    const Participant participant_;
    Endpoint endpoint_;
    const QEL_FerrionStreamReaderListener listener_;
    Notices notices_;
    Solitude solitude_;
    /// Samples of the present loan.
    std::int32_t lent_ = 0;

    /// Owned; as long as each other, and used again by every read.
    std::vector<DDS_DynamicData *> samples_;
    std::vector<DDS_SampleInfo *> infos_;
    /// `samples_` again, as the host wants them.
    std::vector<void *> lentSamples_;
    /// The most bytes that each of `samples_` has held, and their sum.
    std::vector<std::size_t> largest_;
    std::size_t kept_ = 0;

    /// Last: its thread calls into this object until it has gone.
    Owned<DDS_DataReader> reader_;
};

} // namespace ferrydds

#endif
