// Changing the size of a value in the middle of a sample. What comes behind moves; as CDR pads
// every value by its position, a move that is no multiple of the greatest alignment changes the
// paddings, so values are laid out anew one by one until old and new position agree again.
#include "sample.h"

#include <algorithm>

#include "qddscore/heap.h"

namespace qddsc {

namespace {

uint8_t *resizeBytes(uint8_t *bytes, uint64_t size)
{
    return static_cast<uint8_t *>(QELOsapiHeap_reallocateMemoryInternal(
        bytes, size, QEL_OSAPI_HEAP_DEFAULT_ALIGNMENT, "DDS_DynamicData_reserve",
        QEL_OSAPI_HEAP_ARRAY_TAG, "DDS_DynamicData bytes"));
}

/// Copies values from the sample's buffer into its scratch memory, as they will lie at their new
/// positions.
class Relocation {
public:
    Relocation(DDS_DynamicData &sample, uint64_t oldEnd, uint64_t newEnd)
        : sample_(sample), view_(sample.view()), from_(oldEnd), to_(newEnd), base_(newEnd)
    {
    }

    /// Copies the children of all frames that come behind; stops where the positions agree.
    DDS_ReturnCode_t run(const Location &location)
    {
        for (uint32_t depth = location.depth; depth-- > 0;) {
            const Frame &frame = location.frames[depth];
            for (uint32_t child = frame.next; child < frame.count; ++child) {
                if (!copy(childType(*frame.container, child))) {
                    return code_;
                }
            }
        }
        return DDS_RETCODE_OK;
    }

    uint64_t from() const
    {
        return from_;
    }
    uint64_t to() const
    {
        return to_;
    }

private:
    /// Whether the positions agree: then there is nothing left to do, the rest can be moved whole.
    bool agree()
    {
        const bool result = (to_ - from_) % sample_.root->layout.alignment == 0;
        code_ = result ? DDS_RETCODE_OK : code_;
        return result;
    }

    /// Makes `count` bytes of scratch ready at the new position.
    bool room(uint64_t count)
    {
        const uint64_t wanted = to_ - base_ + count;
        if (wanted > sample_.scratchCapacity) {
            const uint64_t capacity = std::max<uint64_t>(wanted + wanted / 2, 256);
            uint8_t *scratch = resizeBytes(sample_.scratch, capacity);
            if (scratch == nullptr) {
                code_ = DDS_RETCODE_OUT_OF_RESOURCES;
                return false;
            }
            sample_.scratch = scratch;
            sample_.scratchCapacity = capacity;
        }
        return true;
    }

    /// Copies `count` bytes of values of one size.
    bool copyBytes(uint32_t alignment, uint64_t count)
    {
        const uint64_t padding = alignUp(to_, alignment) - to_;
        from_ = alignUp(from_, alignment);
        if (!view_.holds(from_, count) || !room(padding + count)) {
            return false;
        }
        uint8_t *out = sample_.scratch + (to_ - base_);
        std::memset(out, 0, padding);
        std::memcpy(out + padding, view_.bytes + from_, count);
        from_ += count;
        to_ += padding + count;
        return true;
    }

    bool copyCounted(const SampleType &type)
    {
        uint64_t position = from_;
        uint32_t count = 0;
        if (!readCount(view_, position, count) || !copyBytes(sizeof count, sizeof count)) {
            return false;
        }
        return type.kind == DDS_TK_STRING ? copyBytes(1, count)
                                          : copyElements(*type.element, count);
    }

    bool copyElements(const SampleType &type, uint32_t count)
    {
        if (count > 0 && (isPrimitive(type.kind) || type.kind == DDS_TK_ENUM)) {
            if (agree()) {
                return false;
            }
            const uint32_t size = scalarSize(type.kind);
            return copyBytes(size, static_cast<uint64_t>(size) * count);
        }
        for (; count > 0; --count) {
            if (!copy(type)) {
                return false;
            }
        }
        return true;
    }

    /// Copies one value; false to stop, with the reason in code_.
    bool copy(const SampleType &type)
    {
        if (agree()) {
            return false;
        }
        switch (type.kind) {
        case DDS_TK_STRING:
        case DDS_TK_SEQUENCE:
            return copyCounted(type);
        case DDS_TK_ARRAY:
            return copyElements(*type.element, type.elementCount);
        case DDS_TK_STRUCT:
            return std::all_of(
                type.members.begin(), type.members.end(),
                [this](const qddscdr::Member &member) { return copy(*member.type); });
        default: {
            const uint32_t size = scalarSize(type.kind);
            return copyBytes(size, size);
        }
        }
    }

    DDS_DynamicData &sample_;
    const CdrView view_;
    uint64_t from_;
    uint64_t to_;
    const uint64_t base_;
    DDS_ReturnCode_t code_ = DDS_RETCODE_ERROR; // of a copy that stopped
};

/// Drops what is known about positions behind `from`, inside member `member` of the root.
void forgetBehind(const DDS_DynamicData &sample, uint32_t member, uint64_t from)
{
    const uint32_t known = static_cast<uint32_t>(sample.root->layout.offsets.size());
    sample.indexed = std::min(sample.indexed, member + 1 - std::min(member + 1, known));
    for (Cursor &cursor : sample.cursors) {
        if (cursor.position > from) {
            cursor.container = nullptr;
        }
    }
}

} // namespace

DDS_ReturnCode_t reserve(DDS_DynamicData &sample, uint64_t capacity)
{
    if (capacity > sample.limit) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    if (capacity <= sample.capacity) {
        return DDS_RETCODE_OK;
    }
    const uint64_t wanted =
        std::min(std::max(capacity, sample.capacity + sample.capacity / 2), sample.limit);
    uint8_t *bytes = resizeBytes(sample.bytes, wanted);
    if (bytes == nullptr) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    sample.bytes = bytes;
    sample.capacity = wanted;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t splice(DDS_DynamicData &sample, const Location &location, uint64_t from,
                        uint64_t oldEnd, uint64_t newEnd)
{
    if (newEnd > sample.limit) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    Relocation relocation(sample, oldEnd, newEnd);
    DDS_ReturnCode_t code = relocation.run(location);
    if (code != DDS_RETCODE_OK) {
        return code;
    }
    const uint64_t rest = sample.size - relocation.from();
    code = reserve(sample, relocation.to() + rest);
    if (code != DDS_RETCODE_OK) {
        return code;
    }
    std::memmove(sample.bytes + relocation.to(), sample.bytes + relocation.from(), rest);
    if (relocation.to() > newEnd) {
        std::memcpy(sample.bytes + newEnd, sample.scratch, relocation.to() - newEnd);
    }
    sample.size = relocation.to() + rest;
    forgetBehind(sample, location.frames[0].next - 1, from);
    return DDS_RETCODE_OK;
}

} // namespace qddsc
