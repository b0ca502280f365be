// Natives of com.qel.dds.subscription.SampleInfoHelper: sample infos cross in a direct buffer, laid
// out as the native record, which belongs to the calling thread.
#include <array>
#include <cstddef>
#include <cstring>
#include <type_traits>

#include "native.h"
#include "qddsc/sample_info.h"

using namespace qddsjava;

static_assert(std::is_trivially_copyable_v<DDS_SampleInfo>);
static_assert(sizeof(DDS_SampleInfo) == 108 && offsetof(DDS_SampleInfo, instance_handle) == 32 &&
                  offsetof(DDS_SampleInfo, publication_sequence_number) == 100,
              "SampleInfoHelper.java has the same numbers");

QDDS_NATIVE(void, Java_com_qel_dds_subscription_SampleInfoHelper_store, jlong record, jlong buffer)
{
    std::memcpy(pointer<DDS_SampleInfo>(record), pointer<void>(buffer), sizeof(DDS_SampleInfo));
}

QDDS_NATIVE(void, Java_com_qel_dds_subscription_SampleInfoHelper_load, jlong record, jlong buffer)
{
    std::memcpy(pointer<void>(buffer), pointer<DDS_SampleInfo>(record), sizeof(DDS_SampleInfo));
}

QDDS_NATIVE(jlong, Java_com_qel_dds_subscription_SampleInfoHelper_addressOf, jobject buffer)
{
    return address(env->GetDirectBufferAddress(buffer));
}

extern "C" JNIEXPORT jintArray JNICALL
Java_com_qel_dds_subscription_SampleInfoHelper_layout(JNIEnv *env, jclass self);

/// Offsets in the order in which the Java class lists them.
extern "C" JNIEXPORT jintArray JNICALL
Java_com_qel_dds_subscription_SampleInfoHelper_layout(JNIEnv *env, jclass /*self*/)
{
    constexpr size_t number = offsetof(DDS_SampleInfo, publication_sequence_number);
    constexpr std::array<size_t, 19> offsets = {
        offsetof(DDS_SampleInfo, sample_state),
        offsetof(DDS_SampleInfo, view_state),
        offsetof(DDS_SampleInfo, instance_state),
        offsetof(DDS_SampleInfo, valid_data),
        offsetof(DDS_SampleInfo, source_timestamp),
        offsetof(DDS_SampleInfo, reception_timestamp),
        offsetof(DDS_SampleInfo, instance_handle),
        offsetof(DDS_SampleInfo, publication_handle),
        offsetof(DDS_SampleInfo, disposed_generation_count),
        offsetof(DDS_SampleInfo, no_writers_generation_count),
        offsetof(DDS_SampleInfo, sample_rank),
        offsetof(DDS_SampleInfo, generation_rank),
        offsetof(DDS_SampleInfo, absolute_generation_rank),
        number + offsetof(DDS_SequenceNumber_t, high),
        number + offsetof(DDS_SequenceNumber_t, low),
        sizeof(DDS_SampleInfo),
        offsetof(DDS_Time_t, nanosec),
        offsetof(DDS_InstanceHandle_t, length),
        offsetof(DDS_InstanceHandle_t, isValid)};
    const jintArray result = env->NewIntArray(static_cast<jsize>(offsets.size()));
    for (size_t i = 0; result != nullptr && i < offsets.size(); ++i) {
        const jint offset = static_cast<jint>(offsets[i]);
        env->SetIntArrayRegion(result, static_cast<jsize>(i), 1, &offset);
    }
    return result;
}
