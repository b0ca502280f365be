// Native samples and records that the Java unit tests hold against Java objects. Errors come back
// as return codes.
#include <array>
#include <string>

#include <jni.h>

#include "../../platform/scalars.h"
#include "qddsc/sample_info.h"

// Declares a static native method of the class Peer and begins its definition.
#define PEER(result, name, ...)                                                                    \
    extern "C" JNIEXPORT result JNICALL Java_com_qel_dds_units_Peer_##name(JNIEnv *, jclass,       \
                                                                           __VA_ARGS__);           \
    extern "C" JNIEXPORT result JNICALL Java_com_qel_dds_units_Peer_##name(                        \
        [[maybe_unused]] JNIEnv *env, jclass, __VA_ARGS__)

namespace {

DDS_DynamicData *sample(jlong address)
{
    return reinterpret_cast<DDS_DynamicData *>(address);
}

std::string bytesOf(JNIEnv *env, jbyteArray array)
{
    std::string bytes(static_cast<size_t>(env->GetArrayLength(array)), '\0');
    env->GetByteArrayRegion(array, 0, static_cast<jsize>(bytes.size()),
                            reinterpret_cast<jbyte *>(bytes.data()));
    return bytes;
}

constexpr jsize INFO_FIELDS = 20;

// The fields of a record by name, in one order for both directions.
template<typename Visit> void visitInfo(DDS_SampleInfo &info, Visit visit)
{
    visit(info.sample_state);
    visit(info.view_state);
    visit(info.instance_state);
    visit(info.valid_data);
    visit(info.source_timestamp.sec);
    visit(info.source_timestamp.nanosec);
    visit(info.reception_timestamp.sec);
    visit(info.reception_timestamp.nanosec);
    visit(info.instance_handle.keyHash[0]);
    visit(info.instance_handle.keyHash[15]);
    visit(info.instance_handle.isValid);
    visit(info.publication_handle.keyHash[15]);
    visit(info.publication_handle.isValid);
    visit(info.disposed_generation_count);
    visit(info.no_writers_generation_count);
    visit(info.sample_rank);
    visit(info.generation_rank);
    visit(info.absolute_generation_rank);
    visit(info.publication_sequence_number.high);
    visit(info.publication_sequence_number.low);
}

} // namespace

PEER(jlong, create, jlong type, jint limit)
{
    const DDS_DynamicDataProperty_t property{0, limit};
    return reinterpret_cast<jlong>(
        DDS_DynamicData_new(reinterpret_cast<const DDS_TypeCode *>(type), &property));
}

PEER(void, delete, jlong data)
{
    DDS_DynamicData_delete(sample(data));
}

PEER(jbyteArray, cdr, jlong data)
{
    size_t length = 0;
    const uint8_t *bytes = DDS_DynamicData_get_cdr(sample(data), &length);
    const jbyteArray array = env->NewByteArray(static_cast<jsize>(length));
    env->SetByteArrayRegion(array, 0, static_cast<jsize>(length),
                            reinterpret_cast<const jbyte *>(bytes));
    return array;
}

PEER(jint, setCdr, jlong data, jbyteArray bytes)
{
    const std::string from = bytesOf(env, bytes);
    return DDS_DynamicData_set_cdr(sample(data), reinterpret_cast<const uint8_t *>(from.data()),
                                   from.size(), nullptr);
}

// Puts bytes into a sample that nobody has checked.
PEER(void, loan, jlong data, jbyteArray bytes)
{
    const std::string from = bytesOf(env, bytes);
    from.copy(reinterpret_cast<char *>(DDS_DynamicData_loan_cdr(sample(data), from.size())),
              from.size());
}

PEER(jint, setString, jlong data, jbyteArray path, jbyteArray text)
{
    const std::string value = bytesOf(env, text);
    return DDS_DynamicData_set_string(sample(data), bytesOf(env, path).c_str(), value.data(),
                                      value.size());
}

PEER(jint, setNumber, jlong data, jbyteArray path, jint kind, jlong bits)
{
    const std::string name = bytesOf(env, path);
    if (kind == DDS_TK_SEQUENCE) {
        return DDS_DynamicData_set_length(sample(data), name.c_str(), static_cast<uint32_t>(bits));
    }
    return SCALARS[accessKind(static_cast<DDS_TCKind>(kind))].set(sample(data), name.c_str(),
                                                                  static_cast<uint64_t>(bits));
}

PEER(jlong, createInfo, jlongArray values)
{
    std::array<jlong, INFO_FIELDS> fields{};
    env->GetLongArrayRegion(values, 0, INFO_FIELDS, fields.data());
    auto *info = new DDS_SampleInfo();
    size_t next = 0;
    visitInfo(*info, [&](auto &field) {
        field = static_cast<std::remove_reference_t<decltype(field)>>(fields[next++]);
    });
    return reinterpret_cast<jlong>(info);
}

PEER(jlongArray, takeInfo, jlong address)
{
    auto *info = reinterpret_cast<DDS_SampleInfo *>(address);
    std::array<jlong, INFO_FIELDS> fields{};
    size_t next = 0;
    visitInfo(*info, [&](const auto &field) { fields[next++] = static_cast<jlong>(field); });
    delete info;
    const jlongArray values = env->NewLongArray(INFO_FIELDS);
    env->SetLongArrayRegion(values, 0, INFO_FIELDS, fields.data());
    return values;
}
