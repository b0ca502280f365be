// The C boundary: every slot is a call of one object's method whose exceptions end here. Creation
// gives a whole object or none, so nothing incomplete ever reaches the host.
#include "adapter.h"

#include <memory>

#include "connection.h"
#include "error.h"
#include "session.h"
#include "stop.h"
#include "stream_reader.h"
#include "stream_writer.h"

namespace ferrydds {
namespace {

using Environment = QEL_FerrionEnvironment;
using Properties = QEL_FerrionProperties;
using Listener = QEL_FerrionStreamReaderListener;

/// The record with what all connections share.
struct Adapter : QEL_FerrionAdapterPlugin {
    Stop stop;
};

/// A new object for the host to own.
template<class Object, class... Arguments> Object *make(Arguments &&...arguments)
{
    return std::make_unique<Object>(std::forward<Arguments>(arguments)...).release();
}

Adapter &of(QEL_FerrionAdapterPlugin *adapter)
{
    return *static_cast<Adapter *>(adapter);
}

Connection &of(QEL_FerrionConnection *connection)
{
    return *static_cast<Connection *>(connection);
}

Session &of(QEL_FerrionSession *session)
{
    return *static_cast<Session *>(session);
}

Reader &of(QEL_FerrionStreamReader *reader)
{
    return *static_cast<Reader *>(reader);
}

StreamWriter &of(QEL_FerrionStreamWriter *writer)
{
    return *static_cast<StreamWriter *>(writer);
}

std::int32_t deleteAdapter(QEL_FerrionAdapterPlugin *adapter, Environment *) noexcept
{
    delete static_cast<Adapter *>(adapter);
    return 1;
}

QEL_FerrionConnection *createConnection(QEL_FerrionAdapterPlugin *adapter, const char *,
                                        const char *, const Listener *subscriptionListener,
                                        const Listener *publicationListener, void *, void *,
                                        const Properties *properties,
                                        Environment *environment) noexcept
{
    return guarded<QEL_FerrionConnection *>(environment, nullptr, [&] {
        return make<Connection>(of(adapter).stop, subscriptionListener, publicationListener,
                                properties);
    });
}

void deleteConnection(QEL_FerrionAdapterPlugin *, QEL_FerrionConnection *connection,
                      Environment *) noexcept
{
    delete static_cast<Connection *>(connection);
}

QEL_FerrionSession *createSession(QEL_FerrionConnection *, const Properties *properties,
                                  Environment *environment) noexcept
{
    return guarded<QEL_FerrionSession *>(environment, nullptr,
                                         [&] { return make<Session>(properties); });
}

void deleteSession(QEL_FerrionConnection *, QEL_FerrionSession *session, Environment *) noexcept
{
    delete static_cast<Session *>(session);
}

QEL_FerrionStreamReader *createStreamReader(QEL_FerrionConnection *connection,
                                            QEL_FerrionSession *session,
                                            const QEL_FerrionStreamInfo *stream,
                                            const Properties *properties, const Listener *listener,
                                            Environment *environment) noexcept
{
    return guarded<QEL_FerrionStreamReader *>(environment, nullptr, [&] {
        return make<StreamReader>(of(connection), of(session), *stream, properties, listener);
    });
}

void deleteStreamReader(QEL_FerrionConnection *, QEL_FerrionStreamReader *reader,
                        Environment *environment) noexcept
{
    const std::unique_ptr<StreamReader> self(static_cast<StreamReader *>(reader));
    if (self != nullptr) {
        guarded(environment, 0, [&] {
            self->reportLast(environment);
            return 0;
        });
    }
}

QEL_FerrionStreamWriter *createStreamWriter(QEL_FerrionConnection *connection,
                                            QEL_FerrionSession *session,
                                            const QEL_FerrionStreamInfo *stream,
                                            const Properties *properties,
                                            Environment *environment) noexcept
{
    return guarded<QEL_FerrionStreamWriter *>(environment, nullptr, [&] {
        return make<StreamWriter>(of(connection), of(session), *stream, properties);
    });
}

void deleteStreamWriter(QEL_FerrionConnection *, QEL_FerrionStreamWriter *writer,
                        Environment *environment) noexcept
{
    const std::unique_ptr<StreamWriter> self(static_cast<StreamWriter *>(writer));
    if (self != nullptr) {
        guarded(environment, 0, [&] {
            self->finish(environment);
            return 0;
        });
    }
}

QEL_FerrionStreamReader *getInputs(QEL_FerrionConnection *connection,
                                   Environment *environment) noexcept
{
    return guarded<QEL_FerrionStreamReader *>(
        environment, nullptr, [&] { return of(connection).discoveryReader(Direction::input); });
}

QEL_FerrionStreamReader *getOutputs(QEL_FerrionConnection *connection,
                                    Environment *environment) noexcept
{
    return guarded<QEL_FerrionStreamReader *>(
        environment, nullptr, [&] { return of(connection).discoveryReader(Direction::output); });
}

const char *connectionToString(QEL_FerrionConnection *connection) noexcept
{
    return of(connection).text();
}

/// The update slots of all objects are alike; 1 on success.
template<class Object>
std::int32_t update(Object *object, const Properties *properties, Environment *environment) noexcept
{
    return guarded(environment, 0, [&] {
        of(object).update(properties);
        return 1;
    });
}

void updateConnection(QEL_FerrionConnection *connection, const Properties *properties,
                      Environment *environment) noexcept
{
    update(connection, properties, environment);
}

void updateSession(QEL_FerrionSession *session, const Properties *properties,
                   Environment *environment) noexcept
{
    update(session, properties, environment);
}

void read(QEL_FerrionStreamReader *reader, void ***samples, DDS_SampleInfo ***infos,
          std::int32_t *count, Environment *environment) noexcept
{
    const Loan loan = guarded(environment, Loan{}, [&] { return of(reader).read(environment); });
    *samples = loan.samples;
    *infos = loan.infos;
    *count = loan.count;
}

void returnLoan(QEL_FerrionStreamReader *reader, void **, DDS_SampleInfo **, std::int32_t,
                Environment *) noexcept
{
    of(reader).returnLoan();
}

std::int32_t write(QEL_FerrionStreamWriter *writer, void *const *samples,
                   DDS_SampleInfo *const *infos, std::int32_t count,
                   Environment *environment) noexcept
{
    return guarded(environment, 0,
                   [&] { return of(writer).write(samples, infos, count, environment); });
}

void fill(QEL_FerrionAdapterPlugin &plugin) noexcept
{
    plugin.magic = QEL_FERRION_PLUGIN_MAGIC;
    plugin.apiVersion = QEL_FERRION_PLUGIN_API_VERSION;
    plugin.adapterVersion = {FERRYADAPTER_DDS_MAJOR, FERRYADAPTER_DDS_MINOR,
                             FERRYADAPTER_DDS_RELEASE, 0};
    QEL_FerrionAdapterOperations &operations = plugin.operations;
    operations.delete_adapter = deleteAdapter;
    operations.create_connection = createConnection;
    operations.delete_connection = deleteConnection;
    operations.create_session = createSession;
    operations.delete_session = deleteSession;
    operations.create_stream_reader = createStreamReader;
    operations.delete_stream_reader = deleteStreamReader;
    operations.create_stream_writer = createStreamWriter;
    operations.delete_stream_writer = deleteStreamWriter;
    operations.get_pub_discovery_reader = getInputs;
    operations.get_sub_discovery_reader = getOutputs;
    operations.connection_to_string = connectionToString;
    operations.connection_update = updateConnection;
    operations.session_update = updateSession;
    operations.read = read;
    operations.return_loan = returnLoan;
    operations.stream_reader_update = update<QEL_FerrionStreamReader>;
    operations.write = write;
    operations.stream_writer_update = update<QEL_FerrionStreamWriter>;
}

} // namespace
} // namespace ferrydds

QEL_FerrionAdapterPlugin *FerryAdapter_dds_create(const QEL_FerrionProperties *properties,
                                                  QEL_FerrionEnvironment *environment) noexcept
{
    using namespace ferrydds;
    return guarded<QEL_FerrionAdapterPlugin *>(environment, nullptr, [&] {
        const Settings none(settingTable, FERRY_SETTING_OF_ADAPTER, "adapter", properties);
        auto adapter = std::make_unique<Adapter>();
        fill(*adapter);
        return adapter.release();
    });
}

void FerryAdapter_dds_create_stop_by(QEL_FerrionAdapterPlugin *plugin,
                                     std::int64_t deadline) noexcept
{
    ferrydds::of(plugin).stop.by(deadline);
}

const QEL_FerrionProperties *
FerryAdapter_dds_create_stream_properties(QEL_FerrionStreamReader *,
                                          const QEL_FerrionStreamInfo *lent) noexcept
{
    return ferrydds::DiscoveryReader::propertiesOf(*lent);
}
