// Access to numbers and their like by path: each public function is a kind and a C type put into a
// routine.
#include "sample.h"

using namespace qddsc;

namespace {

/// Position of a scalar of one of two kinds.
DDS_ReturnCode_t findScalar(const DDS_DynamicData &self, const char *path, DDS_TCKind kind,
                            DDS_TCKind orKind, Location &location)
{
    const DDS_ReturnCode_t code = resolve(self, path, location);
    if (code != DDS_RETCODE_OK) {
        return code;
    }
    if (location.type->kind != kind && location.type->kind != orKind) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    const uint32_t size = scalarSize(kind);
    location.start = alignUp(location.start, size);
    return self.view().holds(location.start, size) ? DDS_RETCODE_OK : DDS_RETCODE_ERROR;
}

template<typename Value>
DDS_ReturnCode_t getScalar(const DDS_DynamicData *self, const char *path, DDS_TCKind kind,
                           DDS_TCKind orKind, Value *value)
{
    Location location;
    const DDS_ReturnCode_t code = findScalar(*self, path, kind, orKind, location);
    if (code == DDS_RETCODE_OK) {
        std::memcpy(value, self->bytes + location.start, sizeof(Value));
    }
    return code;
}

template<typename Value>
DDS_ReturnCode_t setScalar(DDS_DynamicData *self, const char *path, DDS_TCKind kind, Value value)
{
    Location location;
    const DDS_ReturnCode_t code = findScalar(*self, path, kind, kind, location);
    if (code == DDS_RETCODE_OK) {
        std::memcpy(self->bytes + location.start, &value, sizeof(Value));
    }
    return code;
}

} // namespace

DDS_ReturnCode_t DDS_DynamicData_get_boolean(const DDS_DynamicData *self, const char *path,
                                             int32_t *value) noexcept
{
    uint8_t byte = 0;
    const DDS_ReturnCode_t code = getScalar(self, path, DDS_TK_BOOLEAN, DDS_TK_BOOLEAN, &byte);
    if (code == DDS_RETCODE_OK && byte > 1) {
        return DDS_RETCODE_ERROR;
    }
    *value = code == DDS_RETCODE_OK ? byte : *value;
    return code;
}

DDS_ReturnCode_t DDS_DynamicData_set_boolean(DDS_DynamicData *self, const char *path,
                                             int32_t value) noexcept
{
    if (value != 0 && value != 1) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    return setScalar(self, path, DDS_TK_BOOLEAN, static_cast<uint8_t>(value));
}

DDS_ReturnCode_t DDS_DynamicData_get_long(const DDS_DynamicData *self, const char *path,
                                          int32_t *value) noexcept
{
    return getScalar(self, path, DDS_TK_LONG, DDS_TK_ENUM, value);
}

