// Template: reads and writes samples with a number and a text. Its readers count, its writers
// print. ferryjni/native_adapter.h says what a host expects: slots, ownership, threads, errors.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <ferryjni/native_adapter.h>
#include <qddsc/dynamic_data.h>

namespace {

// Of several values of one name the last counts.
const char *lookUp(const QEL_FerrionProperties *properties, const char *name, const char *absent)
{
    for (int32_t i = properties != nullptr ? properties->count - 1 : -1; i >= 0; --i) {
        const QEL_FerrionNameValue &pair = properties->properties[i];
        if (pair.name != nullptr && pair.value != nullptr && std::strcmp(pair.name, name) == 0) {
            return pair.value;
        }
    }
    return absent;
}

struct Reader : QEL_FerrionStreamReader {
    int64_t last;
    DDS_DynamicData *sample; // lent again and again
    void *loan[1];
    int64_t number;
};

struct Writer : QEL_FerrionStreamWriter {};

QEL_FerrionStreamReader *createReader(QEL_FerrionConnection *, QEL_FerrionSession *,
                                      const QEL_FerrionStreamInfo *stream,
                                      const QEL_FerrionProperties *properties,
                                      const QEL_FerrionStreamReaderListener *,
                                      QEL_FerrionEnvironment *environment) noexcept
{
    const char *count = lookUp(properties, "count", "10");
    char *end = nullptr;
    const long long last = std::strtoll(count, &end, 10);
    if (end == count || *end != '\0' || last < 0) {
        QEL_FerrionEnvironment_set_errorI(
            environment, "property \"count\" must be a whole number from 0 on, not \"%s\"", count);
        return nullptr;
    }
    const auto *type = static_cast<const DDS_TypeCode *>(stream->typeRepresentation);
    DDS_DynamicData *sample = DDS_DynamicData_new(type, nullptr);
    if (sample == nullptr) {
        QEL_FerrionEnvironment_set_errorI(environment, "stream \"%s\": no sample of its type",
                                          stream->streamName);
        return nullptr;
    }
    return new Reader{{}, last, sample, {sample}, 0};
}

void deleteReader(QEL_FerrionConnection *, QEL_FerrionStreamReader *reader,
                  QEL_FerrionEnvironment *) noexcept
{
    auto *self = static_cast<Reader *>(reader);
    DDS_DynamicData_delete(self->sample);
    delete self;
}

// Without waiting: what is there. The loan stays unchanged until it is returned.
void read(QEL_FerrionStreamReader *reader, void ***samples, DDS_SampleInfo ***infos, int32_t *count,
          QEL_FerrionEnvironment *environment) noexcept
{
    auto *self = static_cast<Reader *>(reader);
    *samples = self->loan;
    *infos = nullptr;
    *count = self->number < self->last ? 1 : 0;
    if (*count == 1 &&
        (DDS_DynamicData_set_longlong(self->sample, "number", ++self->number) != DDS_RETCODE_OK ||
         DDS_DynamicData_set_string(self->sample, "text", "hello", 5) != DDS_RETCODE_OK)) {
        QEL_FerrionEnvironment_set_errorI(environment, "the type has no number and text");
        *count = 0;
    }
}

// Where every output has taken the samples: the place to acknowledge them to a source.
void returnLoan(QEL_FerrionStreamReader *, void **, DDS_SampleInfo **, int32_t,
                QEL_FerrionEnvironment *) noexcept
{
}

int32_t write(QEL_FerrionStreamWriter *, void *const *samples, DDS_SampleInfo *const *,
              int32_t count, QEL_FerrionEnvironment *environment) noexcept
{
    for (int32_t i = 0; i < count; ++i) {
        const auto *sample = static_cast<const DDS_DynamicData *>(samples[i]);
        int64_t number = 0;
        const char *text = nullptr;
        if (sample == nullptr ||
            DDS_DynamicData_get_longlong(sample, "number", &number) != DDS_RETCODE_OK ||
            DDS_DynamicData_get_string(sample, "text", &text, nullptr) != DDS_RETCODE_OK) {
            QEL_FerrionEnvironment_set_errorI(environment, "a sample has no number and text");
            return i;
        }
        std::printf("%" PRId64 " %s\n", number, text);
    }
    if (std::fflush(stdout) != 0) {
        QEL_FerrionEnvironment_set_errorI(environment, "cannot write to standard output");
        return 0;
    }
    return count;
}

} // namespace

extern "C" FERRYJNI_API QEL_FerrionAdapterPlugin *template_create(const QEL_FerrionProperties *,
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
    slots.create_stream_reader = createReader;
    slots.delete_stream_reader = deleteReader;
    slots.create_stream_writer = [](auto...) -> QEL_FerrionStreamWriter * { return new Writer; };
    slots.delete_stream_writer = [](auto *, auto *writer, auto *) {
        delete static_cast<Writer *>(writer);
    };
    slots.read = read;
    slots.return_loan = returnLoan;
    slots.write = write;
    return plugin;
}
