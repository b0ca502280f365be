// Access by path to what changes its size: strings and the lengths of sequences.
#include "qddscore/heap.h"
#include "sample.h"

using namespace qddsc;

namespace {

/// The text of the string at `location`, whose position becomes that of the text.
DDS_ReturnCode_t findText(const DDS_DynamicData &self, const char *path, Location &location,
                          uint32_t &length)
{
    const DDS_ReturnCode_t code = resolve(self, path, location);
    if (code != DDS_RETCODE_OK) {
        return code;
    }
    if (location.type->kind != DDS_TK_STRING) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    const bool good = readCount(self.view(), location.start, length) && length > 0 &&
                      self.view().holds(location.start, length) &&
                      self.bytes[location.start + length - 1] == 0;
    return good ? DDS_RETCODE_OK : DDS_RETCODE_ERROR;
}

void putCount(DDS_DynamicData &self, uint64_t behind, uint32_t count)
{
    std::memcpy(self.bytes + behind - sizeof count, &count, sizeof count);
}

bool isInside(const DDS_DynamicData &self, const char *text)
{
    const auto address = reinterpret_cast<uintptr_t>(text);
    const auto begin = reinterpret_cast<uintptr_t>(self.bytes);
    return address >= begin && address < begin + self.capacity;
}

DDS_ReturnCode_t setText(DDS_DynamicData &self, const char *path, const char *text, uint32_t length)
{
    Location location;
    uint32_t oldLength = 0;
    DDS_ReturnCode_t code = findText(self, path, location, oldLength);
    if (code != DDS_RETCODE_OK) {
        return code;
    }
    if (location.type->bound != 0 && length > location.type->bound) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (oldLength != length + 1) {
        code = splice(self, location, location.start, location.start + oldLength,
                      location.start + length + 1);
        if (code != DDS_RETCODE_OK) {
            return code;
        }
        putCount(self, location.start, length + 1);
        self.bytes[location.start + length] = 0;
    }
    if (length > 0) {
        std::memmove(self.bytes + location.start, text, length);
    }
    return DDS_RETCODE_OK;
}

/// A text that lies in the sample itself would be moved away while it is set.
DDS_ReturnCode_t setOwnText(DDS_DynamicData &self, const char *path, const char *text,
                            uint32_t length)
{
    auto *copy = static_cast<char *>(QELOsapiHeap_reallocateMemoryInternal(
        nullptr, length, QEL_OSAPI_HEAP_DEFAULT_ALIGNMENT, "DDS_DynamicData_set_string",
        QEL_OSAPI_HEAP_STRING_TAG, "char"));
    if (copy == nullptr) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    std::memcpy(copy, text, length);
    const DDS_ReturnCode_t code = setText(self, path, copy, length);
    QELOsapiHeap_freeMemoryInternal(copy, "DDS_DynamicData_set_string", QEL_OSAPI_HEAP_STRING_TAG);
    return code;
}

DDS_ReturnCode_t resizeSequence(DDS_DynamicData &self, const Location &location, uint32_t count,
                                uint32_t wanted)
{
    const SampleType &element = *location.type->element;
    uint64_t from = location.start;
    if (!skipElements(self.view(), element, from, count < wanted ? count : wanted)) {
        return DDS_RETCODE_ERROR;
    }
    uint64_t oldEnd = from;
    if (count > wanted && !skipElements(self.view(), element, oldEnd, count - wanted)) {
        return DDS_RETCODE_ERROR;
    }
    const uint64_t more = count < wanted ? wanted - count : 0;
    const DDS_ReturnCode_t code =
        splice(self, location, from, oldEnd, skipDefaults(element, from, more));
    if (code == DDS_RETCODE_OK) {
        putCount(self, location.start, wanted);
        writeDefaults(self.bytes, element, from, more);
    }
    return code;
}

/// Finds a sequence, with the position of its elements, or an array.
DDS_ReturnCode_t findElements(const DDS_DynamicData &self, const char *path, Location &location,
                              uint32_t &count)
{
    const DDS_ReturnCode_t code = resolve(self, path, location);
    if (code != DDS_RETCODE_OK) {
        return code;
    }
    if (location.type->kind == DDS_TK_ARRAY) {
        count = location.type->dimensions[location.dimension];
        return DDS_RETCODE_OK;
    }
    if (location.type->kind != DDS_TK_SEQUENCE) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    return readCount(self.view(), location.start, count) ? DDS_RETCODE_OK : DDS_RETCODE_ERROR;
}

} // namespace

DDS_ReturnCode_t DDS_DynamicData_get_string(const DDS_DynamicData *self, const char *path,
                                            const char **value, size_t *length) noexcept
{
    Location location;
    uint32_t bytes = 0;
    const DDS_ReturnCode_t code = findText(*self, path, location, bytes);
    if (code == DDS_RETCODE_OK) {
        *value = reinterpret_cast<const char *>(self->bytes + location.start);
        if (length != nullptr) {
            *length = bytes - 1;
        }
    }
    return code;
}

DDS_ReturnCode_t DDS_DynamicData_set_string(DDS_DynamicData *self, const char *path,
                                            const char *value, size_t length) noexcept
{
    if (value == nullptr || (length > 0 && std::memchr(value, 0, length) != nullptr)) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (length >= self->limit) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    const auto bytes = static_cast<uint32_t>(length);
    return isInside(*self, value) ? setOwnText(*self, path, value, bytes)
                                  : setText(*self, path, value, bytes);
}

DDS_ReturnCode_t DDS_DynamicData_get_length(const DDS_DynamicData *self, const char *path,
                                            uint32_t *value) noexcept
{
    Location location;
    uint32_t count = 0;
    const DDS_ReturnCode_t code = findElements(*self, path, location, count);
    *value = code == DDS_RETCODE_OK ? count : *value;
    return code;
}

DDS_ReturnCode_t DDS_DynamicData_set_length(DDS_DynamicData *self, const char *path,
                                            uint32_t value) noexcept
{
    Location location;
    uint32_t count = 0;
    const DDS_ReturnCode_t code = findElements(*self, path, location, count);
    if (code != DDS_RETCODE_OK) {
        return code;
    }
    if (location.type->kind != DDS_TK_SEQUENCE ||
        (location.type->bound != 0 && value > location.type->bound)) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    return value != count ? resizeSequence(*self, location, count, value) : DDS_RETCODE_OK;
}
