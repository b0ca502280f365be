// Native samples and records that the Java unit tests hold against Java objects. Errors come back
// as return codes.
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

// A record as it lies in memory.
constexpr jsize INFO_WORDS = sizeof(DDS_SampleInfo) / sizeof(jint);

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

PEER(jlong, createInfo, jintArray words)
{
    auto *info = new DDS_SampleInfo();
    env->GetIntArrayRegion(words, 0, INFO_WORDS, reinterpret_cast<jint *>(info));
    return reinterpret_cast<jlong>(info);
}

PEER(jintArray, takeInfo, jlong address)
{
    const auto *info = reinterpret_cast<const jint *>(address);
    const jintArray words = env->NewIntArray(INFO_WORDS);
    env->SetIntArrayRegion(words, 0, INFO_WORDS, info);
    delete reinterpret_cast<DDS_SampleInfo *>(address);
    return words;
}
