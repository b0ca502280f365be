#include "stream_reader.h"

#include <algorithm>

#include <fmt/format.h>

namespace ferrydds {
namespace {

/// Most streams have a sample now and then, and there may be hundreds of them.
constexpr std::int32_t firstPool = 1;

} // namespace

StreamReader::StreamReader(Connection &connection, const Session &session,
                           const QEL_FerrionStreamInfo &stream,
                           const QEL_FerrionProperties *properties,
                           const QEL_FerrionStreamReaderListener *listener)
    : participant_(connection.participant()),
      endpoint_(FERRY_SETTING_OF_READER, connection, session, stream, properties),
      listener_(listener == nullptr ? QEL_FerrionStreamReaderListener{} : *listener)
{
    const Strings partitions(endpoint_.partitions());
    const DDS_EndpointQos qos = endpoint_.qos(partitions);
    DDS_ErrorText error{};
    reader_.reset(DDS_DataReader_new(participant_.get(), endpoint_.topic().c_str(),
                                     endpoint_.typeName(), endpoint_.type(), &qos, onData, this,
                                     &error));
    if (reader_ == nullptr) {
        throw Failure(fmt::format("{}: {}", endpoint_.owner(), error.text));
    }
}

StreamReader::~StreamReader()
{
    reader_.reset();
    for (DDS_DynamicData *sample : samples_) {
        DDS_DynamicData_delete(sample);
    }
    for (const DDS_SampleInfo *info : infos_) {
        delete info;
    }
}

void StreamReader::onData(void *self)
{
    auto *reader = static_cast<StreamReader *>(self);
    if (reader->listener_.onDataAvailable != nullptr) {
        reader->listener_.onDataAvailable(reader, reader->listener_.listenerData);
    }
}

Loan StreamReader::read(QEL_FerrionEnvironment *environment)
{
    if (lent_ > 0) {
        throw Failure(fmt::format("{}: the last loan has not been returned", endpoint_.owner()));
    }
    const auto batch = static_cast<std::int32_t>(endpoint_.settings.number(Setting::batch));
    const std::int32_t count =
        take(batch, endpoint_.settings.number(Setting::batchBytes), environment);
    notices_.report(endpoint_.owner(), reader_.get(), DDS_DataReader_take_notice, environment);
    if (count == 0) {
        DDS_ReaderStatistics statistics{};
        DDS_DataReader_get_statistics(reader_.get(), &statistics);
        solitude_.look(endpoint_.owner(), reader_.get(), statistics.matched,
                       DDS_DataReader_get_mismatches);
        return {};
    }
    lent_ = count;
    return {lentSamples_.data(), infos_.data(), count};
}

/// Takes up to `limit` samples, and no further one once they have so many bytes; what came before a
/// failure counts.
std::int32_t StreamReader::take(std::int32_t limit, std::int64_t bytes,
                                QEL_FerrionEnvironment *environment)
{
    std::int32_t count = 0;
    while (count < limit && bytes > 0) {
        if (count == static_cast<std::int32_t>(samples_.size())) {
            try {
                grow(limit);
            } catch (const std::bad_alloc &) {
                report(environment, fmt::format("{}: memory is short", endpoint_.owner()));
                break;
            }
        }
        const std::int32_t wanted =
            std::min(limit, static_cast<std::int32_t>(samples_.size())) - count;
        DDS_ErrorText error{};
        const std::int32_t taken = DDS_DataReader_take(
            reader_.get(), samples_.data() + count, infos_.data() + count, wanted, &bytes, &error);
        if (taken < 0) {
            report(environment, fmt::format("{}: {}", endpoint_.owner(), error.text));
            break;
        }
        count += taken;
        if (taken < wanted) {
            break;
        }
    }
    return count;
}

/// Doubles the pools, up to `limit`. What was made before memory ran out stays in use.
void StreamReader::grow(std::int32_t limit)
{
    const auto size = static_cast<std::size_t>(
        std::min(limit, std::max(firstPool, 2 * static_cast<std::int32_t>(samples_.size()))));
    samples_.reserve(size);
    infos_.reserve(size);
    lentSamples_.reserve(size);
    largest_.reserve(size);
    while (samples_.size() < size) {
        auto info = std::make_unique<DDS_SampleInfo>();
        DDS_DynamicData *sample = DDS_DynamicData_new(endpoint_.type(), nullptr);
        if (sample == nullptr) {
            throw std::bad_alloc();
        }
        samples_.push_back(sample);
        infos_.push_back(info.release());
        lentSamples_.push_back(sample);
        largest_.push_back(0);
    }
}

void StreamReader::returnLoan()
{
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < static_cast<std::size_t>(lent_); ++i) {
        std::size_t length = 0;
        DDS_DynamicData_get_cdr(samples_[i], &length);
        bytes += length;
        kept_ += length - std::min(length, largest_[i]);
        largest_[i] = std::max(length, largest_[i]);
    }
    lent_ = 0;
    const auto batch = static_cast<std::size_t>(endpoint_.settings.number(Setting::batchBytes));
    if (kept_ > 2 * std::max(bytes, batch)) {
        renew();
    }
}

/// A sample keeps the memory of the largest one that it ever held: where sizes differ each would in
/// time hold as much as the largest. So the pool begins anew when it has outgrown what is needed.
void StreamReader::renew()
{
    for (std::size_t i = 0; i < samples_.size(); ++i) {
        DDS_DynamicData *fresh =
            largest_[i] > 0 ? DDS_DynamicData_new(endpoint_.type(), nullptr) : nullptr;
        if (fresh != nullptr) {
            DDS_DynamicData_delete(samples_[i]);
            samples_[i] = fresh;
            lentSamples_[i] = fresh;
            kept_ -= largest_[i];
            largest_[i] = 0;
        }
    }
}

void StreamReader::update(const QEL_FerrionProperties *properties)
{
    endpoint_.settings.update(properties);
}

void StreamReader::reportLast(QEL_FerrionEnvironment *environment)
{
    const std::uint64_t unread = DDS_DataReader_discard(reader_.get());
    if (unread > 0 && endpoint_.reliable()) {
        warn("FerryAdapter_dds_delete",
             fmt::format("{}: {} samples had arrived and were not read; they are lost",
                         endpoint_.owner(), unread));
    }
    notices_.hurry();
    notices_.report(endpoint_.owner(), reader_.get(), DDS_DataReader_take_notice, environment);
}

} // namespace ferrydds
