// See transcode.h.
#include "qddscdr/transcode.h"

namespace qddscdr {

namespace {

/// Members that a message lacks may make its sample so many times as large as the message, beyond
/// one default sample: else a few bytes could claim any amount of memory.
constexpr uint64_t maxDefaultsPerByte = 64;

constexpr const char *endsEarly = "the payload ends early";

template<typename Word, Word (*Swap)(Word)>
void copySwapped(uint8_t *to, const uint8_t *from, uint64_t count)
{
    for (uint64_t i = 0; i < count; ++i) {
        Word word;
        std::memcpy(&word, from + i * sizeof word, sizeof word);
        word = Swap(word);
        std::memcpy(to + i * sizeof word, &word, sizeof word);
    }
}

uint16_t swap16(uint16_t word)
{
    return __builtin_bswap16(word);
}
uint32_t swap32(uint32_t word)
{
    return __builtin_bswap32(word);
}
uint64_t swap64(uint64_t word)
{
    return __builtin_bswap64(word);
}

void copyScalars(uint8_t *to, const uint8_t *from, uint32_t size, uint64_t count, bool swap)
{
    if (!swap || size == 1) {
        std::memcpy(to, from, size * count);
    } else if (size == 2) {
        copySwapped<uint16_t, swap16>(to, from, count);
    } else if (size == 4) {
        copySwapped<uint32_t, swap32>(to, from, count);
    } else {
        copySwapped<uint64_t, swap64>(to, from, count);
    }
}

uint8_t residues(const Packed &packed, const Form &form)
{
    return form.alignment == plainForm.alignment ? packed.plain : packed.xcdr2;
}

} // namespace

Transcoder::Transcoder(const Form &from, const uint8_t *bytes, uint64_t size, const Form &to,
                       Sink &sink, Members members)
    : from_(from), to_(to), members_(members), swap_(from.swapped != to.swapped), bytes_(bytes),
      size_(size), limit_(size), sink_(sink)
{
}

bool Transcoder::run(const Type &root, bool openEnd)
{
    root_ = &root;
    openEnd_ = openEnd;
    return value(root);
}

bool Transcoder::fail(const char *problem)
{
    problem_ = problem;
    return false;
}

bool Transcoder::read(uint32_t alignment, uint64_t size, const uint8_t *&from)
{
    const uint64_t begin = alignUp(position_, std::min(alignment, from_.alignment));
    if (begin > limit_ || size > limit_ - begin) {
        return fail(endsEarly);
    }
    from = bytes_ + begin;
    position_ = begin + size;
    return true;
}

bool Transcoder::readWord(uint32_t &word)
{
    const uint8_t *from = nullptr;
    if (!read(sizeof word, sizeof word, from)) {
        return false;
    }
    std::memcpy(&word, from, sizeof word);
    word = from_.swapped ? __builtin_bswap32(word) : word;
    return true;
}

bool Transcoder::writeWord(uint32_t word)
{
    uint8_t *to = sink_.place(sizeof word, sizeof word);
    if (to == nullptr) {
        return fail("the sample is too large");
    }
    word = to_.swapped ? __builtin_bswap32(word) : word;
    std::memcpy(to, &word, sizeof word);
    return true;
}

bool Transcoder::enter(bool delimited, bool marked, Scope &scope)
{
    scope = {delimited, marked, limit_, 0};
    if (delimited) {
        uint32_t size = 0;
        if (!readWord(size)) {
            return false;
        }
        if (size > limit_ - position_) {
            return fail("a delimiter passes the end of what encloses it");
        }
        limit_ = position_ + size;
    }
    if (marked) {
        if (!writeWord(0)) {
            return false;
        }
        scope.mark = sink_.position();
    }
    return true;
}

bool Transcoder::leave(const Scope &scope, bool mayHoldMore)
{
    if (scope.delimited) {
        if (position_ != limit_ && !mayHoldMore) {
            return fail("a delimiter is not the size of its elements");
        }
        position_ = limit_;
        limit_ = scope.outerLimit;
    }
    if (scope.marked) {
        auto size = static_cast<uint32_t>(sink_.position() - scope.mark);
        size = to_.swapped ? __builtin_bswap32(size) : size;
        std::memcpy(sink_.at(scope.mark - sizeof size), &size, sizeof size);
    }
    return true;
}

bool Transcoder::value(const Type &type)
{
    switch (type.kind) {
    case DDS_TK_STRING:
        return string();
    case DDS_TK_SEQUENCE:
        return sequence(type);
    case DDS_TK_ARRAY:
        return array(type);
    case DDS_TK_STRUCT:
        return structure(type);
    default:
        return scalars(scalarSize(type.kind), 1);
    }
}

bool Transcoder::scalars(uint32_t size, uint64_t count)
{
    const uint8_t *from = nullptr;
    if (!read(size, size * count, from)) {
        return false;
    }
    uint8_t *to = sink_.place(std::min(size, to_.alignment), size * count);
    if (to == nullptr) {
        return fail("the sample is too large");
    }
    copyScalars(to, from, size, count, swap_);
    return true;
}

bool Transcoder::string()
{
    uint32_t length = 0;
    return readWord(length) && writeWord(length) && scalars(1, length);
}

bool Transcoder::sequence(const Type &type)
{
    const Type &element = *type.element;
    const bool delimited = !isPrimitive(element.kind);
    Scope scope;
    uint32_t count = 0;
    return enter(delimited && from_.delimitedCollections, delimited && to_.delimitedCollections,
                 scope) &&
           readWord(count) && writeWord(count) && elements(element, count, type.layout.elements) &&
           leave(scope, false);
}

bool Transcoder::array(const Type &type)
{
    uint64_t count = 0;
    const Type &element = innermostElement(type, count);
    const bool delimited = !isPrimitive(element.kind);
    Scope scope;
    return enter(delimited && from_.delimitedCollections, delimited && to_.delimitedCollections,
                 scope) &&
           elements(element, count, type.layout.elements) && leave(scope, false);
}

bool Transcoder::elements(const Type &type, uint64_t count, const Packed &packed)
{
    // Every element takes a byte at least, also one whose members are missing.
    if (count > limit_ - position_) {
        return fail("the elements pass the end of the payload");
    }
    if (isPrimitive(type.kind) || type.kind == DDS_TK_ENUM) {
        return count == 0 || scalars(scalarSize(type.kind), count);
    }
    if (count > 0 && block(packed, count)) {
        return true;
    }
    for (uint64_t i = 0; i < count; ++i) {
        if (!value(type)) {
            path_.prependIndex(i);
            return false;
        }
    }
    return true;
}

bool Transcoder::structure(const Type &type)
{
    const bool appendable = type.appendable;
    Scope scope;
    if (!enter(appendable && from_.delimitedStructs, appendable && to_.delimitedStructs, scope)) {
        return false;
    }
    if (members_ != Members::all && type.keyed) {
        auto end = static_cast<uint32_t>(type.members.size());
        if (&type == root_ && members_ == Members::keysOfAll) {
            for (; !type.members[end - 1].isKey; --end) {
            }
        }
        return members(type, 0, end, scope) && leave(scope, true);
    }
    for (const Run &run : type.layout.runs) {
        if (!block(run.packed, 1) && !members(type, run.begin, run.end, scope)) {
            return false;
        }
    }
    return leave(scope, true);
}

bool Transcoder::members(const Type &type, uint32_t begin, uint32_t end, const Scope &scope)
{
    const bool keysOnly = members_ != Members::all && type.keyed;
    for (uint32_t i = begin; i < end; ++i) {
        const Member &next = type.members[i];
        const Type &inner = *next.type;
        const bool good = isMissing(type, inner, scope) ? defaults(inner)
                                                        : member(inner, !keysOnly || next.isKey);
        if (!good) {
            path_.prependMember(next.name);
            return false;
        }
    }
    return true;
}

/// Copies scalars as a whole; false when that does not go, and one by one may.
bool Transcoder::block(const Packed &packed, uint64_t count)
{
    if (packed.bytes == 0 || swap_ || members_ != Members::all) {
        return false;
    }
    const uint32_t alignment = std::min(packed.alignment, to_.alignment);
    const uint64_t size = packed.bytes * count;
    const uint64_t begin = alignUp(position_, std::min(packed.alignment, from_.alignment));
    if (begin > limit_ || size > limit_ - begin || !isPackedAt(residues(packed, from_), begin) ||
        !isPackedAt(residues(packed, to_), alignUp(sink_.position(), alignment))) {
        return false;
    }
    uint8_t *to = sink_.place(alignment, size);
    if (to == nullptr) {
        return false;
    }
    std::memcpy(to, bytes_ + begin, size);
    position_ = begin + size;
    return true;
}

/// `present`: on both sides.
bool Transcoder::member(const Type &type, bool present)
{
    if (present) {
        return value(type);
    }
    return members_ == Members::allOfKeys
               ? defaults(type)
               : skipValue({bytes_, size_}, type, position_) || fail(endsEarly);
}

bool Transcoder::isMissing(const Type &structure, const Type &next, const Scope &scope)
{
    if (scope.delimited) {
        return position_ == limit_;
    }
    // Up to three bytes of padding end a message without telling that they are padding.
    return openEnd_ && &structure == root_ &&
           limit_ - position_ < std::min<uint64_t>(next.layout.minimum, sizeof(uint32_t));
}

bool Transcoder::defaults(const Type &type)
{
    const uint64_t begin = sink_.position();
    const uint64_t size = skipDefaults(type, begin, 1) - begin;
    defaulted_ += size;
    const uint64_t atMost = root_->layout.size[0] + maxDefaultsPerByte * size_;
    if (members_ == Members::all && defaulted_ > atMost) {
        return fail("so many members are missing that the sample would be far larger than its "
                    "payload");
    }
    if (sink_.place(1, size) == nullptr) {
        return fail("the sample is too large");
    }
    writeDefaults(sink_.at(0), type, begin, 1);
    return true;
}

} // namespace qddscdr
