// Typed access to the middleware heap. Everything the bridge owns natively comes from here, but for
// strings exchanged with DDS. New memory is zero.
#ifndef FERRYJNI_HEAP_H
#define FERRYJNI_HEAP_H

#include <cstddef>
#include <cstdint>

#include "qddscore/heap.h"

namespace ferryjni {

/// A zeroed record, or null; `typeName` is its C type as text.
template<class Record> Record *newStructure(const char *typeName) noexcept
{
    return static_cast<Record *>(QELOsapiHeap_reallocateMemoryInternal(
        nullptr, sizeof(Record), QEL_OSAPI_HEAP_DEFAULT_ALIGNMENT, "QELOsapiHeap_allocateStructure",
        QEL_OSAPI_HEAP_STRUCTURE_TAG, typeName));
}

inline int32_t freeStructure(void *record) noexcept
{
    return QELOsapiHeap_freeMemoryInternal(record, "QELOsapiHeap_freeStructure",
                                           QEL_OSAPI_HEAP_STRUCTURE_TAG);
}

/// A zeroed array of `count` elements, or null; `typeName` is the element's C type as text.
template<class Element> Element *newArray(int32_t count, const char *typeName) noexcept
{
    return static_cast<Element *>(QELOsapiHeap_reallocateMemoryInternal(
        nullptr, static_cast<size_t>(count) * sizeof(Element), QEL_OSAPI_HEAP_DEFAULT_ALIGNMENT,
        "QELOsapiHeap_allocateArray", QEL_OSAPI_HEAP_ARRAY_TAG, typeName));
}

/// `array` (may be null) with room for `count` elements, its contents kept and new slots zero; null
/// when memory is short, and then the old array stands.
template<class Element>
Element *resizedArray(Element *array, int32_t count, const char *typeName) noexcept
{
    return static_cast<Element *>(QELOsapiHeap_reallocateMemoryInternal(
        array, static_cast<size_t>(count) * sizeof(Element), QEL_OSAPI_HEAP_DEFAULT_ALIGNMENT,
        "QELOsapiHeap_reallocateArray", QEL_OSAPI_HEAP_ARRAY_TAG, typeName));
}

inline void freeArray(void *array) noexcept
{
    QELOsapiHeap_freeMemoryInternal(array, "QELOsapiHeap_freeArray", QEL_OSAPI_HEAP_ARRAY_TAG);
}

} // namespace ferryjni

#endif
