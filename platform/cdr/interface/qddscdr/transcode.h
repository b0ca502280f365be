// Rewriting values from one form of CDR into another. Input may hold anything: what is structure
// (lengths, counts, delimiters) is checked here; what values may hold is left to checkCdr,
// which sees the result.
#ifndef QDDSCDR_TRANSCODE_H
#define QDDSCDR_TRANSCODE_H

#include "qddscdr/check.h"
#include "qddscdr/sink.h"

namespace qddscdr {

/// What forms of CDR differ in (XTypes 1.3, 7.4.3).
struct Form {
    uint32_t alignment; // the greatest
    bool swapped;       // big endian
    /// Size in bytes in front of appendable structs.
    bool delimitedStructs;
    /// The same in front of sequences and arrays, unless their elements are primitive.
    bool delimitedCollections;
};

/// The form of samples inside, and XCDR1.
constexpr Form plainForm = {8, false, false, false};
constexpr Form xcdr2Form = {4, false, true, true};
/// Keys alone: the engine leaves the delimiters of structs out, though not those of collections.
constexpr Form xcdr2KeyForm = {4, false, false, true};

/// Which members of structs with keys are there.
enum class Members {
    all,
    /// The source has all, the result only those that are keys; the source is in the plain form.
    keysOfAll,
    /// The source has only those that are keys; the result, in the plain form, has all, the others
    /// at their default.
    allOfKeys
};

/// Rewrites one value; used once.
class Transcoder {
public:
    Transcoder(const Form &from, const uint8_t *bytes, uint64_t size, const Form &to, Sink &sink,
               Members members = Members::all);

    /// `openEnd`: a root that is a struct may end before any of its members, which are at their
    /// default then. False: see problem().
    bool run(const Type &root, bool openEnd = false);

    /// How much of the source was read.
    uint64_t position() const
    {
        return position_;
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
    /// What a delimiter encloses, on both sides.
    struct Scope {
        bool delimited; // in the source
        bool marked;    // in the result
        uint64_t outerLimit;
        uint64_t mark;
    };

    bool fail(const char *problem);
    bool read(uint32_t alignment, uint64_t size, const uint8_t *&from);
    bool readWord(uint32_t &word);
    bool writeWord(uint32_t word);
    bool enter(bool delimited, bool marked, Scope &scope);
    bool leave(const Scope &scope, bool mayHoldMore);

    bool value(const Type &type);
    bool scalars(uint32_t size, uint64_t count);
    bool string();
    bool sequence(const Type &type);
    bool array(const Type &type);
    bool elements(const Type &type, uint64_t count, const Packed &packed);
    bool structure(const Type &type);
    bool members(const Type &type, uint32_t begin, uint32_t end, const Scope &scope);
    bool member(const Type &type, bool present);
    bool block(const Packed &packed, uint64_t count);
    bool isMissing(const Type &structure, const Type &next, const Scope &scope);
    bool defaults(const Type &type);

    const Form from_;
    const Form to_;
    const Members members_;
    const bool swap_;
    const uint8_t *bytes_;
    uint64_t size_;
    uint64_t limit_; // of what encloses the value being read
    uint64_t position_ = 0;
    Sink &sink_;
    const Type *root_ = nullptr;
    bool openEnd_ = false;
    uint64_t defaulted_ = 0;
    const char *problem_ = "";
    FailurePath path_;
};

} // namespace qddscdr

#endif
