#include "scripted_plugin.h"

#include <algorithm>
#include <cstring>
#include <unistd.h>

namespace scripted {
namespace {

/// The plug-in's functions have no other way to the test's script.
Script *g_script = nullptr;
/// Whether the host has attached this thread.
thread_local bool t_attached = false;

struct Plugin : QEL_FerrionAdapterPlugin {
    std::string name;
};
struct Connection : QEL_FerrionConnection {
    std::string name;
};
struct Session : QEL_FerrionSession {};
struct Writer : QEL_FerrionStreamWriter {
    std::string name;
    Stream *stream = nullptr;
};
struct Reader : QEL_FerrionStreamReader {
    std::string name;
    Stream *stream = nullptr;
    std::vector<int> values;
    std::vector<void *> samples;
    std::vector<DDS_SampleInfo> infoValues;
    std::vector<DDS_SampleInfo *> infos;
    bool lent = false;
};

std::string text(const char *text_)
{
    return text_ == nullptr ? "null" : text_;
}

QEL_FerrionConnection *createConnection(QEL_FerrionAdapterPlugin *, const char *first,
                                        const char *second,
                                        const QEL_FerrionStreamReaderListener *a,
                                        const QEL_FerrionStreamReaderListener *b, void *, void *,
                                        const QEL_FerrionProperties *properties,
                                        QEL_FerrionEnvironment *environment)
{
    auto *connection = new Connection();
    connection->name = text(first);
    if (a == nullptr || b == nullptr || properties == nullptr) {
        g_script->violation("create_connection without listeners or properties");
    }
    g_script->enter("create_connection " + text(first) + " " + text(second), environment);
    return connection;
}

void deleteConnection(QEL_FerrionAdapterPlugin *, QEL_FerrionConnection *connection,
                      QEL_FerrionEnvironment *environment)
{
    auto *self = static_cast<Connection *>(connection);
    g_script->enter("delete_connection " + self->name, environment);
    delete self;
}

QEL_FerrionSession *createSession(QEL_FerrionConnection *connection, const QEL_FerrionProperties *,
                                  QEL_FerrionEnvironment *environment)
{
    g_script->enter("create_session " + static_cast<Connection *>(connection)->name, environment);
    return new Session();
}

void deleteSession(QEL_FerrionConnection *connection, QEL_FerrionSession *session,
                   QEL_FerrionEnvironment *environment)
{
    g_script->enter("delete_session " + static_cast<Connection *>(connection)->name, environment);
    delete static_cast<Session *>(session);
}

QEL_FerrionStreamReader *createReader(QEL_FerrionConnection *, QEL_FerrionSession *,
                                      const QEL_FerrionStreamInfo *info,
                                      const QEL_FerrionProperties *,
                                      const QEL_FerrionStreamReaderListener *listener,
                                      QEL_FerrionEnvironment *environment)
{
    auto *reader = new Reader();
    reader->name = info->streamName;
    reader->stream = &g_script->stream(reader->name);
    reader->stream->listener = *listener;
    g_script->enter("create_reader " + reader->name, environment);
    if (g_script->signalDuringCreate) {
        listener->onDataAvailable(reader, listener->listenerData);
    }
    return reader;
}

void deleteReader(QEL_FerrionConnection *, QEL_FerrionStreamReader *reader,
                  QEL_FerrionEnvironment *environment)
{
    auto *self = static_cast<Reader *>(reader);
    g_script->enter("delete_reader " + self->name, environment);
    delete self;
}

QEL_FerrionStreamWriter *createWriter(QEL_FerrionConnection *, QEL_FerrionSession *,
                                      const QEL_FerrionStreamInfo *info,
                                      const QEL_FerrionProperties *,
                                      QEL_FerrionEnvironment *environment)
{
    auto *writer = new Writer();
    writer->name = info->streamName;
    writer->stream = &g_script->stream(writer->name);
    g_script->enter("create_writer " + writer->name, environment);
    return writer;
}

void deleteWriter(QEL_FerrionConnection *, QEL_FerrionStreamWriter *writer,
                  QEL_FerrionEnvironment *environment)
{
    auto *self = static_cast<Writer *>(writer);
    g_script->enter("delete_writer " + self->name, environment);
    delete self;
}

/// Fills the reader's arrays, which only grow.
void lend(Reader &reader, const Read &read)
{
    reader.values.assign(read.samples.begin(), read.samples.end());
    reader.samples.clear();
    reader.infos.clear();
    reader.infoValues.resize(std::max(reader.infoValues.size(), read.samples.size()));
    for (std::size_t i = 0; i < reader.values.size(); ++i) {
        reader.infoValues[i].publication_sequence_number.low =
            static_cast<std::uint32_t>(reader.values[i]);
        reader.samples.push_back(reader.values[i] < 0 ? nullptr : &reader.values[i]);
        reader.infos.push_back(&reader.infoValues[i]);
    }
}

void readDiscovery(Reader &reader, void ***samples, std::int32_t *count)
{
    for (QEL_FerrionStreamInfo &info : g_script->announced) {
        reader.samples.push_back(&info);
    }
    *samples = reader.samples.data();
    *count = static_cast<std::int32_t>(reader.samples.size());
}

void read(QEL_FerrionStreamReader *reader, void ***samples, DDS_SampleInfo ***infos,
          std::int32_t *count, QEL_FerrionEnvironment *environment)
{
    auto *self = static_cast<Reader *>(reader);
    g_script->enter("read " + self->name, environment, false);
    if (self->lent) {
        g_script->violation("read " + self->name + " while a loan is out");
    }
    self->lent = true;
    if (self->stream == nullptr) {
        readDiscovery(*self, samples, count);
        return;
    }
    Read given;
    {
        const std::lock_guard<std::mutex> lock(g_script->mutex);
        ++self->stream->readCalls;
        if (!self->stream->reads.empty()) {
            given = self->stream->reads.front();
            self->stream->reads.pop_front();
        } else if (self->stream->source) {
            given = self->stream->source();
        }
    }
    if (!given.error.empty()) {
        environment->errorFlag = 1;
        std::strcpy(environment->message, given.error.c_str());
        if (given.samples.empty()) {
            return;
        }
    }
    lend(*self, given);
    *samples = self->samples.empty() ? nullptr : self->samples.data();
    *infos = self->infos.empty() ? nullptr : self->infos.data();
    *count = static_cast<std::int32_t>(self->samples.size());
}

void returnLoan(QEL_FerrionStreamReader *reader, void **samples, DDS_SampleInfo **,
                std::int32_t count, QEL_FerrionEnvironment *environment)
{
    auto *self = static_cast<Reader *>(reader);
    g_script->enter("return_loan " + self->name, environment, false);
    if (!self->lent || (count > 0 && samples != self->samples.data())) {
        g_script->violation("return_loan " + self->name + " of something else");
    }
    self->lent = false;
}

std::int32_t write(QEL_FerrionStreamWriter *writer, void *const *samples,
                   DDS_SampleInfo *const *infos, std::int32_t count,
                   QEL_FerrionEnvironment *environment)
{
    auto *self = static_cast<Writer *>(writer);
    g_script->enter("write " + self->name, environment, false);
    Write write;
    write.array = samples;
    for (std::int32_t i = 0; i < count; ++i) {
        write.samples.push_back(*static_cast<const int *>(samples[i]));
        write.infos.push_back(
            infos == nullptr ? -1 : static_cast<int>(infos[i]->publication_sequence_number.low));
    }
    std::string error;
    int taken = count;
    if (self->stream->onWrite) {
        taken = self->stream->onWrite(write, error);
    }
    if (!error.empty()) {
        environment->errorFlag = 1;
        std::strcpy(environment->message, error.c_str());
    }
    const std::lock_guard<std::mutex> lock(g_script->mutex);
    self->stream->writes.push_back(write);
    g_script->changed.notify_all();
    return taken;
}

QEL_FerrionStreamReader *discoveryReader(QEL_FerrionConnection *,
                                         QEL_FerrionEnvironment *environment)
{
    static Reader reader;
    g_script->enter("get_discovery_reader", environment, false);
    reader = Reader();
    return g_script->announced.empty() ? nullptr : &reader;
}

std::int32_t deleteAdapter(QEL_FerrionAdapterPlugin *adapter, QEL_FerrionEnvironment *environment)
{
    auto *self = static_cast<Plugin *>(adapter);
    g_script->enter("delete_adapter " + self->name, environment);
    delete self;
    return 1;
}

void fill(QEL_FerrionAdapterOperations &operations)
{
    operations.delete_adapter = deleteAdapter;
    operations.create_connection = createConnection;
    operations.delete_connection = deleteConnection;
    operations.create_session = createSession;
    operations.delete_session = deleteSession;
    operations.create_stream_reader = createReader;
    operations.delete_stream_reader = deleteReader;
    operations.create_stream_writer = createWriter;
    operations.delete_stream_writer = deleteWriter;
    operations.get_pub_discovery_reader = discoveryReader;
    operations.read = read;
    operations.return_loan = returnLoan;
    operations.write = write;
}

} // namespace

Script::Script()
{
    g_script = this;
}

Script::~Script()
{
    g_script = nullptr;
}

Stream &Script::stream(const std::string &name)
{
    const std::lock_guard<std::mutex> lock(mutex);
    return streams_[name];
}

void Script::push(const std::string &name, const Read &read)
{
    Stream &target = stream(name);
    QEL_FerrionStreamReaderListener listener{};
    {
        const std::lock_guard<std::mutex> lock(mutex);
        target.reads.push_back(read);
        listener = target.listener;
    }
    if (listener.onDataAvailable != nullptr) {
        listener.onDataAvailable(nullptr, listener.listenerData);
    }
}

std::vector<std::string> Script::calls() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return calls_;
}

