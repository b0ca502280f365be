// The platform's own ends, without relay and Java: the same roles as the engine's, through
// libqddsdomain, so that what the relay adds can be separated from what the platform costs.
#include "qddsc/dynamic_data.h"
#include "qddsc/sample_info.h"
#include "qddsc/type_code.h"
#include "qddsdomain/participant.h"
#include "qddsdomain/reader.h"
#include "qddsdomain/writer.h"

#include <condition_variable>
#include <memory>
#include <mutex>

#include "measure.h"

namespace {

using bench::Options;

template<auto function> struct Call {
    template<typename T> void operator()(T *object) const
    {
        function(object);
    }
};
template<typename T, auto function> using Owned = std::unique_ptr<T, Call<function>>;
using Participant = Owned<DDS_DomainParticipant, DDS_DomainParticipant_delete>;
using Reader = Owned<DDS_DataReader, DDS_DataReader_delete>;
using Writer = Owned<DDS_DataWriter, DDS_DataWriter_delete>;
using Sample = Owned<DDS_DynamicData, DDS_DynamicData_delete>;

[[noreturn]] void fail(const char *what, const DDS_ErrorText &error)
{
    std::fprintf(stderr, "%s: %s\n", what, error.text);
    std::exit(1);
}

using Types = Owned<DDS_TypeLibrary, DDS_TypeLibrary_delete>;

Types readTypes(const char *idl)
{
    DDS_ErrorText error{};
    Types library(DDS_TypeLibrary_new());
    if (DDS_TypeLibrary_add_idl_file(library.get(), idl, &error) == 0) {
        fail("type", error);
    }
    return library;
}

const DDS_TypeCode *findType(const char *idl, const Options &options)
{
    const Types library = readTypes(idl);
    const std::string name = !options.type.empty() ? options.type
                             : options.size == 64  ? "Small"
                                                   : "Large";
    return DDS_TypeLibrary_find(library.get(), ("bench::" + name).c_str());
}

void setKey(DDS_DynamicData *sample, const Options &options, std::int64_t index)
{
    if (options.instances == 0) {
        return;
    }
    const std::int64_t key = bench::keyOf(options, index);
    if (options.type == "Key4") {
        DDS_DynamicData_set_long(sample, "key", static_cast<std::int32_t>(key));
    } else if (options.type == "Text") {
        const std::string text = "station-" + std::to_string(key);
        DDS_DynamicData_set_string(sample, "key", text.data(), text.size());
    } else {
        DDS_DynamicData_set_longlong(sample, options.type == "Composite" ? "place.key" : "key",
                                     key);
    }
}

Participant join(const Options &options, bool isPublisher)
{
    DDS_ErrorText error{};
    DDS_ParticipantSettings settings{};
    settings.domainId = static_cast<std::int32_t>(options.domain);
    settings.multicast = 2;
    const std::string peer = "127.0.0.1:" + std::to_string(options.port);
    if (options.port != 0) {
        settings.transport = 1;
        settings.port = isPublisher ? 0 : options.port;
        settings.peers = isPublisher ? peer.c_str() : nullptr;
    }
    const auto file = [&](const char *name) { return options.keys + "/" + name; };
    const std::string files[] = {file("ca.pem"), file("bench.pem"), file("bench.key"),
                                 file("governance.p7s"), file("bench.permissions.p7s")};
    const DDS_SecuritySettings security{files[0].c_str(), files[1].c_str(), files[2].c_str(),
                                        nullptr,          files[3].c_str(), files[0].c_str(),
                                        files[4].c_str()};
    settings.security = options.keys.empty() ? nullptr : &security;
    Participant participant(DDS_DomainParticipant_new(&settings, &error));
    if (participant == nullptr) {
        fail("participant", error);
    }
    return participant;
}

DDS_EndpointQos endpointQos()
{
    DDS_EndpointQos qos{};
    qos.reliable = 1;
    qos.maxSamples = bench::readerRoom;
    qos.writeTimeout = 15'000'000'000;
    return qos;
}

/// Set by the reader's callback, waited for by the thread that takes.
struct Signal {
    static void raise(void *argument)
    {
        auto &self = *static_cast<Signal *>(argument);
        const std::lock_guard<std::mutex> lock(self.mutex);
        self.raised = true;
        self.condition.notify_one();
    }

    bool wait()
    {
        std::unique_lock<std::mutex> lock(mutex);
        const bool there = condition.wait_for(lock, std::chrono::nanoseconds(bench::silence),
                                              [this] { return raised; });
        raised = false;
        return there;
    }

