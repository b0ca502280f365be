// What has to hold for the member tables and the record that they fill, checked when this is
// compiled: a wrong row is a build error, not a null ID in the field.
#ifndef FERRYJNI_MEMBERTABLECHECK_H
#define FERRYJNI_MEMBERTABLECHECK_H

#include <cstddef>
#include <iterator>
#include <string_view>
#include <type_traits>

#include "MemberTable.h"

namespace ferryjni::check {

constexpr size_t rowCount = 78;
constexpr size_t referenceCount = 23;

constexpr bool sameSlot(const MemberRow &a, const MemberRow &b)
{
    return a.classSlot == b.classSlot && a.methodSlot == b.methodSlot &&
           a.fieldSlot == b.fieldSlot && a.objectSlot == b.objectSlot;
}

/// The one slot that the row's kind calls for is set, and no other.
constexpr bool slotMatchesKind(const MemberRow &row)
{
    const bool isClass = row.kind == MemberKind::classRef;
    const bool isMethod = row.kind == MemberKind::method || row.kind == MemberKind::staticMethod;
    const bool isField = row.kind == MemberKind::field || row.kind == MemberKind::staticField;
    const bool isObject = row.kind == MemberKind::staticObject;
    return (row.classSlot != nullptr) == isClass && (row.methodSlot != nullptr) == isMethod &&
           (row.fieldSlot != nullptr) == isField && (row.objectSlot != nullptr) == isObject;
}

constexpr bool isClassName(std::string_view name)
{
    return !name.empty() && name.front() != '/' && name.back() != '/' &&
           name.find_first_of(".;[") == std::string_view::npos;
}

/// Characters of the type descriptor (JVMS 4.3.2) that `text` begins with; 0 when it is none.
constexpr size_t descriptorLength(std::string_view text)
{
    size_t at = 0;
    while (at < text.size() && text[at] == '[') {
        ++at;
    }
    if (at == text.size()) {
        return 0;
    }
    if (text[at] != 'L') {
        return std::string_view("ZBCSIJFD").find(text[at]) == std::string_view::npos ? 0 : at + 1;
    }
    const size_t end = text.find(';', at);
    return end == std::string_view::npos || !isClassName(text.substr(at + 1, end - at - 1))
               ? 0
               : end + 1;
}

constexpr bool isMethodSignature(std::string_view text)
{
    if (text.empty() || text.front() != '(') {
        return false;
    }
    text.remove_prefix(1);
    while (!text.empty() && text.front() != ')') {
        const size_t length = descriptorLength(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    if (text.empty()) {
        return false;
    }
    text.remove_prefix(1);
    return text == "V" || (!text.empty() && descriptorLength(text) == text.size());
}

constexpr bool textsAreWellFormed(const MemberRow &row)
{
    if (row.missing == nullptr || row.missing[0] == '\0') {
        return false;
    }
    switch (row.kind) {
    case MemberKind::classRef:
        return isClassName(row.name) && row.signature == nullptr && row.noGlobalRef != nullptr;
    case MemberKind::method:
    case MemberKind::staticMethod:
        return row.name[0] != '\0' && isMethodSignature(row.signature);
    case MemberKind::field:
    case MemberKind::staticField:
        return row.name[0] != '\0' &&
               descriptorLength(row.signature) == std::string_view(row.signature).size();
    case MemberKind::staticObject:
        return row.noGlobalRef != nullptr;
    }
    return false;
}

constexpr bool tableHolds()
{
    for (size_t i = 0; i < std::size(memberTable); ++i) {
        const MemberRow &row = memberTable[i];
        if (!slotMatchesKind(row) || !textsAreWellFormed(row)) {
            return false;
        }
        if (row.kind == MemberKind::staticObject &&
            (i == 0 || memberTable[i - 1].kind != MemberKind::staticField)) {
            return false;
        }
        for (size_t j = 0; j < i; ++j) {
            if (sameSlot(row, memberTable[j])) {
                return false;
            }
        }
    }
    return memberTable[0].kind == MemberKind::classRef;
}

/// Every class and object row's slot stands in the release table exactly once.
constexpr bool releaseTableHolds()
{
    size_t references = 0;
    for (const MemberRow &row : memberTable) {
        if (row.classSlot == nullptr && row.objectSlot == nullptr) {
            continue;
        }
        ++references;
        size_t times = 0;
        for (const ReferenceSlot &slot : releaseTable) {
            if (slot.classSlot == row.classSlot && slot.objectSlot == row.objectSlot) {
                ++times;
            }
        }
        if (times != 1) {
            return false;
        }
    }
    return references == referenceCount;
}

static_assert(std::size(memberTable) == rowCount);
static_assert(tableHolds());
static_assert(std::size(releaseTable) == referenceCount);
static_assert(releaseTableHolds());

// The record's layout: VM, policy flag, then one pointer an entry, in the record's own order.
static_assert(std::is_standard_layout_v<FERRYJNIGlobal>);
static_assert(offsetof(FERRYJNIGlobal, javaVM) == 0);
static_assert(offsetof(FERRYJNIGlobal, destroyJavaVM) == 8);
static_assert(sizeof(FERRYJNIGlobal) == 16 + rowCount * sizeof(void *));
#define ENTRY(number, name) static_assert(offsetof(FERRYJNIGlobal, name) == 8 + (number)*8)
// clang-format off
ENTRY(1, adapterClass);
ENTRY(2, adapterCreateConnection);
ENTRY(3, adapterDeleteConnection);
ENTRY(4, adapterGetVersion);
ENTRY(5, versionClass);
ENTRY(6, versionGetMajorNumber);
ENTRY(7, versionGetMinorNumber);
ENTRY(8, versionGetReleaseNumber);
ENTRY(9, versionGetRevisionNumber);
ENTRY(10, entityClass);
ENTRY(11, entityUpdate);
ENTRY(12, connectionClass);
ENTRY(13, connectionCreateSession);
ENTRY(14, connectionDeleteSession);
ENTRY(15, connectionCreateStreamReader);
ENTRY(16, connectionDeleteStreamReader);
ENTRY(17, connectionCreateStreamWriter);
ENTRY(18, connectionDeleteStreamWriter);
ENTRY(19, connectionGetAttributes);
ENTRY(20, connectionToString);
ENTRY(21, streamReaderClass);
ENTRY(22, streamReaderRead);
ENTRY(23, streamReaderReturnLoan);
ENTRY(24, streamWriterClass);
ENTRY(25, streamWriterWrite);
ENTRY(26, streamReaderListenerImplClass);
ENTRY(27, streamReaderListenerImplInit);
ENTRY(28, streamInfoClass);
ENTRY(29, streamInfoInit);
ENTRY(30, streamInfoGetStreamName);
ENTRY(31, streamInfoGetTypeInfo);
ENTRY(32, streamInfoIsDisposed);
ENTRY(33, typeInfoClass);
ENTRY(34, typeInfoInit);
ENTRY(35, typeInfoGetTypeName);
ENTRY(36, typeInfoGetTypeRepresentation);
ENTRY(37, propertiesClass);
ENTRY(38, propertiesInit);
ENTRY(39, propertiesClear);
ENTRY(40, propertiesSetProperty);
ENTRY(41, propertiesPropertyNames);
ENTRY(42, propertiesGetProperty);
ENTRY(43, propertiesSize);
ENTRY(44, enumerationClass);
ENTRY(45, enumerationHasMoreElements);
ENTRY(46, enumerationNextElement);
ENTRY(47, discoveryConnectionClass);
ENTRY(48, discoveryConnectionGetInputStreamDiscoveryReader);
ENTRY(49, discoveryConnectionGetOutputStreamDiscoveryReader);
ENTRY(50, dynamicDataClass);
ENTRY(51, dynamicDataInit);
ENTRY(52, dynamicDataPropertyDefaultField);
ENTRY(53, dynamicDataPropertyDefault);
ENTRY(54, dynamicDataTypeSupportClass);
ENTRY(55, dynamicDataTypeSupportTypePropertyDefaultField);
ENTRY(56, dynamicDataTypeSupportTypePropertyDefault);
ENTRY(57, sampleInfoHelperClass);
ENTRY(58, sampleInfoHelperPushToNativeI);
ENTRY(59, sampleInfoHelperPullFromNativeI);
ENTRY(60, dynamicDataHelperClass);
ENTRY(61, dynamicDataHelperPushToNativeI);
ENTRY(62, dynamicDataHelperPullFromNativeI);
ENTRY(63, typeCodeClass);
ENTRY(64, typeCodeGetNativeTypecode);
ENTRY(65, typeCodeCreateFromNative);
ENTRY(66, arrayListClass);
ENTRY(67, arrayListInit);
ENTRY(68, listClass);
ENTRY(69, listClear);
ENTRY(70, listAdd);
ENTRY(71, listSize);
ENTRY(72, listGet);
ENTRY(73, sampleInfoClass);
ENTRY(74, sampleInfoInit);
ENTRY(75, sampleInfoInstanceStateField);
ENTRY(76, sampleInfoValidDataField);
ENTRY(77, throwableClass);
ENTRY(78, throwableGetMessage); // clang-format on
#undef ENTRY

} // namespace ferryjni::check

#endif
