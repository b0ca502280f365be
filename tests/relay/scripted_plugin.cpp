#include "scripted_plugin.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <unistd.h>
#include <utility>

#include "numbered.h"

namespace scripted {
namespace {

using numbered::fail;

/// The plug-in's functions have no other way to the test's script.
Script *g_script = nullptr;
/// Whether the host has attached this thread.
thread_local bool t_attached = false;
/// Of the last failed read.
thread_local ferry::FailureDetails t_details;

/// A handle of the plug-in interface: "connection" and "a", say.
template<class Handle> struct Named : Handle {
    std::string kind;
    std::string name;
};
struct Writer : Named<QEL_FerrionStreamWriter> {
    Stream *stream = nullptr;
};
using Sample = std::unique_ptr<DDS_DynamicData, decltype(&DDS_DynamicData_delete)>;
struct Reader : Named<QEL_FerrionStreamReader> {
    Stream *stream = nullptr;
    std::vector<Sample> pool;
    std::vector<void *> samples;
    std::vector<DDS_SampleInfo> infoValues;
    std::vector<DDS_SampleInfo *> infos;
    bool lent = false;
};
/// What a discovery reader lends, with all that the record refers to.
struct LentStream {
    explicit LentStream(Announcement toLend)
        : announced(std::move(toLend)), properties(announced.properties)
    {
        for (std::string &partition : announced.partitions) {
            partitions.push_back(partition.data());
        }
        info.disposed = announced.disposed ? 1 : 0;
        info.streamName = announced.stream.data();
        info.typeName = announced.typeName.empty() ? nullptr : announced.typeName.data();
        info.typeRepresentation = const_cast<DDS_TypeCode *>(announced.type);
        info.partition = {partitions.data(), static_cast<std::int32_t>(partitions.size()), 0};
    }
    Announcement announced;
    std::vector<char *> partitions;
    ferry::PropertyList properties;
    QEL_FerrionStreamInfo info = {};
};
/// Without a stream.
struct DiscoveryReader : Reader {
    std::deque<LentStream> lentStreams;
};
using Plugin = Named<QEL_FerrionAdapterPlugin>;
struct Connection : Named<QEL_FerrionConnection> {
    DiscoveryReader inputs;
    DiscoveryReader outputs;
};
using Session = Named<QEL_FerrionSession>;

template<class Object>
Object *create(const std::string &kind, const std::string &name,
               QEL_FerrionEnvironment *environment)
{
    auto *object = new Object();
    object->kind = kind;
    object->name = name;
    g_script->enter("create_" + kind + " " + name, environment);
    return object;
}

template<class Object, class Owner, class Handle>
void destroy(Owner *, Handle *handle, QEL_FerrionEnvironment *environment)
{
    auto *self = static_cast<Object *>(handle);
    g_script->enter("delete_" + self->kind + " " + self->name, environment);
    delete self;
}

std::int32_t deleteAdapter(QEL_FerrionAdapterPlugin *adapter, QEL_FerrionEnvironment *environment)
{
    destroy<Plugin>(adapter, adapter, environment);
    return 1;
}

QEL_FerrionConnection *createConnection(QEL_FerrionAdapterPlugin *, const char *first,
                                        const char *second,
                                        const QEL_FerrionStreamReaderListener *a,
                                        const QEL_FerrionStreamReaderListener *b, void *, void *,
                                        const QEL_FerrionProperties *properties,
                                        QEL_FerrionEnvironment *environment)
{
    if (second != nullptr || a == nullptr || b == nullptr || properties == nullptr) {
        ADD_FAILURE() << "create_connection with a second name, or lacking something";
    }
    auto *connection = create<Connection>("connection", first, environment);
    const std::lock_guard<std::mutex> lock(g_script->discoveryMutex);
    connection->outputs.name = connection->name + " out";
    connection->inputs.name = connection->name + " in";
    g_script->discoveries[connection->outputs.name].listener = *a;
    g_script->discoveries[connection->inputs.name].listener = *b;
    return connection;
}

QEL_FerrionSession *createSession(QEL_FerrionConnection *connection, const QEL_FerrionProperties *,
                                  QEL_FerrionEnvironment *environment)
{
    return create<Session>("session", static_cast<Connection *>(connection)->name, environment);
}

std::string nameOf(const QEL_FerrionStreamInfo &info)
{
    std::string name = info.streamName;
    for (std::int32_t i = 0; i < info.partition.length; ++i) {
        const std::string partition = info.partition.buffer[i];
        name += (i > 0 ? "," : partition.empty() ? "" : "@") + partition;
    }
    return name;
}

QEL_FerrionStreamReader *createReader(QEL_FerrionConnection *, QEL_FerrionSession *,
                                      const QEL_FerrionStreamInfo *info,
                                      const QEL_FerrionProperties *properties,
                                      const QEL_FerrionStreamReaderListener *listener,
                                      QEL_FerrionEnvironment *environment)
{
    const std::string name = nameOf(*info);
    g_script->remember("reader " + name, *properties);
    Stream &stream = g_script->streams[name];
    stream.listener = *listener;
    auto *reader = create<Reader>("reader", name, environment);
    reader->stream = &stream;
    return reader;
}

QEL_FerrionStreamWriter *createWriter(QEL_FerrionConnection *, QEL_FerrionSession *,
                                      const QEL_FerrionStreamInfo *info,
                                      const QEL_FerrionProperties *properties,
                                      QEL_FerrionEnvironment *environment)
{
    const std::string name = nameOf(*info);
    g_script->remember("writer " + name, *properties);
    auto *writer = create<Writer>("writer", name, environment);
    writer->stream = &g_script->streams[name];
    return writer;
}

/// Fills the reader's arrays; a sample's information carries its value as sequence number.
void lend(Reader &reader, const Read &read)
{
    reader.samples.clear();
    reader.infos.clear();
    reader.infoValues.assign(read.samples.size(), {});
    for (std::size_t i = 0; i < read.samples.size(); ++i) {
        const int value = read.samples[i];
        if (i == reader.pool.size()) {
            reader.pool.emplace_back(DDS_DynamicData_new(numbered::sampleType(), nullptr),
                                     DDS_DynamicData_delete);
        }
        DDS_DynamicData *const sample = reader.pool[i].get();
        const auto bytes = read.bytes.find(value);
        numbered::set(sample, value, bytes == read.bytes.end() ? 0 : bytes->second);
        reader.infoValues[i].publication_sequence_number.low = static_cast<std::uint32_t>(value);
        reader.infoValues[i].valid_data = read.ends.count(value) > 0 ? 0 : 1;
        reader.samples.push_back(value < 0 ? nullptr : sample);
        reader.infos.push_back(&reader.infoValues[i]);
    }
}

void lend(DiscoveryReader &reader)
{
    std::deque<Announcement> due;
    {
        const std::lock_guard<std::mutex> lock(g_script->discoveryMutex);
        due.swap(g_script->discoveries[reader.name].announced);
    }
    reader.samples.clear();
    for (const Announcement &announced : due) {
        reader.samples.push_back(&reader.lentStreams.emplace_back(announced).info);
    }
}

void read(QEL_FerrionStreamReader *reader, void ***samples, DDS_SampleInfo ***infos,
          std::int32_t *count, QEL_FerrionEnvironment *environment)
{
    auto *self = static_cast<Reader *>(reader);
    g_script->enter("read " + self->name, environment, false);
    if (self->lent) {
        ADD_FAILURE() << "read " << self->name << " while a loan is out";
    }
    self->lent = true;
    if (self->stream == nullptr) {
        lend(*static_cast<DiscoveryReader *>(self));
        *samples = self->samples.data();
        *count = static_cast<std::int32_t>(self->samples.size());
        return;
    }
    ++self->stream->readCalls;
    Read given;
    if (!self->stream->reads.empty()) {
        given = self->stream->reads.front();
        self->stream->reads.pop_front();
    } else if (self->stream->source) {
        given = self->stream->source();
    }
    fail(*environment, given.error);
    t_details = given.details;
    lend(*self, given);
    *samples = self->samples.empty() ? nullptr : self->samples.data();
    *infos = self->infos.empty() ? nullptr : self->infos.data();
    *count = given.count.value_or(static_cast<std::int32_t>(self->samples.size()));
}

void returnLoan(QEL_FerrionStreamReader *reader, void **samples, DDS_SampleInfo **,
                std::int32_t count, QEL_FerrionEnvironment *environment)
{
    auto *self = static_cast<Reader *>(reader);
    g_script->enter("return_loan " + self->name, environment, false);
    if (!self->lent || (count > 0 && samples != self->samples.data())) {
        ADD_FAILURE() << "return_loan " << self->name << " of something else";
    }
    self->lent = false;
    if (self->stream == nullptr) {
        static_cast<DiscoveryReader *>(self)->lentStreams.clear();
    }
}

std::vector<int> valuesOf(void *const *samples, DDS_SampleInfo *const *infos, std::int32_t count)
{
    std::vector<int> values;
    for (std::int32_t i = 0; i < count; ++i) {
        values.push_back(numbered::numberOf(samples[i]));
        // Below zero: a dead letter that is tried once more.
        EXPECT_TRUE(infos[i]->publication_sequence_number.high < 0 ||
                    infos[i]->publication_sequence_number.low ==
                        static_cast<std::uint32_t>(values.back()));
    }
    return values;
}

std::int32_t write(QEL_FerrionStreamWriter *writer, void *const *samples,
                   DDS_SampleInfo *const *infos, std::int32_t count,
                   QEL_FerrionEnvironment *environment)
{
    auto *self = static_cast<Writer *>(writer);
    g_script->enter("write " + self->name, environment, false);
    const std::vector<int> values = valuesOf(samples, infos, count);
    std::string error;
    const int result = self->stream->onWrite ? self->stream->onWrite(values, error) : count;
    fail(*environment, error);
    self->stream->writes.push_back(values);
    return result;
}

template<DiscoveryReader Connection::*reader>
QEL_FerrionStreamReader *discoveryReader(QEL_FerrionConnection *connection,
                                         QEL_FerrionEnvironment *environment)
{
    auto *self = static_cast<Connection *>(connection);
    g_script->enter("get_discovery_reader " + self->name, environment, false);
    return g_script->silent.count(self->name) > 0 ? nullptr : &(self->*reader);
}

void fill(QEL_FerrionAdapterOperations &operations)
{
    operations.delete_adapter = deleteAdapter;
    operations.create_connection = createConnection;
    operations.delete_connection = destroy<Connection>;
    operations.create_session = createSession;
    operations.delete_session = destroy<Session>;
    operations.create_stream_reader = createReader;
    operations.delete_stream_reader = destroy<Reader>;
    operations.create_stream_writer = createWriter;
    operations.delete_stream_writer = destroy<Writer>;
    operations.get_pub_discovery_reader = discoveryReader<&Connection::inputs>;
    operations.get_sub_discovery_reader = discoveryReader<&Connection::outputs>;
    operations.read = read;
    operations.return_loan = returnLoan;
    operations.write = write;
}

} // namespace

QEL_FerrionAdapterPlugin *createAdapter(const QEL_FerrionProperties *properties,
                                        QEL_FerrionEnvironment *environment)
{
    auto *plugin = create<Plugin>("adapter", properties->properties[0].value, environment);
    plugin->magic = QEL_FERRION_PLUGIN_MAGIC;
    plugin->apiVersion = QEL_FERRION_PLUGIN_API_VERSION;
    plugin->adapterVersion = {1, 2, 3, 4};
    fill(plugin->operations);
    return g_script->changeRecord ? g_script->changeRecord(plugin) : plugin;
}

void stopBy(QEL_FerrionAdapterPlugin *plugin, int64_t deadline)
{
    EXPECT_EQ(plugin->magic, QEL_FERRION_PLUGIN_MAGIC);
    const auto hook = g_script->hooks.find("stop_by");
    if (hook != g_script->hooks.end()) {
        hook->second();
    }
    g_script->stoppedBy = deadline;
    ++g_script->notified;
}

const QEL_FerrionProperties *streamProperties(QEL_FerrionStreamReader *reader,
                                              const QEL_FerrionStreamInfo *lent)
{
    for (const LentStream &each : static_cast<DiscoveryReader *>(reader)->lentStreams) {
        if (&each.info == lent) {
            return each.properties.get();
        }
    }
    ADD_FAILURE() << "asked for the properties of what is not lent";
    return nullptr;
}

Script::Script(const ferry::Configuration &configuration) : PluginLoader(configuration, {})
{
    g_script = this;
}

void Script::signal(const Stream &stream)
{
    stream.listener.onDataAvailable(nullptr, stream.listener.listenerData);
}

void Script::announce(const std::string &connection, const Announcement &announced, bool input)
{
    QEL_FerrionStreamReaderListener listener{};
    {
        const std::lock_guard<std::mutex> lock(discoveryMutex);
        Discovery &discovery = discoveries[connection + (input ? " in" : " out")];
        discovery.announced.push_back(announced);
        listener = discovery.listener;
    }
    if (listener.onDataAvailable != nullptr) {
        listener.onDataAvailable(nullptr, listener.listenerData);
    }
}

void Script::hang()
{
    for (;;) {
        pause();
    }
}

void Script::remember(const std::string &end, const QEL_FerrionProperties &properties)
{
    std::string text;
    for (std::int32_t i = 0; i < properties.count; ++i) {
        const QEL_FerrionNameValue &each = properties.properties[i];
        text += std::string(each.name) + "=" + each.value + " ";
    }
    const std::lock_guard<std::mutex> lock(callsMutex_);
    given_[end] = text;
}

std::ptrdiff_t Script::called(const std::string &call)
{
    const std::lock_guard<std::mutex> lock(callsMutex_);
    return std::count(calls.begin(), calls.end(), call);
}

std::string Script::given(const std::string &end)
{
    const std::lock_guard<std::mutex> lock(callsMutex_);
    return given_[end];
}

void Script::enter(const std::string &call, QEL_FerrionEnvironment *environment, bool remember)
{
    static const QEL_FerrionEnvironment clean{};
    if (environment == nullptr || std::memcmp(environment, &clean, sizeof clean) != 0) {
        ADD_FAILURE() << call << " with an environment that is not clean";
    }
    if (!t_attached) {
        ADD_FAILURE() << call << " on a thread that is not attached";
    }
    if (remember) {
        // A thread that was given up may still be inside of another call.
        const std::lock_guard<std::mutex> lock(callsMutex_);
        calls.push_back(call);
    }
    const auto hook = hooks.find(call);
    if (hook != hooks.end()) {
        hook->second();
    }
    const auto error = errors.find(call);
    fail(*environment, error == errors.end() ? "" : error->second);
}

bool Script::start()
{
    t_attached = true;
    return !cannotStart && PluginLoader::start();
}

bool Script::attachThread()
{
    t_attached = !rejectsThreads;
    attached_ += t_attached ? 1 : 0;
    return t_attached && PluginLoader::attachThread();
}

ferry::FailureDetails Script::takeFailure(const std::string &adapter)
{
    EXPECT_EQ(adapter.size(), 1U);
    return std::exchange(t_details, {});
}

void Script::detachThread()
{
    t_attached = false;
    --attached_;
}

void Script::stop()
{
    if (attached_ != 0) {
        ADD_FAILURE() << "stop with threads attached";
    }
    PluginLoader::stop();
    enter("stop", ferry::CallEnvironment().fresh());
}

} // namespace scripted
