// Natives of com.qel.dds.typecode.TypeNatives: looks at type codes, which live for ever, and reads
// IDL. Texts cross as UTF-8 bytes: JNI's own strings are not UTF-8.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>

#include "native.h"
#include "qddsc/string.h"
#include "qddsc/type_code.h"

using namespace qddsjava;

namespace {

const DDS_TypeCode *typeAt(jlong address)
{
    return pointer<const DDS_TypeCode>(address);
}

/// Null for null, and when memory is short: then an exception is pending.
jbyteArray toBytes(JNIEnv *env, const char *text)
{
    if (text == nullptr) {
        return nullptr;
    }
    const auto length = static_cast<jsize>(std::strlen(text));
    const jbyteArray bytes = env->NewByteArray(length);
    if (bytes != nullptr) {
        env->SetByteArrayRegion(bytes, 0, length, reinterpret_cast<const jbyte *>(text));
    }
    return bytes;
}

/// A text that Java passed with its NUL. Owns a copy; null for null, and when memory is short.
class Text {
public:
    Text(JNIEnv *env, jbyteArray bytes)
    {
        if (bytes != nullptr) {
            const jsize length = env->GetArrayLength(bytes);
            text_ = DDS_String_alloc(static_cast<size_t>(length));
            if (text_ != nullptr) {
                env->GetByteArrayRegion(bytes, 0, length, reinterpret_cast<jbyte *>(text_));
            }
        }
    }
    Text(const Text &) = delete;
    Text &operator=(const Text &) = delete;
    ~Text()
    {
        DDS_String_free(text_);
    }

    const char *get() const
    {
        return text_;
    }

private:
    char *text_ = nullptr;
};

const DDS_TypeCode *findLastStruct(const DDS_TypeLibrary *library)
{
    for (uint32_t i = DDS_TypeLibrary_get_count(library); i > 0; --i) {
        const DDS_TypeCode *type = DDS_TypeLibrary_get_at(library, i - 1);
        if (DDS_TypeCode_get_kind(type) == DDS_TK_STRUCT) {
            return type;
        }
    }
    return nullptr;
}

/// The type wanted, or null with the reason in `error`.
const DDS_TypeCode *parse(DDS_TypeLibrary *library, const char *source, bool isFile,
                          const char *wanted, DDS_ErrorText &error)
{
    const char *sourceName = isFile ? source : "idl";
    if (!(isFile ? DDS_TypeLibrary_add_idl_file(library, source, &error)
                 : DDS_TypeLibrary_add_idl_text(library, source, sourceName, &error))) {
        return nullptr;
    }
    const DDS_TypeCode *type =
        wanted != nullptr ? DDS_TypeLibrary_find(library, wanted) : findLastStruct(library);
    if ((type == nullptr || wanted == nullptr) &&
        DDS_TypeLibrary_explain_left_out(library, wanted, &error)) {
        return nullptr;
    }
    if (type == nullptr && wanted != nullptr) {
        std::snprintf(error.text, sizeof error.text, "%.400s: no type is named %.400s", sourceName,
                      wanted);
    } else if (type == nullptr) {
        std::snprintf(error.text, sizeof error.text, "%.400s: no struct is declared", sourceName);
    }
    return type;
}

} // namespace

QDDS_NATIVE(jint, Java_com_qel_dds_typecode_TypeNatives_kind0, jlong type)
{
    return static_cast<jint>(DDS_TypeCode_get_kind(typeAt(type)));
}

QDDS_NATIVE(jbyteArray, Java_com_qel_dds_typecode_TypeNatives_name0, jlong type)
{
    return toBytes(env, DDS_TypeCode_get_name(typeAt(type)));
}

QDDS_NATIVE(jlong, Java_com_qel_dds_typecode_TypeNatives_content, jlong type)
{
    return address(DDS_TypeCode_get_content(typeAt(type)));
}

QDDS_NATIVE(jlong, Java_com_qel_dds_typecode_TypeNatives_base, jlong type)
{
    return address(DDS_TypeCode_get_base(typeAt(type)));
}

QDDS_NATIVE(jboolean, Java_com_qel_dds_typecode_TypeNatives_isAppendable, jlong type)
{
    const bool appendable =
        DDS_TypeCode_get_extensibility(typeAt(type)) == DDS_EXTENSIBILITY_APPENDABLE;
    return appendable ? JNI_TRUE : JNI_FALSE;
}

