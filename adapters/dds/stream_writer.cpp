#include "stream_writer.h"

#include <cstdio>

namespace ferrydds {

StreamWriter::StreamWriter(Connection &connection, const Session &session,
                           const QEL_FerrionStreamInfo &stream,
                           const QEL_FerrionProperties *properties)
    : participant_(connection.participant()),
      endpoint_(onWriter, connection, session, stream, properties),
      keyed_(DDS_TypeCode_is_keyed(DDS_TypeCode_resolve(endpoint_.type())) != 0),
      timestamps_(endpoint_.settings.is(Setting::timestamps, "source"))
{
    const Strings partitions(endpoint_.partitions());
    const DDS_EndpointQos qos = endpoint_.qos(partitions);
    DDS_ErrorText error{};
    writer_.reset(DDS_DataWriter_new(participant_.get(), endpoint_.topic().c_str(),
                                     endpoint_.typeName(), endpoint_.type(), &qos, &error));
    if (writer_ == nullptr) {
        throw Failure(endpoint_.owner() + ": " + error.text);
    }
}

void StreamWriter::awaitReaders()
{
    const auto wanted =
        static_cast<std::uint32_t>(endpoint_.settings.number(Setting::waitForReaders));
    if (readersThere_ || wanted == 0) {
        return;
    }
    if (DDS_DataWriter_wait_for_readers(
            writer_.get(), wanted, endpoint_.settings.nanoseconds(Setting::waitTimeout)) == 0) {
        throw Failure(endpoint_.owner() + ": after " +
                      endpoint_.settings.text(Setting::waitTimeout) + " there are " +
                      std::to_string(DDS_DataWriter_get_matched(writer_.get())) + " of " +
                      std::to_string(wanted) + " readers (wait_for_readers); nothing was written");
    }
    readersThere_ = true;
}

/// Readers come and go, and hosts that cannot be reached go too: what a volatile writer writes
/// meanwhile is lost, and nobody else could tell.
void StreamWriter::countUnheard(std::int32_t written)
{
    if (endpoint_.settings.is(Setting::durability, "transient_local")) {
        return;
    }
    if (DDS_DataWriter_get_matched(writer_.get()) > 0) {
        tellUnheard();
    } else if (written > 0) {
        if (unheard_ == 0) {
            warn("FerryAdapter_dds_write", endpoint_.owner() + ": there is no reader");
        }
        unheard_ += static_cast<std::uint64_t>(written);
    }
}

void StreamWriter::tellUnheard()
{
    if (unheard_ > 0) {
        warn("FerryAdapter_dds_write", endpoint_.owner() + ": " + std::to_string(unheard_) +
                                           " samples were written while there was no reader");
        unheard_ = 0;
    }
}

DDS_ReturnCode_t StreamWriter::writeOne(const DDS_DynamicData *sample, const DDS_SampleInfo *info,
                                        DDS_ErrorText &error)
{
    if (sample == nullptr) {
        std::snprintf(error.text, sizeof error.text, "there is no sample");
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (info == nullptr) {
        return DDS_DataWriter_write(writer_.get(), sample, nullptr, &error);
    }
    if (info->valid_data == 0 && !keyed_) {
        // The news that an instance has gone; without a key there are no instances to tell apart.
        return DDS_RETCODE_OK;
    }
    if (timestamps_) {
        return DDS_DataWriter_write(writer_.get(), sample, info, &error);
    }
    DDS_SampleInfo now = *info;
    now.source_timestamp = {-1, 0};
    return DDS_DataWriter_write(writer_.get(), sample, &now, &error);
}

std::int32_t StreamWriter::write(void *const *samples, DDS_SampleInfo *const *infos,
                                 std::int32_t count, QEL_FerrionEnvironment *environment)
{
    awaitReaders();
    std::int32_t written = 0;
    std::int32_t bad = 0;
    std::string firstReason;
    DDS_ReturnCode_t result = DDS_RETCODE_OK;
    for (std::int32_t i = 0; i < count && result != DDS_RETCODE_OUT_OF_RESOURCES; ++i) {
        DDS_ErrorText error{};
        result = writeOne(static_cast<const DDS_DynamicData *>(samples[i]),
                          infos == nullptr ? nullptr : infos[i], error);
        if (result == DDS_RETCODE_OK) {
            ++written;
        } else if (bad++ == 0 || result == DDS_RETCODE_OUT_OF_RESOURCES) {
            firstReason = "sample " + std::to_string(i) + ": " + error.text;
        }
    }
    DDS_DataWriter_flush(writer_.get());
    anyWritten_ = anyWritten_ || written > 0;
    countUnheard(written);
    if (written < count) {
        report(environment, endpoint_.owner() + ": " + std::to_string(written) + " of " +
                                std::to_string(count) + " samples were written; " + firstReason);
    }
    notices_.report(endpoint_.owner(), writer_.get(), DDS_DataWriter_take_notice, environment);
    return written;
}

void StreamWriter::update(const QEL_FerrionProperties *properties)
{
    endpoint_.settings.update(properties);
}

void StreamWriter::finish(QEL_FerrionEnvironment *environment)
{
    tellUnheard();
    const std::int64_t linger = endpoint_.settings.nanoseconds(Setting::linger);
    if (anyWritten_ && DDS_DataWriter_wait_for_acknowledgments(writer_.get(), linger) == 0) {
        report(environment, endpoint_.owner() + ": not all of " +
                                std::to_string(DDS_DataWriter_get_matched(writer_.get())) +
                                " readers have acknowledged all samples after " +
                                endpoint_.settings.text(Setting::linger) +
                                " (linger); what they lack is lost");
    }
    notices_.hurry();
    notices_.report(endpoint_.owner(), writer_.get(), DDS_DataWriter_take_notice, environment);
}

} // namespace ferrydds
