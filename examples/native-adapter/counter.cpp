// A native adapter on one page: each of its streams counts to ten. ferryjni/native_adapter.h says
// what a host expects of it.
#include <ferryjni/native_adapter.h>
#include <qddsc/dynamic_data.h>

struct Counter : QEL_FerrionStreamReader {
    DDS_DynamicData *sample; // lent again and again
    void *loan[1];
    int64_t count;
};

static void read(QEL_FerrionStreamReader *reader, void ***samples, DDS_SampleInfo ***infos,
                 int32_t *count, QEL_FerrionEnvironment *environment) noexcept
{
    auto *self = static_cast<Counter *>(reader);
    *samples = self->loan;
    *infos = nullptr;
    *count = self->count < 10 ? 1 : 0;
    if (*count == 1 &&
        DDS_DynamicData_set_longlong(self->sample, "value", ++self->count) != DDS_RETCODE_OK) {
        QEL_FerrionEnvironment_set_errorI(environment, "the type has no int64 \"value\"");
        *count = 0;
    }
}

static QEL_FerrionStreamReader *createReader(const QEL_FerrionStreamInfo &stream)
{
    const auto *type = static_cast<const DDS_TypeCode *>(stream.typeRepresentation);
    DDS_DynamicData *sample = DDS_DynamicData_new(type, nullptr);
    return new Counter{{}, sample, {sample}, 0};
}

static void deleteReader(QEL_FerrionStreamReader *reader)
{
    auto *self = static_cast<Counter *>(reader);
    DDS_DynamicData_delete(self->sample);
    delete self;
}

extern "C" QEL_FerrionAdapterPlugin *counter_create(const QEL_FerrionProperties *,
                                                    QEL_FerrionEnvironment *)
{
    auto *plugin = new QEL_FerrionAdapterPlugin{
        QEL_FERRION_PLUGIN_MAGIC, QEL_FERRION_PLUGIN_API_VERSION, {1, 0, 0, 0}, {}};
    QEL_FerrionAdapterOperations &slots = plugin->operations;
    slots.delete_adapter = [](auto *self, auto *) {
        delete self;
        return 1;
    };
    slots.create_connection = [](auto...) { return new QEL_FerrionConnection; };
    slots.delete_connection = [](auto *, auto *connection, auto *) { delete connection; };
    slots.create_session = [](auto...) { return new QEL_FerrionSession; };
    slots.delete_session = [](auto *, auto *session, auto *) { delete session; };
    slots.create_stream_reader = [](auto *, auto *, auto *stream, auto...) {
        return createReader(*stream);
    };
    slots.delete_stream_reader = [](auto *, auto *reader, auto *) { deleteReader(reader); };
    slots.read = read;
    slots.return_loan = [](auto...) {};
    return plugin;
}
