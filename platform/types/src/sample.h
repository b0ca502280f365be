// A dynamic sample and the parts that work on it. Used by one thread at a time; its memory comes
// from the core heap.
#ifndef QDDSC_SRC_SAMPLE_H
#define QDDSC_SRC_SAMPLE_H

#include <array>

#include "qddsc/dynamic_data.h"
#include "qddscdr/walk.h"
#include "type_code.h"

namespace qddsc {

using qddscdr::alignUp;
using qddscdr::CdrView;
using qddscdr::isPrimitive;
using qddscdr::scalarSize;
/// Samples know their types by the records alone.
using SampleType = qddscdr::Type;

/// Remembers how far a walk over elements of variable size got.
struct Cursor {
    const SampleType *container; // null: nothing remembered
    uint64_t content;            // where its elements start
    uint64_t position;           // where element `index` starts
    uint32_t index;
};

constexpr uint32_t cursorCount = 4; // one for each of the outermost levels of sequences and arrays

} // namespace qddsc

/// A zeroed record is a valid one, so it is plain memory of the heap.
struct DDS_DynamicData {
    const DDS_TypeCode *type;  // as given at creation
    const qddscdr::Type *root; // the record of the struct it resolves to
    uint8_t *bytes;
    uint64_t size;
    uint64_t capacity;
    uint64_t limit;
    /// A stretch that is laid out anew while the buffer still holds the old one.
    uint8_t *scratch;
    uint64_t scratchCapacity;
    /// What reading found out about where things lie; a const sample fills it as well.
    mutable std::array<qddsc::Cursor, qddsc::cursorCount> cursors;
    /// Starts of the root's members behind the first one of variable size; `indexed` are known.
    mutable uint32_t indexed;
    uint32_t *index;

    qddscdr::CdrView view() const
    {
        return {bytes, size};
    }
};

namespace qddsc {

/// One container on the way to a value, and which of its children come behind that way.
struct Frame {
    const SampleType *container;
    uint32_t next;
    uint32_t count;
};

/// Where a path leads.
struct Location {
    const SampleType *type;
    uint64_t start;     // in front of its padding
    uint32_t dimension; // of an array: indices already given
    uint32_t depth;     // frames in use, at least one
    std::array<Frame, qddscdr::maxDepth> frames;
};

/// Follows a path. badParameter: no such path in the type; NO_DATA: an index past the end; ERROR:
/// the buffer is malformed.
DDS_ReturnCode_t resolve(const DDS_DynamicData &sample, const char *path, Location &location);

/// Forgets all positions (the buffer was replaced).
void forgetPositions(const DDS_DynamicData &sample);

/// Makes room for `capacity` bytes; outOfResources leaves the sample as it was.
DDS_ReturnCode_t reserve(DDS_DynamicData &sample, uint64_t capacity);

/// Gives the bytes from `from` to `oldEnd`, the last part of the value at `location`, the end
/// `newEnd` and lays out anew what comes behind. On success the caller fills `from` to `newEnd`;
/// else the sample is unchanged.
DDS_ReturnCode_t splice(DDS_DynamicData &sample, const Location &location, uint64_t from,
                        uint64_t oldEnd, uint64_t newEnd);

} // namespace qddsc

#endif