    std::mutex mutex;
    std::condition_variable condition;
    bool raised = false;
};

int publish(const Options &options, const DDS_TypeCode *type)
{
    DDS_ErrorText error{};
    const Participant participant = join(options, true);
    const DDS_EndpointQos qos = endpointQos();
    const Writer writer(
        DDS_DataWriter_new(participant.get(), "bench", nullptr, type, &qos, &error));
    if (writer == nullptr ||
        DDS_DataWriter_wait_for_readers(writer.get(), 1, 60'000'000'000) == 0) {
        fail("writer", error);
    }
    bench::announceAndWait();
    const std::int64_t begin = bench::now();
    const Sample sample(DDS_DynamicData_new(type, nullptr));
    for (std::int64_t i = 0; i < options.count; i++) {
        if (options.rate > 0) {
            bench::pace(options, begin, i);
        }
        setKey(sample.get(), options, i);
        DDS_DynamicData_set_longlong(sample.get(), "number", i);
        DDS_DynamicData_set_longlong(sample.get(), "sent", bench::now());
        if (DDS_DataWriter_write(writer.get(), sample.get(), nullptr, &error) != DDS_RETCODE_OK) {
            fail("write", error);
        }
        if (options.rate > 0 || (i + 1) % bench::batchSize == 0) {
            DDS_DataWriter_flush(writer.get());
        }
    }
    DDS_DataWriter_flush(writer.get());
    const bool all = DDS_DataWriter_wait_for_acknowledgments(writer.get(), 60'000'000'000) == 1;
    bench::reportMemory();
    return all ? 0 : 1;
}

int subscribe(const Options &options, const DDS_TypeCode *type)
{
    DDS_ErrorText error{};
    const Participant participant = join(options, false);
    const DDS_EndpointQos qos = endpointQos();
    Signal signal;
    const Reader reader(DDS_DataReader_new(participant.get(), "bench", nullptr, type, &qos,
                                           Signal::raise, &signal, &error));
    if (reader == nullptr) {
        fail("reader", error);
    }
    std::vector<Sample> owned;
    std::vector<DDS_DynamicData *> samples;
    std::vector<DDS_SampleInfo> infos(bench::batchSize);
    std::vector<DDS_SampleInfo *> places;
    for (auto &info : infos) {
        owned.emplace_back(DDS_DynamicData_new(type, nullptr));
        samples.push_back(owned.back().get());
        places.push_back(&info);
    }
    DDS_ReaderStatistics statistics{};
    do {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        DDS_DataReader_get_statistics(reader.get(), &statistics);
    } while (statistics.matched == 0);
    std::puts("matched");
    std::fflush(stdout);

    bench::Arrivals arrivals(options);
    while (!arrivals.complete() && signal.wait()) {
        std::int32_t count = 0;
        while ((count = DDS_DataReader_take(reader.get(), samples.data(), places.data(),
                                            bench::batchSize, nullptr, &error)) > 0) {
            for (std::size_t i = 0; i < static_cast<std::size_t>(count); i++) {
                std::int64_t number = 0;
                std::int64_t sent = 0;
                if (infos[i].valid_data != 0) {
                    DDS_DynamicData_get_longlong(samples[i], "number", &number);
                    DDS_DynamicData_get_longlong(samples[i], "sent", &sent);
                    arrivals.add(number, sent);
                }
            }
        }
        if (count < 0) {
            fail("take", error);
        }
    }
    return arrivals.report() ? 0 : 1;
}

/// A writer for each of so many types, topic_0 and on, which writes nothing.
int announce(const Options &options, const char *idl)
{
    DDS_ErrorText error{};
    const Types library = readTypes(idl);
    const Participant participant = join(options, true);
    const DDS_EndpointQos qos = endpointQos();
    std::vector<Writer> writers;
    for (std::int64_t i = 0; i < options.count; i++) {
        const std::string name = "topic_" + std::to_string(i);
        const DDS_TypeCode *type =
            DDS_TypeLibrary_find(library.get(), ("mix::msg::" + name).c_str());
        writers.emplace_back(
            DDS_DataWriter_new(participant.get(), name.c_str(), nullptr, type, &qos, &error));
        if (writers.back() == nullptr) {
            fail("writer", error);
        }
    }
    bench::announceAndWait();
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app("The platform's ends of the domain benchmark");
    Options options;
    std::string idl;
    auto *publisher = bench::addOptions(app, options);
    const auto *topics = app.add_subcommand("topics")->fallthrough();
    app.add_option("--idl", idl)->required();
    CLI11_PARSE(app, argc, argv);
    if (topics->parsed()) {
        return announce(options, idl.c_str());
    }
    const DDS_TypeCode *type = findType(idl.c_str(), options);
    return publisher->parsed() ? publish(options, type) : subscribe(options, type);
}
