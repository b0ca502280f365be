#include "host.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>

#include "qddsc/string.h"
#include "qddsc/type_code.h"

namespace bench {
namespace {

constexpr int readings = 12;

void must(DDS_ReturnCode_t result, const char *what)
{
    if (result != DDS_RETCODE_OK) {
        fail(what);
    }
}

void setText(DDS_DynamicData *sample, const std::string &path, const std::string &text)
{
    must(DDS_DynamicData_set_string(sample, path.c_str(), text.data(), text.size()), path.c_str());
}

/// A property list of pairs.
struct Properties : QEL_FerrionProperties {
    explicit Properties(std::vector<std::pair<std::string, std::string>> pairs)
        : QEL_FerrionProperties{}, texts(std::move(pairs))
    {
        for (auto &pair : texts) {
            list.push_back({pair.first.data(), pair.second.data()});
        }
        properties = list.data();
        count = static_cast<int32_t>(list.size());
    }
    std::vector<std::pair<std::string, std::string>> texts;
    std::vector<QEL_FerrionNameValue> list;
};

struct Strings : DDS_StringSeq {
    explicit Strings(const std::vector<std::string> &strings) : DDS_StringSeq{}
    {
        for (const std::string &string : strings) {
            DDS_StringSeq_append(this, string.c_str());
        }
    }
    ~Strings()
    {
        DDS_StringSeq_finalize(this);
    }
    Strings(const Strings &) = delete;
    Strings &operator=(const Strings &) = delete;
};

} // namespace

void fail(const std::string &what)
{
    fprintf(stderr, "benchmark: %s\n", what.c_str());
    // A VM may be running on other threads: nothing is taken down in order.
    _Exit(1);
}

void check(const QEL_FerrionEnvironment &environment, const char *operation)
{
    if (environment.errorFlag != 0) {
        fail(std::string(operation) + ": " + environment.message);
    }
}

double threadTime()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

Payload::Payload(const std::string &name)
{
    DDS_TypeLibrary *library = DDS_TypeLibrary_new();
    DDS_ErrorText error = {};
    if (DDS_TypeLibrary_add_idl_text(library, idl().c_str(), "bench", &error) == 0) {
        fail(error.text);
    }
    typeName = name == "nested" ? "Nested" : "P" + name;
    type = DDS_TypeLibrary_find(library, typeName.c_str());
    if (type == nullptr) {
        fail("no payload \"" + name + "\"");
    }
    DDS_TypeLibrary_delete(library);
    sample = DDS_DynamicData_new(type, nullptr);
    if (name == "nested") {
        setText(sample, "source", "station/north/7");
        setText(sample, "text", "all instruments nominal");
        must(DDS_DynamicData_set_length(sample, "readings", readings), "readings");
        for (int i = 0; i < readings; ++i) {
            const std::string at = "readings[" + std::to_string(i) + "].";
            setText(sample, at + "unit", "kPa");
            must(DDS_DynamicData_set_double(sample, (at + "value").c_str(), i), "value");
        }
    }
    DDS_DynamicData_get_cdr(sample, &size);
}

std::string Payload::idl()
{
    std::ifstream file(BENCH_IDL);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string Payload::content() const
{
    size_t length = 0;
    const uint8_t *bytes = DDS_DynamicData_get_cdr(sample, &length);
    std::string text;
    for (size_t i = 0; i < length; ++i) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02x", bytes[i]);
        text += digits;
    }
    return text;
}

Payload::~Payload()
{
    DDS_DynamicData_delete(sample);
}

std::vector<std::string> vmOptions(const std::vector<std::string> &more)
{
    // What varies from run to run by itself is fixed: collector, heap, and the VM's own threads.
    std::vector<std::string> options = {"-Xrs", "-XX:+UseSerialGC", "-XX:ActiveProcessorCount=2",
                                        "-Dqdds.library.path=" BENCH_LIBRARY_DIR,
                                        "-Djava.class.path=" BENCH_ADAPTER_JAR ":" BENCH_BINDING_JAR
                                        ":" BENCH_STUB_JAR};
    options.insert(options.end(), more.begin(), more.end());
    return options;
}

FERRYJNIGlobal *startVm(const std::vector<std::string> &options)
{
    const Strings optionList(vmOptions(options));
    const Strings noClassPath({});
    FERRYJNIGlobal *global =
        FERRYJNIGlobal_new(&noClassPath, &optionList, 0x1, FERRYJNI_DESTROY_IF_CREATED);
    if (global == nullptr) {
        fail("the VM did not start");
    }
    return global;
}

Vm::Vm(const std::vector<std::string> &options) : global(startVm(options)) {}

Vm::~Vm()
{
    FERRYJNIGlobal_destroy(global);
}

Host::Host(const Vm &vm, const Payload &payload)
{
    static char streamName[] = "stream";
    static char typeName[] = "type";
    streamInfo_.streamName = streamName;
    streamInfo_.typeName = typeName;
    streamInfo_.typeRepresentation = const_cast<DDS_TypeCode *>(payload.type);
    content_ = payload.content();
    environment.jniGlobal = vm.global;
    environment.className = "com/qel/ferrion/bench/bridge/StubAdapter";
    adapter_ = FERRYJNIAdapter_create(nullptr, &environment);
    check(environment, "create adapter");
    QEL_FerrionStreamReaderListener none = {};
    connection_ = operations().create_connection(adapter_, "", "", &none, &none, nullptr, nullptr,
                                                 nullptr, &environment);
    check(environment, "create connection");
    session_ = operations().create_session(connection_, nullptr, &environment);
    check(environment, "create session");
}

Host::~Host()
{
    operations().delete_session(connection_, session_, &environment);
    operations().delete_connection(adapter_, connection_, &environment);
    operations().delete_adapter(adapter_, &environment);
    check(environment, "delete");
}

FERRYJNIStreamReader *Host::makeReader(int32_t batch, bool fresh, int32_t room)
{
    const Properties properties(
        {{"batch", std::to_string(batch)},
         {"fresh", fresh ? "true" : "false"},
         {"content", content_},
         {FERRYJNI_PROPERTY_INITIAL_SAMPLES, std::to_string(room == 0 ? batch : room)}});
    const QEL_FerrionStreamReaderListener listener = {nullptr,
                                                      [](QEL_FerrionStreamReader *, void *) {}};
    QEL_FerrionStreamReader *reader = operations().create_stream_reader(
        connection_, session_, &streamInfo_, &properties, &listener, &environment);
    check(environment, "create reader");
    return static_cast<FERRYJNIStreamReader *>(reader);
}

FERRYJNIStreamWriter *Host::makeWriter(int32_t batch)
{
    const Properties properties({{FERRYJNI_PROPERTY_MAX_SAMPLES_PER_WRITE, std::to_string(batch)}});
    QEL_FerrionStreamWriter *writer = operations().create_stream_writer(
        connection_, session_, &streamInfo_, &properties, &environment);
    check(environment, "create writer");
    return static_cast<FERRYJNIStreamWriter *>(writer);
}

void Host::remove(FERRYJNIStreamReader *reader)
{
    operations().delete_stream_reader(connection_, reader, &environment);
    check(environment, "delete reader");
}

void Host::remove(FERRYJNIStreamWriter *writer)
{
    operations().delete_stream_writer(connection_, writer, &environment);
    check(environment, "delete writer");
}

int32_t Host::readAndReturn(FERRYJNIStreamReader *reader, void **last)
{
    void **samples = nullptr;
    DDS_SampleInfo **infos = nullptr;
    int32_t count = 0;
    operations().read(reader, &samples, &infos, &count, &environment);
    *last = count > 0 ? samples[count - 1] : nullptr;
    operations().return_loan(reader, samples, infos, count, &environment);
    return count;
}

Batch::Batch(const Payload &payload, int32_t count) : records_(static_cast<size_t>(count))
{
    for (int32_t i = 0; i < count; ++i) {
        DDS_DynamicData *sample = DDS_DynamicData_new(payload.type, nullptr);
        must(DDS_DynamicData_copy(sample, payload.sample), "copy");
        must(DDS_DynamicData_set_longlong(sample, "number", i), "number");
        samples.push_back(sample);
        DDS_SampleInfo &info = records_[static_cast<size_t>(i)];
        info.valid_data = 1;
        infos.push_back(&info);
    }
}

Batch::~Batch()
{
    for (void *sample : samples) {
        DDS_DynamicData_delete(static_cast<DDS_DynamicData *>(sample));
    }
}

} // namespace bench
