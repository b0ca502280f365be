// Strings and string sequences over the core heap.
#include "qddsc/string.h"

#include <climits>
#include <cstring>

#include "qddscore/heap.h"

namespace {

constexpr int32_t firstMaximum = 4;

char **resizeSlots(char **slots, int32_t count)
{
    return static_cast<char **>(QELOsapiHeap_reallocateMemoryInternal(
        slots, static_cast<size_t>(count) * sizeof(char *), QEL_OSAPI_HEAP_DEFAULT_ALIGNMENT,
        "DDS_StringSeq_append", QEL_OSAPI_HEAP_ARRAY_TAG, "char *"));
}

} // namespace

char *DDS_String_alloc(size_t length) noexcept
{
    if (length == SIZE_MAX) {
        return nullptr;
    }
    return static_cast<char *>(QELOsapiHeap_reallocateMemoryInternal(
        nullptr, length + 1, QEL_OSAPI_HEAP_DEFAULT_ALIGNMENT, "DDS_String_alloc",
        QEL_OSAPI_HEAP_STRING_TAG, "char"));
}

char *DDS_String_dup(const char *text) noexcept
{
    if (text == nullptr) {
        return nullptr;
    }
    const size_t length = std::strlen(text);
    char *copy = DDS_String_alloc(length);
    if (copy != nullptr) {
        std::memcpy(copy, text, length + 1);
    }
    return copy;
}

void DDS_String_free(char *text) noexcept
{
    QELOsapiHeap_freeMemoryInternal(text, "DDS_String_free", QEL_OSAPI_HEAP_STRING_TAG);
}

void DDS_StringSeq_initialize(DDS_StringSeq *self) noexcept
{
    *self = {};
}

void DDS_StringSeq_finalize(DDS_StringSeq *self) noexcept
{
    for (int32_t i = 0; i < self->length; ++i) {
        DDS_String_free(self->buffer[i]);
    }
    QELOsapiHeap_freeMemoryInternal(self->buffer, "DDS_StringSeq_finalize",
                                    QEL_OSAPI_HEAP_ARRAY_TAG);
    *self = {};
}

int32_t DDS_StringSeq_get_length(const DDS_StringSeq *self) noexcept
{
    return self != nullptr ? self->length : 0;
}

char **DDS_StringSeq_get_reference(const DDS_StringSeq *self, int32_t index) noexcept
{
    return self != nullptr && index >= 0 && index < self->length ? &self->buffer[index] : nullptr;
}

int32_t DDS_StringSeq_append(DDS_StringSeq *self, const char *text) noexcept
{
    if (self->length == self->maximum) {
        if (self->maximum > INT32_MAX / 2) {
            return 0;
        }
        const int32_t maximum = self->maximum > 0 ? self->maximum * 2 : firstMaximum;
        char **slots = resizeSlots(self->buffer, maximum);
        if (slots == nullptr) {
            return 0;
        }
        self->buffer = slots;
        self->maximum = maximum;
    }
    char *copy = DDS_String_dup(text);
    if (copy == nullptr) {
        return 0;
    }
    self->buffer[self->length++] = copy;
    return 1;
}
