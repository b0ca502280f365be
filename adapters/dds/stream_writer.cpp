#include "stream_writer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include <fmt/format.h>

namespace ferrydds {
namespace {

/// How often a slice is written again because readers left, until it is given up.
constexpr int mostRounds = 10;

/// What it means to be durable, where that is not what one would think.
void warnOfDepth(const Endpoint &endpoint)
{
    if (!endpoint.transientLocal() || !endpoint.settings.is(Setting::history, "keep_all")) {
        return;
    }
    if (endpoint.settings.is(Setting::durableDepth, "all")) {
        warn("FerryAdapter_dds_create",
             fmt::format("{}: durable_depth is all: every sample stays in memory until the writer "
                         "goes, for readers that come later",
                         endpoint.owner()));
    } else if (!endpoint.keyed() && !endpoint.settings.given(Setting::durableDepth)) {
        warn("FerryAdapter_dds_create",
             fmt::format("{}: its type has no key, so readers that come later get the last sample "
                         "only (durable_depth)",
                         endpoint.owner()));
    }
}

} // namespace

StreamWriter::StreamWriter(Connection &connection, const Session &session,
                           const QEL_FerrionStreamInfo &stream,
                           const QEL_FerrionProperties *properties)
    : participant_(connection.participant()), stop_(connection.stop()),
      endpoint_(FERRY_SETTING_OF_WRITER, connection, session, stream, properties),
      timestamps_(endpoint_.settings.is(Setting::timestamps, "source")),
      wanted_(static_cast<std::uint32_t>(endpoint_.settings.number(Setting::waitForReaders)))
{
    const Strings partitions(endpoint_.partitions());
    const DDS_EndpointQos qos = endpoint_.qos(partitions);
    DDS_ErrorText error{};
    writer_.reset(DDS_DataWriter_new(participant_.get(), endpoint_.topic().c_str(),
                                     endpoint_.typeName(), endpoint_.type(), &qos, &error));
    if (writer_ == nullptr) {
        throw Failure(fmt::format("{}: {}", endpoint_.owner(), error.text));
    }
    warnOfDepth(endpoint_);
    stop_.enlist(*writer_); // last: only what is whole is taken off the list again
}

StreamWriter::~StreamWriter()
{
    stop_.delist(*writer_);
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
    if (info->valid_data == 0 && !endpoint_.keyed()) {
        // The end of an instance; without a key there are no instances.
        return DDS_RETCODE_OK;
    }
    if (timestamps_) {
        return DDS_DataWriter_write(writer_.get(), sample, info, &error);
    }
    DDS_SampleInfo now = *info;
    now.source_timestamp = {-1, 0};
    return DDS_DataWriter_write(writer_.get(), sample, &now, &error);
}

/// Readers come and go, and hosts that cannot be reached go too: what a volatile writer writes
/// meanwhile is lost, and nobody else could report it.
StreamWriter::Outcome StreamWriter::writeAll(const Slice &slice)
{
    const bool keepsNone = !endpoint_.transientLocal();
    Outcome outcome;
    for (std::int32_t i = 0; i < slice.count && outcome.reason.empty(); ++i) {
        const std::uint32_t there = DDS_DataWriter_get_matched(writer_.get());
        outcome.cut = there < wanted_;
        if (outcome.cut) {
            break;
        }
        DDS_ErrorText error{};
        const DDS_ReturnCode_t result =
            writeOne(static_cast<const DDS_DynamicData *>(slice.samples[i]),
                     slice.infos == nullptr ? nullptr : slice.infos[i], error);
        if (result == DDS_RETCODE_OK) {
            ++outcome.written;
            outcome.unheard += there == 0 && keepsNone ? 1 : 0;
        } else {
            outcome.gaveUp = result == DDS_RETCODE_OUT_OF_RESOURCES;
            outcome.reason = fmt::format("sample {}: {}", i, error.text);
        }
    }
    DDS_DataWriter_flush(writer_.get());
    return outcome;
}

/// What ended a wait for so long as a setting says.
std::string StreamWriter::until(Setting::Index setting) const
{
    return stop_.begun() ? "the host's stop" : endpoint_.settings.text(setting);
}

std::string StreamWriter::mismatches() const
{
    DDS_ErrorText text{};
    return DDS_DataWriter_get_mismatches(writer_.get(), &text) > 0 ? fmt::format("; {}", text.text)
                                                                   : "";
}

/// The readers that are there, as many as wanted or more. Those that do not match are logged while
/// it waits. Throws Failure when they do not come.
StreamWriter::Readers StreamWriter::awaitReaders()
{
    using Clock = std::chrono::steady_clock;
    // The engine reports that a reader has gone some moments later than it lets go of it.
    constexpr std::chrono::milliseconds moment{5};
    constexpr std::chrono::nanoseconds glance = std::chrono::milliseconds(500);
    const std::chrono::nanoseconds patience(endpoint_.settings.number(Setting::waitTimeout));
    const auto end = Clock::now() + patience;
    for (auto rest = patience; rest >= rest.zero(); rest = end - Clock::now()) {
        const auto begin = Clock::now();
        const auto slice = std::min(rest, glance);
        if (DDS_DataWriter_wait_for_readers(writer_.get(), wanted_, slice.count()) == 0) {
            solitude_.look(endpoint_.owner(), writer_.get(), 0, DDS_DataWriter_get_mismatches);
            if (Clock::now() - begin < slice - moment) {
                break; // the host's stop has come to its end
            }
            continue;
        }
        Readers there = readers();
        if (there.size() >= wanted_) {
            return there;
        }
        std::this_thread::sleep_for(moment);
    }
    throw Failure(fmt::format(
        "{}: after {} there are {} of {} readers (wait_for_readers){}; nothing was written",
        endpoint_.owner(), until(Setting::waitTimeout), DDS_DataWriter_get_matched(writer_.get()),
        wanted_, mismatches()));
}

StreamWriter::Readers StreamWriter::readers() const
{
    Readers all(16);
    for (;;) {
        const std::uint32_t count = DDS_DataWriter_get_readers(
            writer_.get(), all.data(), static_cast<std::uint32_t>(all.size()));
        const bool complete = count <= all.size();
        all.resize(count);
        if (complete) {
            return all;
        }
    }
}

/// Whether as many readers as wanted were there from before the slice until all of it was
/// acknowledged. Of a reader that left nobody knows what it had got.
bool StreamWriter::reached(const Readers &before, const Outcome &outcome,
                           QEL_FerrionEnvironment *environment)
{
    const std::int64_t patience = endpoint_.settings.number(Setting::writeTimeout);
    const bool waits = endpoint_.reliable() && patience > 0 && !outcome.gaveUp;
    const bool all =
        !waits || DDS_DataWriter_wait_for_acknowledgments(writer_.get(), patience) != 0;
    const Readers now = readers();
    const auto stayed = std::count_if(before.begin(), before.end(), [&](std::uint64_t reader) {
        return std::find(now.begin(), now.end(), reader) != now.end();
    });
    if (outcome.cut || static_cast<std::uint64_t>(stayed) < wanted_) {
        return false;
    }
    if (!all) {
        report(environment,
               fmt::format("{}: {} samples that were written are not acknowledged after {} "
                           "(write_timeout); they are still being sent",
                           endpoint_.owner(), DDS_DataWriter_get_unacknowledged(writer_.get()),
                           endpoint_.settings.text(Setting::writeTimeout)));
    }
    return true;
}

/// Writes a slice until it has readers, all of it each time: those that stayed get it twice.
StreamWriter::Outcome StreamWriter::writeToReaders(const Slice &slice,
                                                   QEL_FerrionEnvironment *environment)
{
    for (int round = 0; round < mostRounds; ++round) {
        const Readers before = awaitReaders();
        Outcome outcome = writeAll(slice);
        if (reached(before, outcome, environment)) {
            return outcome;
        }
        warn("FerryAdapter_dds_write",
             fmt::format("{}: a reader left during a write of {} samples; they are written again",
                         endpoint_.owner(), slice.count));
    }
    throw Failure(fmt::format("{}: readers come and go; none stayed for a write of {} samples",
                              endpoint_.owner(), slice.count));
}

/// Reports samples that were written to nobody, as an error: they count as written, since nobody
/// is waited for, and nobody has got them.
void StreamWriter::reportUnheard(std::int32_t unheard, QEL_FerrionEnvironment *environment)
{
    if (unheard > 0 && unheard_ == 0) {
        report(environment,
               fmt::format("{}: there is no reader{}", endpoint_.owner(), mismatches()));
    }
    unheard_ += static_cast<std::uint64_t>(unheard);
    if (unheard == 0 && unheard_ > 0) {
        report(environment, fmt::format("{}: {} samples were written while there was no reader",
                                        endpoint_.owner(), unheard_));
        unheard_ = 0;
    }
}

std::int32_t StreamWriter::write(void *const *samples, DDS_SampleInfo *const *infos,
                                 std::int32_t count, QEL_FerrionEnvironment *environment)
{
    const Slice slice{samples, infos, count};
    const Outcome outcome = wanted_ == 0 ? writeAll(slice) : writeToReaders(slice, environment);
    if (!outcome.reason.empty()) {
        report(environment, fmt::format("{}: {} of {} samples were written; {}", endpoint_.owner(),
                                        outcome.written, count, outcome.reason));
    }
    reportUnheard(outcome.unheard, environment);
    solitude_.look(endpoint_.owner(), writer_.get(), DDS_DataWriter_get_matched(writer_.get()),
                   DDS_DataWriter_get_mismatches);
    notices_.report(endpoint_.owner(), writer_.get(), DDS_DataWriter_take_notice, environment);
    return outcome.written;
}

void StreamWriter::update(const QEL_FerrionProperties *properties)
{
    endpoint_.settings.update(properties);
}

void StreamWriter::finish(QEL_FerrionEnvironment *environment)
{
    reportUnheard(0, environment);
    const std::int64_t linger = endpoint_.settings.number(Setting::linger);
    if (DDS_DataWriter_wait_for_acknowledgments(writer_.get(), linger) == 0) {
        report(environment,
               fmt::format("{}: {} samples are not acknowledged by all of {} readers after "
                           "{} (linger); what they lack is lost",
                           endpoint_.owner(), DDS_DataWriter_get_unacknowledged(writer_.get()),
                           DDS_DataWriter_get_matched(writer_.get()), until(Setting::linger)));
    }
    notices_.hurry();
    notices_.report(endpoint_.owner(), writer_.get(), DDS_DataWriter_take_notice, environment);
}

} // namespace ferrydds