std::vector<std::string> Script::violations() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return violations_;
}

void Script::hang()
{
    for (;;) {
        pause();
    }
}

bool Script::enter(const std::string &call, QEL_FerrionEnvironment *environment, bool remember)
{
    static const QEL_FerrionEnvironment clean{};
    if (environment == nullptr || std::memcmp(environment, &clean, sizeof clean) != 0) {
        violation(call + " with an environment that is not clean");
    }
    if (!t_attached) {
        violation(call + " on a thread that is not attached");
    }
    if (remember) {
        const std::lock_guard<std::mutex> lock(mutex);
        calls_.push_back(call);
    }
    const auto hook = hooks.find(call);
    if (hook != hooks.end()) {
        hook->second();
    }
    const auto error = errors.find(call);
    if (error != errors.end()) {
        environment->errorFlag = 1;
        std::strcpy(environment->message, error->second.c_str());
    }
    return error == errors.end();
}

void Script::violation(const std::string &text_)
{
    const std::lock_guard<std::mutex> lock(mutex);
    violations_.push_back(text_);
}

bool Script::start()
{
    t_attached = true;
    return enter("start", ferry::CallEnvironment().fresh());
}

QEL_FerrionAdapterPlugin *Script::open(const ferry::AdapterSettings &settings,
                                       const QEL_FerrionProperties *,
                                       ferry::CallEnvironment &environment)
{
    enter("create_adapter " + settings.name, environment.fresh());
    auto *plugin = new Plugin();
    plugin->name = settings.name;
    plugin->magic = QEL_FERRION_PLUGIN_MAGIC;
    plugin->apiVersion = {5, 3, 0, 0};
    plugin->adapterVersion = {1, 2, 3, 4};
    fill(plugin->operations);
    return changeRecord ? changeRecord(plugin) : plugin;
}

bool Script::attachThread()
{
    t_attached = true;
    ++attached_;
    return errors.count("attach") == 0;
}

void Script::detachThread()
{
    t_attached = false;
    --attached_;
}

void Script::stop()
{
    if (attached_ != 0) {
        violation("stop with threads attached");
    }
    enter("stop", ferry::CallEnvironment().fresh());
}

} // namespace scripted
