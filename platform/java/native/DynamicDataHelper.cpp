// Natives of com.qel.dds.dynamicdata.DynamicDataHelper: a sample crosses as one copy of its bytes,
// which have the same form on both sides. The caller owns the native sample.
#include <limits>

#include "native.h"
#include "qddsc/dynamic_data.h"

using namespace qddsjava;

namespace {

/// Results below 0; DynamicDataHelper.java has the same numbers.
constexpr jint otherType = -1;
constexpr jint noRoom = -2;

bool isOfType(const DDS_DynamicData *data, jlong resolvedType)
{
    return address(DDS_TypeCode_resolve(DDS_DynamicData_get_type(data))) == resolvedType;
}

} // namespace

QDDS_NATIVE(jint, Java_com_qel_dds_dynamicdata_DynamicDataHelper_push, jlong target, jlong type,
            jbyteArray bytes, jint size)
{
    auto *data = pointer<DDS_DynamicData>(target);
    if (!isOfType(data, type)) {
        return otherType;
    }
    uint8_t *place = DDS_DynamicData_loan_cdr(data, static_cast<size_t>(size));
    if (place == nullptr) {
        return noRoom;
    }
    env->GetByteArrayRegion(bytes, 0, size, reinterpret_cast<jbyte *>(place));
    return 0;
}

QDDS_NATIVE(jint, Java_com_qel_dds_dynamicdata_DynamicDataHelper_pull, jlong source, jlong type,
            jbyteArray bytes, jint room)
{
    const auto *data = pointer<const DDS_DynamicData>(source);
    if (!isOfType(data, type)) {
        return otherType;
    }
    size_t length = 0;
    const uint8_t *place = DDS_DynamicData_get_cdr(data, &length);
    static_assert(sizeof(jsize) <= sizeof length);
    // To ask the VM for the room would cost as much as a tenth of the whole crossing.
    if (length <= static_cast<size_t>(room)) {
        env->SetByteArrayRegion(bytes, 0, static_cast<jsize>(length),
                                reinterpret_cast<const jbyte *>(place));
    }
    // No sample is longer: that is a limit of CDR.
    return static_cast<jint>(length);
}

QDDS_NATIVE(jlong, Java_com_qel_dds_dynamicdata_DynamicDataHelper_typeOf, jlong data)
{
    return address(DDS_DynamicData_get_type(pointer<const DDS_DynamicData>(data)));
}
