// Life of dynamic samples, and their bytes as a whole.
#include "qddscdr/check.h"
#include "qddscore/heap.h"
#include "sample.h"

using namespace qddsc;

const DDS_DynamicDataProperty_t DDS_DYNAMIC_DATA_PROPERTY_DEFAULT = {0, 0};

namespace {

constexpr const char *freeRole = "DDS_DynamicData_delete";

void *allocate(size_t size, uint32_t tag, const char *typeName)
{
    return QELOsapiHeap_reallocateMemoryInternal(nullptr, size, QEL_OSAPI_HEAP_DEFAULT_ALIGNMENT,
                                                 "DDS_DynamicData_new", tag, typeName);
}

/// Gives the sample its index and buffer; what was made is freed by the caller on failure.
bool prepare(DDS_DynamicData &sample, uint64_t extra)
{
    const SampleType &root = *sample.root;
    const size_t behind = root.members.size() - root.layout.offsets.size();
    if (behind > 0) {
        sample.index = static_cast<uint32_t *>(
            allocate(behind * sizeof(uint32_t), QEL_OSAPI_HEAP_ARRAY_TAG, "DDS_DynamicData index"));
        if (sample.index == nullptr) {
            return false;
        }
    }
    const uint64_t size = root.layout.size[0];
    return reserve(sample, std::max(size, std::min(size + extra, sample.limit))) ==
               DDS_RETCODE_OK &&
           DDS_DynamicData_clear(&sample) == DDS_RETCODE_OK;
}

DDS_ReturnCode_t replaceBytes(DDS_DynamicData &sample, const uint8_t *bytes, uint64_t size)
{
    const DDS_ReturnCode_t code = reserve(sample, size);
    if (code == DDS_RETCODE_OK) {
        std::memmove(sample.bytes, bytes, size);
        sample.size = size;
        forgetPositions(sample);
    }
    return code;
}

} // namespace

DDS_DynamicData *DDS_DynamicData_new(const DDS_TypeCode *type,
                                     const DDS_DynamicDataProperty_t *property) noexcept
{
    const DDS_DynamicDataProperty_t &wanted =
        property != nullptr ? *property : DDS_DYNAMIC_DATA_PROPERTY_DEFAULT;
    if (type == nullptr || type->resolved->kind != DDS_TK_STRUCT ||
        wanted.buffer_initial_size < 0) {
        return nullptr;
    }
    auto *self = static_cast<DDS_DynamicData *>(
        allocate(sizeof(DDS_DynamicData), QEL_OSAPI_HEAP_STRUCTURE_TAG, "struct DDS_DynamicData"));
    if (self == nullptr) {
        return nullptr;
    }
    self->type = type;
    self->root = &type->resolved->record;
    self->limit = wanted.buffer_max_size > 0 ? static_cast<uint64_t>(wanted.buffer_max_size)
                                             : qddscdr::maxSample;
    if (!prepare(*self, static_cast<uint64_t>(wanted.buffer_initial_size))) {
        DDS_DynamicData_delete(self);
        return nullptr;
    }
    return self;
}

void DDS_DynamicData_delete(DDS_DynamicData *self) noexcept
{
    if (self != nullptr) {
        QELOsapiHeap_freeMemoryInternal(self->bytes, freeRole, QEL_OSAPI_HEAP_ARRAY_TAG);
        QELOsapiHeap_freeMemoryInternal(self->scratch, freeRole, QEL_OSAPI_HEAP_ARRAY_TAG);
        QELOsapiHeap_freeMemoryInternal(self->index, freeRole, QEL_OSAPI_HEAP_ARRAY_TAG);
        QELOsapiHeap_freeMemoryInternal(self, freeRole, QEL_OSAPI_HEAP_STRUCTURE_TAG);
    }
}

const DDS_TypeCode *DDS_DynamicData_get_type(const DDS_DynamicData *self) noexcept
{
    return self->type;
}

DDS_ReturnCode_t DDS_DynamicData_clear(DDS_DynamicData *self) noexcept
{
    const uint64_t size = self->root->layout.size[0];
    const DDS_ReturnCode_t code = reserve(*self, size);
    if (code == DDS_RETCODE_OK) {
        writeDefaults(self->bytes, *self->root, 0, 1);
        self->size = size;
        forgetPositions(*self);
    }
    return code;
}

DDS_ReturnCode_t DDS_DynamicData_copy(DDS_DynamicData *self, const DDS_DynamicData *source) noexcept
{
    if (self->root != source->root) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    return self != source ? replaceBytes(*self, source->bytes, source->size) : DDS_RETCODE_OK;
}

const uint8_t *DDS_DynamicData_get_cdr(const DDS_DynamicData *self, size_t *length) noexcept
{
    *length = self->size;
    return self->bytes;
}

DDS_ReturnCode_t DDS_DynamicData_set_cdr(DDS_DynamicData *self, const uint8_t *bytes, size_t length,
                                         DDS_ErrorText *error) noexcept
{
    if (bytes == nullptr) {
        setError(error, "%s: no bytes", self->root->name.data());
        return DDS_RETCODE_BAD_PARAMETER;
    }
    uint64_t size = 0;
    bool padded = false;
    if (!checkCdr(*self->root, {bytes, length}, size, padded, error)) {
        return DDS_RETCODE_ERROR;
    }
    const DDS_ReturnCode_t code = replaceBytes(*self, bytes, size);
    if (code != DDS_RETCODE_OK) {
        setError(error, "%s: no room for a sample of %llu bytes", self->root->name.data(),
                 static_cast<unsigned long long>(size));
    } else if (padded) {
        clearPadding(*self->root, self->bytes, size);
    }
    return code;
}

uint8_t *DDS_DynamicData_loan_cdr(DDS_DynamicData *self, size_t length) noexcept
{
    if (reserve(*self, length) != DDS_RETCODE_OK) {
        return nullptr;
    }
    self->size = length;
    forgetPositions(*self);
    return self->bytes;
}
