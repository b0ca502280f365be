// Stream info records and the string sequence inside them, on the C heap. The bridge calls none of
// these (it fills records of this layout from its own pools); hosts and other plug-ins do.
#include "ferryjni/stream_info.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

// compatibility 3
static_assert(offsetof(QEL_FerrionStringSeq, buffer) == 0);
static_assert(offsetof(QEL_FerrionStringSeq, length) == 8);
static_assert(offsetof(QEL_FerrionStringSeq, maximum) == 12);
static_assert(sizeof(QEL_FerrionStringSeq) == 16);

static_assert(offsetof(QEL_FerrionStreamInfo, disposed) == 0);
static_assert(offsetof(QEL_FerrionStreamInfo, streamName) == 8);
static_assert(offsetof(QEL_FerrionStreamInfo, typeName) == 16);
static_assert(offsetof(QEL_FerrionStreamInfo, typeRepresentationKind) == 24);
static_assert(offsetof(QEL_FerrionStreamInfo, typeRepresentation) == 32);
static_assert(offsetof(QEL_FerrionStreamInfo, partition) == 40);
static_assert(sizeof(QEL_FerrionStreamInfo) == 56);

char *copyString(const char *text)
{
    auto *copy = static_cast<char *>(malloc(strlen(text) + 1));
    if (copy != nullptr) {
        strcpy(copy, text); // NOLINT(clang-analyzer-security.insecureAPI.strcpy): sized above
    }
    return copy;
}

QEL_FerrionStreamInfo *newStreamInfo(int32_t disposed, const char *streamName, const char *typeName,
                                     int32_t kind, void *representation)
{
    auto *self = static_cast<QEL_FerrionStreamInfo *>(calloc(1, sizeof(QEL_FerrionStreamInfo)));
    // compatibility 5: a record whose initialization failed is not freed
    const int32_t made = QEL_FerrionStreamInfo_initialize(self, disposed, streamName, typeName,
                                                          kind, representation);
    return made != 0 ? self : nullptr; // NOLINT(clang-analyzer-unix.Malloc)
}

} // namespace

int32_t QEL_FerrionStreamInfo_initialize(QEL_FerrionStreamInfo *self, int32_t disposed,
                                         const char *streamName, const char *typeName,
                                         int32_t typeRepresentationKind,
                                         void *typeRepresentation) noexcept
{
    if (self == nullptr || streamName == nullptr) {
        return 0;
    }
    self->streamName = copyString(streamName);
    if (self->streamName == nullptr) {
        QEL_FerrionStreamInfo_finalize(self);
        return 0;
    }
    if (typeName != nullptr) {
        self->typeName = copyString(typeName);
        if (self->typeName == nullptr) {
            QEL_FerrionStreamInfo_finalize(self);
            return 0;
        }
    }
    self->disposed = disposed;
    self->typeRepresentationKind = typeRepresentationKind;
    self->typeRepresentation = typeRepresentation;
    return 1;
}

int32_t QEL_FerrionStreamInfo_finalize(QEL_FerrionStreamInfo *self) noexcept
{
    if (self == nullptr) {
        return 0;
    }
    QEL_FerrionStringSeq &partition = self->partition;
    if (partition.buffer != nullptr) {
        // Up to maximum: slots past length may hold strings of an earlier, longer copy.
        for (int32_t i = 0; i < partition.maximum; ++i) {
            free(partition.buffer[i]);
        }
        free(partition.buffer);
        partition.buffer = nullptr;
        // compatibility 17: length and maximum keep their values
    }
    free(self->streamName);
    self->streamName = nullptr;
    free(self->typeName);
    self->typeName = nullptr;
    return 1;
}

QEL_FerrionStreamInfo *QEL_FerrionStreamInfo_new_discoveredI(const char *streamName,
                                                             const char *typeName,
                                                             int32_t typeRepresentationKind,
                                                             void *typeRepresentation) noexcept
{
    return newStreamInfo(0, streamName, typeName, typeRepresentationKind, typeRepresentation);
}

QEL_FerrionStreamInfo *QEL_FerrionStreamInfo_new_disposedI(const char *streamName) noexcept
{
    return newStreamInfo(1, streamName, nullptr, 0, nullptr);
}

void QEL_FerrionStreamInfo_deleteI(QEL_FerrionStreamInfo *self) noexcept
{
    QEL_FerrionStreamInfo_finalize(self);
    free(self);
}

int QEL_FerrionStreamInfo_compare(const QEL_FerrionStreamInfo *a,
                                  const QEL_FerrionStreamInfo *b) noexcept
{
    return strcmp(a->streamName, b->streamName);
}

int QEL_FerrionStreamInfo_compareByTypeName(const QEL_FerrionStreamInfo *a,
                                            const QEL_FerrionStreamInfo *b) noexcept
{
    return strcmp(a->typeName, b->typeName);
}

const QEL_FerrionStringSeq *QEL_FerrionStreamInfo_get_default_partition() noexcept
{
    static char emptyName[] = "";
    static char *names[] = {emptyName};
    static const QEL_FerrionStringSeq defaultPartition = {names, 1, 1};
    return &defaultPartition;
}

QEL_FerrionStringSeq *QEL_FerrionStringSeq_copy(QEL_FerrionStringSeq *destination,
                                                const QEL_FerrionStringSeq *source) noexcept
{
    if (source->length > destination->maximum) {
        const auto slots = static_cast<size_t>(source->length);
        auto **grown = static_cast<char **>(realloc(destination->buffer, slots * sizeof(char *)));
        if (grown == nullptr) {
            return nullptr;
        }
        for (int32_t i = destination->maximum; i < source->length; ++i) {
            grown[i] = nullptr;
        }
        destination->buffer = grown;
        destination->maximum = source->length;
    }
    destination->length = source->length;
    for (int32_t i = 0; i < source->length; ++i) {
        const size_t size = strlen(source->buffer[i]) + 1;
        auto *slot = static_cast<char *>(realloc(destination->buffer[i], size));
        if (slot == nullptr) {
            return nullptr;
        }
        destination->buffer[i] = slot;
        memcpy(slot, source->buffer[i], size);
    }
    return destination;
}