QDDS_NATIVE(jboolean, Java_com_qel_dds_typecode_TypeNatives_isKeyed, jlong type)
{
    return DDS_TypeCode_is_keyed(typeAt(type)) != 0 ? JNI_TRUE : JNI_FALSE;
}

/// No sample can reach a bound that an int cannot hold.
QDDS_NATIVE(jint, Java_com_qel_dds_typecode_TypeNatives_bound, jlong type)
{
    constexpr uint32_t most = std::numeric_limits<jint>::max();
    return static_cast<jint>(std::min(DDS_TypeCode_get_bound(typeAt(type)), most));
}

QDDS_NATIVE(jintArray, Java_com_qel_dds_typecode_TypeNatives_dimensions, jlong type)
{
    const uint32_t count = DDS_TypeCode_get_dimension_count(typeAt(type));
    const jintArray dimensions = env->NewIntArray(static_cast<jsize>(count));
    for (uint32_t i = 0; dimensions != nullptr && i < count; ++i) {
        const auto dimension = static_cast<jint>(DDS_TypeCode_get_dimension(typeAt(type), i));
        env->SetIntArrayRegion(dimensions, static_cast<jsize>(i), 1, &dimension);
    }
    return dimensions;
}

QDDS_NATIVE(jint, Java_com_qel_dds_typecode_TypeNatives_memberCount, jlong type)
{
    return static_cast<jint>(DDS_TypeCode_get_member_count(typeAt(type)));
}

QDDS_NATIVE(jbyteArray, Java_com_qel_dds_typecode_TypeNatives_memberName, jlong type, jint index)
{
    return toBytes(env, DDS_TypeCode_get_member_name(typeAt(type), static_cast<uint32_t>(index)));
}

QDDS_NATIVE(jlong, Java_com_qel_dds_typecode_TypeNatives_memberType, jlong type, jint index)
{
    return address(DDS_TypeCode_get_member_type(typeAt(type), static_cast<uint32_t>(index)));
}

QDDS_NATIVE(jboolean, Java_com_qel_dds_typecode_TypeNatives_isMemberKey, jlong type, jint index)
{
    const int32_t isKey = DDS_TypeCode_is_member_key(typeAt(type), static_cast<uint32_t>(index));
    return isKey != 0 ? JNI_TRUE : JNI_FALSE;
}

QDDS_NATIVE(jbyteArray, Java_com_qel_dds_typecode_TypeNatives_memberDefault, jlong type, jint index)
{
    size_t size = 0;
    const uint8_t *const bytes =
        DDS_TypeCode_get_member_default(typeAt(type), static_cast<uint32_t>(index), &size);
    const auto length = static_cast<jsize>(size);
    const jbyteArray result = bytes != nullptr ? env->NewByteArray(length) : nullptr;
    if (result != nullptr) {
        env->SetByteArrayRegion(result, 0, length, reinterpret_cast<const jbyte *>(bytes));
    }
    return result;
}

QDDS_NATIVE(jint, Java_com_qel_dds_typecode_TypeNatives_memberValue, jlong type, jint index)
{
    return DDS_TypeCode_get_member_value(typeAt(type), static_cast<uint32_t>(index));
}

QDDS_NATIVE(jbyteArray, Java_com_qel_dds_typecode_TypeNatives_idl0, jlong type)
{
    char *idl = DDS_TypeCode_to_idl(typeAt(type));
    if (idl == nullptr) {
        throwOutOfMemory(env, "no memory for the IDL of a type");
        return nullptr;
    }
    const jbyteArray bytes = toBytes(env, idl);
    DDS_String_free(idl);
    return bytes;
}

QDDS_NATIVE(jlong, Java_com_qel_dds_typecode_TypeNatives_parse0, jbyteArray source, jboolean isFile,
            jbyteArray typeName, jobjectArray error)
{
    const Text text(env, source);
    const Text wanted(env, typeName);
    DDS_TypeLibrary *library = DDS_TypeLibrary_new();
    if (text.get() == nullptr || library == nullptr ||
        (typeName != nullptr && wanted.get() == nullptr)) {
        DDS_TypeLibrary_delete(library);
        throwOutOfMemory(env, "no memory to read IDL");
        return 0;
    }
    DDS_ErrorText reason{};
    const DDS_TypeCode *type = parse(library, text.get(), isFile == JNI_TRUE, wanted.get(), reason);
    DDS_TypeLibrary_delete(library);
    const jbyteArray bytes = type == nullptr ? toBytes(env, reason.text) : nullptr;
    if (bytes != nullptr) {
        env->SetObjectArrayElement(error, 0, bytes);
    }
    return address(type);
}