DDS_ReturnCode_t DDS_DynamicData_set_long(DDS_DynamicData *self, const char *path,
                                          int32_t value) noexcept
{
    Location location;
    const DDS_ReturnCode_t code = findScalar(*self, path, DDS_TK_LONG, DDS_TK_ENUM, location);
    if (code != DDS_RETCODE_OK) {
        return code;
    }
    if (location.type->kind == DDS_TK_ENUM && !isEnumerator(*location.type, value)) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    std::memcpy(self->bytes + location.start, &value, sizeof value);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t DDS_DynamicData_get_char(const DDS_DynamicData *self, const char *path,
                                          char *value) noexcept
{
    return getScalar(self, path, DDS_TK_CHAR, DDS_TK_CHAR, value);
}

DDS_ReturnCode_t DDS_DynamicData_set_char(DDS_DynamicData *self, const char *path,
                                          char value) noexcept
{
    return setScalar(self, path, DDS_TK_CHAR, value);
}

DDS_ReturnCode_t DDS_DynamicData_get_octet(const DDS_DynamicData *self, const char *path,
                                           uint8_t *value) noexcept
{
    return getScalar(self, path, DDS_TK_OCTET, DDS_TK_OCTET, value);
}

DDS_ReturnCode_t DDS_DynamicData_set_octet(DDS_DynamicData *self, const char *path,
                                           uint8_t value) noexcept
{
    return setScalar(self, path, DDS_TK_OCTET, value);
}

DDS_ReturnCode_t DDS_DynamicData_get_int8(const DDS_DynamicData *self, const char *path,
                                          int8_t *value) noexcept
{
    return getScalar(self, path, DDS_TK_INT8, DDS_TK_INT8, value);
}

DDS_ReturnCode_t DDS_DynamicData_set_int8(DDS_DynamicData *self, const char *path,
                                          int8_t value) noexcept
{
    return setScalar(self, path, DDS_TK_INT8, value);
}

DDS_ReturnCode_t DDS_DynamicData_get_short(const DDS_DynamicData *self, const char *path,
                                           int16_t *value) noexcept
{
    return getScalar(self, path, DDS_TK_SHORT, DDS_TK_SHORT, value);
}

DDS_ReturnCode_t DDS_DynamicData_set_short(DDS_DynamicData *self, const char *path,
                                           int16_t value) noexcept
{
    return setScalar(self, path, DDS_TK_SHORT, value);
}

DDS_ReturnCode_t DDS_DynamicData_get_ushort(const DDS_DynamicData *self, const char *path,
                                            uint16_t *value) noexcept
{
    return getScalar(self, path, DDS_TK_USHORT, DDS_TK_USHORT, value);
}

DDS_ReturnCode_t DDS_DynamicData_set_ushort(DDS_DynamicData *self, const char *path,
                                            uint16_t value) noexcept
{
    return setScalar(self, path, DDS_TK_USHORT, value);
}

DDS_ReturnCode_t DDS_DynamicData_get_ulong(const DDS_DynamicData *self, const char *path,
                                           uint32_t *value) noexcept
{
    return getScalar(self, path, DDS_TK_ULONG, DDS_TK_ULONG, value);
}

DDS_ReturnCode_t DDS_DynamicData_set_ulong(DDS_DynamicData *self, const char *path,
                                           uint32_t value) noexcept
{
    return setScalar(self, path, DDS_TK_ULONG, value);
}

DDS_ReturnCode_t DDS_DynamicData_get_longlong(const DDS_DynamicData *self, const char *path,
                                              int64_t *value) noexcept
{
    return getScalar(self, path, DDS_TK_LONGLONG, DDS_TK_LONGLONG, value);
}

DDS_ReturnCode_t DDS_DynamicData_set_longlong(DDS_DynamicData *self, const char *path,
                                              int64_t value) noexcept
{
    return setScalar(self, path, DDS_TK_LONGLONG, value);
}

DDS_ReturnCode_t DDS_DynamicData_get_ulonglong(const DDS_DynamicData *self, const char *path,
                                               uint64_t *value) noexcept
{
    return getScalar(self, path, DDS_TK_ULONGLONG, DDS_TK_ULONGLONG, value);
}

DDS_ReturnCode_t DDS_DynamicData_set_ulonglong(DDS_DynamicData *self, const char *path,
                                               uint64_t value) noexcept
{
    return setScalar(self, path, DDS_TK_ULONGLONG, value);
}

DDS_ReturnCode_t DDS_DynamicData_get_float(const DDS_DynamicData *self, const char *path,
                                           float *value) noexcept
{
    return getScalar(self, path, DDS_TK_FLOAT, DDS_TK_FLOAT, value);
}

DDS_ReturnCode_t DDS_DynamicData_set_float(DDS_DynamicData *self, const char *path,
                                           float value) noexcept
{
    return setScalar(self, path, DDS_TK_FLOAT, value);
}

DDS_ReturnCode_t DDS_DynamicData_get_double(const DDS_DynamicData *self, const char *path,
                                            double *value) noexcept
{
    return getScalar(self, path, DDS_TK_DOUBLE, DDS_TK_DOUBLE, value);
}

DDS_ReturnCode_t DDS_DynamicData_set_double(DDS_DynamicData *self, const char *path,
                                            double value) noexcept
{
    return setScalar(self, path, DDS_TK_DOUBLE, value);
}
