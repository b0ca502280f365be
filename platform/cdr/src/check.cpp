// See check.h.
#include "qddscdr/check.h"

#include "qddscdr/error_text.h"

namespace qddscdr {

namespace {

class Checker {
public:
    Checker(const CdrView &view, uint8_t *clear) : view_(view), clear_(clear) {}

    bool value(const Type &type)
    {
        switch (type.kind) {
        case DDS_TK_STRING:
            return string(type);
        case DDS_TK_SEQUENCE:
            return sequence(type);
        case DDS_TK_ARRAY:
            return elements(type, type.elementCount);
        case DDS_TK_STRUCT:
            return structure(type);
        default:
            return scalars(type, 1);
        }
    }

    uint64_t position() const
    {
        return position_;
    }
    bool padded() const
    {
        return padded_;
    }
    const char *problem() const
    {
        return problem_;
    }
    const char *path() const
    {
        return path_.text();
    }

private:
    bool fail(const char *problem)
    {
        problem_ = problem;
        return false;
    }

    bool align(uint32_t alignment)
    {
        const uint64_t next = alignUp(position_, alignment);
        if (next > view_.size) {
            return fail("the sample ends early");
        }
        for (; position_ < next; ++position_) {
            padded_ = padded_ || view_.bytes[position_] != 0;
            if (clear_ != nullptr) {
                clear_[position_] = 0;
            }
        }
        return true;
    }

    bool count(uint32_t &value)
    {
        if (!align(sizeof value) || !view_.holds(position_, sizeof value)) {
            return fail("the sample ends early");
        }
        value = view_.count(position_);
        position_ += sizeof value;
        return true;
    }

    bool string(const Type &type)
    {
        uint32_t length = 0;
        if (!count(length)) {
            return false;
        }
        if (length == 0 || !view_.holds(position_, length)) {
            return fail("a string's length passes the end of the sample or is 0");
        }
        const uint8_t *text = view_.bytes + position_;
        const void *end = std::memchr(text, 0, length);
        if (end != text + length - 1) {
            return fail(end == nullptr ? "a string does not end in NUL" : "a string holds a NUL");
        }
        if (type.bound != 0 && length - 1 > type.bound) {
            return fail("a string is longer than its bound");
        }
        position_ += length;
        return true;
    }

    bool sequence(const Type &type)
    {
        uint32_t length = 0;
        if (!count(length)) {
            return false;
        }
        if (type.bound != 0 && length > type.bound) {
            return fail("a sequence is longer than its bound");
        }
        return elements(type, length);
    }

    bool elements(const Type &container, uint32_t length)
    {
        const Type &type = *container.element;
        if (length > (view_.size - position_) / type.layout.minimum) {
            return fail("the elements pass the end of the sample");
        }
        if (isPrimitive(type.kind) || type.kind == DDS_TK_ENUM) {
            return length == 0 || scalars(type, length);
        }
        if (length > 0 && type.kind == DDS_TK_STRUCT && block(container.layout.elements, length)) {
            return true;
        }
        for (uint32_t i = 0; i < length; ++i) {
            if (!value(type)) {
                path_.prependIndex(i);
                return false;
            }
        }
        return true;
    }

    bool structure(const Type &type)
    {
        for (const Run &run : type.layout.runs) {
            for (uint32_t i = block(run.packed, 1) ? run.end : run.begin; i < run.end; ++i) {
                if (!value(*type.members[i].type)) {
                    path_.prependMember(type.members[i].name);
                    return false;
                }
            }
        }
        return true;
    }

    /// Passes scalars as a whole; false when that does not go, and one by one may.
    bool block(const Packed &packed, uint64_t count)
    {
        if (packed.bytes == 0 || !align(packed.alignment) || !isPackedAt(packed.plain, position_) ||
            !view_.holds(position_, packed.bytes * count)) {
            return false;
        }
        for (uint64_t i = 0; i < count && !packed.strict.empty(); ++i) {
            for (const StrictScalar &scalar : packed.strict) {
                const uint64_t at = position_ + i * packed.bytes + scalar.offset;
                if (scalar.type->kind == DDS_TK_BOOLEAN
                        ? view_.bytes[at] > 1
                        : !isEnumerator(*scalar.type, static_cast<int32_t>(view_.count(at)))) {
                    return false;
                }
            }
        }
        position_ += packed.bytes * count;
        return true;
    }

    /// Booleans, enums and numbers, `length` of them in a row.
    bool scalars(const Type &type, uint64_t length)
    {
        const uint32_t size = scalarSize(type.kind);
        if (!align(size) || !view_.holds(position_, length * size)) {
            return fail("the sample ends early");
        }
        const uint64_t end = position_ + length * size;
        for (; type.kind == DDS_TK_BOOLEAN && position_ < end; ++position_) {
            if (view_.bytes[position_] > 1) {
                return fail("a boolean is neither 0 nor 1");
            }
        }
        for (; type.kind == DDS_TK_ENUM && position_ < end; position_ += size) {
            if (!isEnumerator(type, static_cast<int32_t>(view_.count(position_)))) {
                return fail("an enum holds a value that is not an enumerator");
            }
        }
        position_ = end;
        return true;
    }

    const CdrView view_;
    uint8_t *clear_; // where padding is cleared, or null
    uint64_t position_ = 0;
    bool padded_ = false;
    const char *problem_ = "";
    FailurePath path_;
};

} // namespace

bool checkCdr(const Type &root, const CdrView &view, uint64_t &size, bool &padded,
              DDS_ErrorText *error)
{
    Checker checker(view, nullptr);
    const bool good = checker.value(root);
    if (!good) {
        setError(error, "%s: %s: %s (byte %llu of %llu)", root.name.data(), checker.path(),
                 checker.problem(), static_cast<unsigned long long>(checker.position()),
                 static_cast<unsigned long long>(view.size));
        return false;
    }
    if (view.size - checker.position() > maxTrailer) {
        setError(error, "%s: the sample ends at byte %llu of %llu", root.name.data(),
                 static_cast<unsigned long long>(checker.position()),
                 static_cast<unsigned long long>(view.size));
        return false;
    }
    size = checker.position();
    padded = checker.padded();
    return true;
}

void clearPadding(const Type &root, uint8_t *bytes, uint64_t size)
{
    Checker checker({bytes, size}, bytes);
    checker.value(root);
}

} // namespace qddscdr
