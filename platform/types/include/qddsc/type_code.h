/* Type codes: immutable descriptions of data types, interned for the life of the process. Two
 * structurally equal types (names, members, keys, bounds, extensibility) are one object, so a
 * pointer is an identity and is never freed. Any thread may call; interning takes an inner lock. */
#ifndef QDDSC_TYPE_CODE_H
#define QDDSC_TYPE_CODE_H

#include <stddef.h>
#include <stdint.h>

#include "qddsc/common.h"
#include "qddsc/kind.h"

QDDSC_BEGIN

/** How a struct may evolve. On the wire (XCDR1) both are plain CDR. */
typedef enum DDS_ExtensibilityKind {
    DDS_EXTENSIBILITY_FINAL = 0,
    DDS_EXTENSIBILITY_APPENDABLE = 1
} DDS_ExtensibilityKind;

typedef struct DDS_TypeCode DDS_TypeCode;

/** A member of a struct to be made. Strings are copied. */
struct DDS_StructMember {
    const char *name;
    const DDS_TypeCode *type;
    /** 1 when the member is part of the key. */
    int32_t isKey;
};

/** An enumerator of an enum to be made. */
struct DDS_EnumMember {
    const char *name;
    int32_t value;
};

/** A member of a struct and the value that a new sample has there. */
struct DDS_MemberDefault {
    const char *member;
    /** A number, TRUE or FALSE, an enumerator's name; of a string or char the text as it is. */
    const char *value;
};

/* Making types. All return the interned type, or null with `error` (may be null) filled. Structs, a
 * base included, sequences and arrays nest at most 64 levels deep, and a default sample must stay
 * below 2 GiB. Default values are 0, "", the first enumerator, no elements. */

/** A primitive type (DDS_TK_BOOLEAN to DDS_TK_DOUBLE). */
QDDSC_API const DDS_TypeCode *DDS_TypeCode_get_primitive(DDS_TCKind kind) QDDSC_NOEXCEPT;

/** A string of at most `bound` bytes without its NUL; 0 is unbounded. */
QDDSC_API const DDS_TypeCode *
DDS_TypeCode_create_string(uint32_t bound, struct DDS_ErrorText *error) QDDSC_NOEXCEPT;

/** A sequence of at most `bound` elements; 0 is unbounded. An array as element needs a name: pass
 * an alias of it. */
QDDSC_API const DDS_TypeCode *
DDS_TypeCode_create_sequence(const DDS_TypeCode *element, uint32_t bound,
                             struct DDS_ErrorText *error) QDDSC_NOEXCEPT;

/** An array; `dimensions` are outermost first, each at least 1. Its element is no array either, but
 * may be an alias of one. */
QDDSC_API const DDS_TypeCode *DDS_TypeCode_create_array(const DDS_TypeCode *element,
                                                        const uint32_t *dimensions,
                                                        uint32_t dimensionCount,
                                                        struct DDS_ErrorText *error) QDDSC_NOEXCEPT;

/** A second name for a type (IDL typedef). Names are scoped with "::" everywhere here. */
QDDSC_API const DDS_TypeCode *DDS_TypeCode_create_alias(const char *name,
                                                        const DDS_TypeCode *target,
                                                        struct DDS_ErrorText *error) QDDSC_NOEXCEPT;

/** An enumeration of at least one enumerator, with distinct names and values. (Negative values are
 * for types of other systems: IDL cannot express them here.) */
QDDSC_API const DDS_TypeCode *DDS_TypeCode_create_enum(const char *name,
                                                       const struct DDS_EnumMember *members,
                                                       uint32_t count,
                                                       struct DDS_ErrorText *error) QDDSC_NOEXCEPT;

/** A struct of at least one member, its base's included, with distinct names. `base` may be null or
 * a struct of the same extensibility; its members come first. Only a struct without a base may
 * declare keys. A key member may be of any type that holds no sequence; of a struct that has keys
 * itself only these count. */
QDDSC_API const DDS_TypeCode *
DDS_TypeCode_create_struct(const char *name, const DDS_TypeCode *base,
                           DDS_ExtensibilityKind extensibility,
                           const struct DDS_StructMember *members, uint32_t count,
                           struct DDS_ErrorText *error) QDDSC_NOEXCEPT;

/** The same struct as IDL declares it with @nested: not meant for a topic of its own. Samples do
 * not show it, but peers compare it, so the two are different types. An alias is taken off. */
QDDSC_API const DDS_TypeCode *
DDS_TypeCode_create_nested(const DDS_TypeCode *structure,
                           struct DDS_ErrorText *error) QDDSC_NOEXCEPT;

/** The same struct with defaults for some of its members, which are of a primitive kind, enums or
 * strings; a value that the member cannot have is an error. A member that is missing on the wire
 * has it, too. Peers do not see it, yet the two are different types. An alias is taken off. */
QDDSC_API const DDS_TypeCode *
DDS_TypeCode_create_with_defaults(const DDS_TypeCode *structure,
                                  const struct DDS_MemberDefault *defaults, uint32_t count,
                                  struct DDS_ErrorText *error) QDDSC_NOEXCEPT;

/** What is known of a topic's type that nobody looks into. */
struct DDS_OpaqueType {
    /** 1 when samples have keys, whatever these are. */
    int32_t isKeyed;
    /** The type information that a peer announces, and the type objects that it names, both as
     * XTypes 1.3 serializes them (little-endian XCDR2, without a header); 0 bytes for none. */
    const uint8_t *information;
    size_t informationSize;
    const uint8_t *mapping;
    size_t mappingSize;
};

/** A type of which a sample holds a message as it was received: a final struct whose only member is
 * `serialized`, a sequence of octets, the encapsulation header first. The end of an instance holds
 * the message that reported it.
 *
 * @param name any name but "", as a peer announces it; need not be one of IDL.
 */
QDDSC_API const DDS_TypeCode *
DDS_TypeCode_create_opaque(const char *name, const struct DDS_OpaqueType *opaque,
                           struct DDS_ErrorText *error) QDDSC_NOEXCEPT;

/* Looking at types. `self` must not be null; what a function does not apply to gives null or 0. */

QDDSC_API DDS_TCKind DDS_TypeCode_get_kind(const DDS_TypeCode *self) QDDSC_NOEXCEPT;
/** Scoped name of a struct, enum or alias; null for other kinds. */
QDDSC_API const char *DDS_TypeCode_get_name(const DDS_TypeCode *self) QDDSC_NOEXCEPT;
/** The type with all aliases taken off (its members may still be aliases). */
QDDSC_API const DDS_TypeCode *DDS_TypeCode_resolve(const DDS_TypeCode *self) QDDSC_NOEXCEPT;
/** Base of a struct, or null. */
QDDSC_API const DDS_TypeCode *DDS_TypeCode_get_base(const DDS_TypeCode *self) QDDSC_NOEXCEPT;
QDDSC_API DDS_ExtensibilityKind DDS_TypeCode_get_extensibility(const DDS_TypeCode *self)
    QDDSC_NOEXCEPT;
/** Target of an alias, element of a sequence or array. */
QDDSC_API const DDS_TypeCode *DDS_TypeCode_get_content(const DDS_TypeCode *self) QDDSC_NOEXCEPT;
/** Bound of a string or sequence, 0 when unbounded. */
QDDSC_API uint32_t DDS_TypeCode_get_bound(const DDS_TypeCode *self) QDDSC_NOEXCEPT;
QDDSC_API uint32_t DDS_TypeCode_get_dimension_count(const DDS_TypeCode *self) QDDSC_NOEXCEPT;
QDDSC_API uint32_t DDS_TypeCode_get_dimension(const DDS_TypeCode *self,
                                              uint32_t index) QDDSC_NOEXCEPT;
/** Members of a struct, those of its base first; enumerators of an enum. */
QDDSC_API uint32_t DDS_TypeCode_get_member_count(const DDS_TypeCode *self) QDDSC_NOEXCEPT;
QDDSC_API const char *DDS_TypeCode_get_member_name(const DDS_TypeCode *self,
                                                   uint32_t index) QDDSC_NOEXCEPT;
QDDSC_API const DDS_TypeCode *DDS_TypeCode_get_member_type(const DDS_TypeCode *self,
                                                           uint32_t index) QDDSC_NOEXCEPT;
QDDSC_API int32_t DDS_TypeCode_is_member_key(const DDS_TypeCode *self,
                                             uint32_t index) QDDSC_NOEXCEPT;
/** Default of a struct's member as `size` bytes of CDR (little endian, without padding in front);
 * null where it is that of the member's type. */
QDDSC_API const uint8_t *DDS_TypeCode_get_member_default(const DDS_TypeCode *self, uint32_t index,
                                                         size_t *size) QDDSC_NOEXCEPT;
/** Value of an enumerator. */
QDDSC_API int32_t DDS_TypeCode_get_member_value(const DDS_TypeCode *self,
                                                uint32_t index) QDDSC_NOEXCEPT;
/** 1 when the type is an appendable struct, or there is one anywhere in it. */
QDDSC_API int32_t DDS_TypeCode_holds_appendable(const DDS_TypeCode *self) QDDSC_NOEXCEPT;
/** 1 when the struct is declared @nested. */
QDDSC_API int32_t DDS_TypeCode_is_nested(const DDS_TypeCode *self) QDDSC_NOEXCEPT;
/** 1 when the struct or its base has a key member. */
QDDSC_API int32_t DDS_TypeCode_is_keyed(const DDS_TypeCode *self) QDDSC_NOEXCEPT;
/** What an opaque type was made with, or null. It lives as long as the type. An alias is taken off.
 */
QDDSC_API const struct DDS_OpaqueType *
DDS_TypeCode_get_opaque(const DDS_TypeCode *self) QDDSC_NOEXCEPT;

/**
 * Writes the type and every named type it uses as IDL that DDS_TypeLibrary_add_idl_text accepts and
 * turns into the same type. That holds for every type that came from IDL; one made by hand may have
 * names that IDL does not allow together (a module and a type, enumerators of two enums in one
 * module) or negative enumerators.
 *
 * @return a string owned by the caller (DDS_String_free), or null when memory is short.
 */
QDDSC_API char *DDS_TypeCode_to_idl(const DDS_TypeCode *self) QDDSC_NOEXCEPT;

/**
 * Says in what two structs (or other types) differ: the first difference, with the path to it, for
 * people: "weather::Observation.position.lat: double here, float there". Aliases are seen through.
 * Differences that change samples come before those that do not (names of types, a base, @nested,
 * the order of enumerators). Not looked at are defaults, notations of a name, and char against
 * int8, which peers do not tell apart.
 *
 * @param mine   "here" in the text.
 * @param theirs "there" in the text.
 * @param text   filled on 1 only; may be null.
 * @return 0 when there is no difference, else 1; 1 with a text that says so when memory is short.
 */
QDDSC_API int32_t DDS_TypeCode_explain_difference(const DDS_TypeCode *mine,
                                                  const DDS_TypeCode *theirs,
                                                  struct DDS_ErrorText *text) QDDSC_NOEXCEPT;

/** 1 when two names mean one type: "std_msgs::msg::String", "std_msgs/msg/String", which ROS 2
 * shows, and "std_msgs::msg::dds_::String_", which it announces. Neither is null. */
QDDSC_API int32_t DDS_TypeName_is_same(const char *left, const char *right) QDDSC_NOEXCEPT;

/** A set of named types read from IDL. Not to be used by two threads at once. */
typedef struct DDS_TypeLibrary DDS_TypeLibrary;

/** An empty library, owned by the caller (DDS_TypeLibrary_delete); null when memory is short. */
QDDSC_API DDS_TypeLibrary *DDS_TypeLibrary_new(void) QDDSC_NOEXCEPT;
/** Forgets the names; the types themselves live on. Null does nothing. */
QDDSC_API void DDS_TypeLibrary_delete(DDS_TypeLibrary *self) QDDSC_NOEXCEPT;

/**
 * Adds every struct, enum and typedef of an IDL text that a type code can stand for. What it cannot
 * (unions, interfaces, wide strings, optional members and others) is left out with all that uses
 * it, and DDS_TypeLibrary_get_note() and DDS_TypeLibrary_explain_left_out() say so. So is what uses
 * a name with modules that nothing defines. A mistake in the text rejects the whole text.
 *
 * A text stands for itself: it cannot use names of texts added before, but may repeat their
 * definitions, as a name that the library already has must mean the same type. On failure nothing
 * of the text is added.
 *
 * #include, #define, conditions and the pragmas "keylist" and "DCPS_DATA_KEY" are obeyed; other
 * pragmas are for other programs. Files are looked for beside the file that includes them, then in
 * the include path; none outside of these folders is read, and each comes once.
 *
 * A struct without an annotation of its extensibility is final. @key, @final, @appendable, @nested,
 * @default_nested and @value are carried; @topic changes nothing. Some are accepted where they ask
 * for what is so anyway (@id with the number the member has, @optional(FALSE), @bit_bound(32),
 * @default_literal on the first enumerator); where they do not, the definition is left out. All
 * others do not change samples and are passed over, see DDS_TypeLibrary_get_note(), but for one
 * that looks like a misspelt one of these. Capitals do not matter. @default gives a member of a
 * primitive kind, an enum or a string its default.
 *
 * @param text       NUL-terminated.
 * @param sourceName stands before line and column in errors ("weather.idl:3:9: ...").
 * @return 1, or 0 with `error` (may be null) filled.
 */
QDDSC_API int32_t DDS_TypeLibrary_add_idl_text(DDS_TypeLibrary *self, const char *text,
                                               const char *sourceName,
                                               struct DDS_ErrorText *error) QDDSC_NOEXCEPT;

/** The same from a file; its path is the source name. */
QDDSC_API int32_t DDS_TypeLibrary_add_idl_file(DDS_TypeLibrary *self, const char *path,
                                               struct DDS_ErrorText *error) QDDSC_NOEXCEPT;

/**
 * Sets where texts that are added from now on find what they include, in this order.
 *
 * @param folders `count` of them, copied; may be null if that is 0.
 * @return 1, or 0 when memory is short: then the path is empty or what it was.
 */
QDDSC_API int32_t DDS_TypeLibrary_set_include_path(DDS_TypeLibrary *self,
                                                   const char *const *folders,
                                                   uint32_t count) QDDSC_NOEXCEPT;

/**
 * What has no effect in the texts that were added, and what was left out, a line each:
 * "weather.idl:3: @range has no effect", "weather.idl:9:1: "weather::Either" is left out: union
 * Either is not supported".
 *
 * @return the text, which lives until the library is changed; null behind the last one.
 */
QDDSC_API const char *DDS_TypeLibrary_get_note(const DDS_TypeLibrary *self,
                                               uint32_t index) QDDSC_NOEXCEPT;

/** The type of that scoped name ("weather::Observation"), else one whose name is the same in
 * another notation (DDS_TypeName_is_same()), or null. */
QDDSC_API const DDS_TypeCode *DDS_TypeLibrary_find(const DDS_TypeLibrary *self,
                                                   const char *name) QDDSC_NOEXCEPT;
/**
 * Why a type that the texts define is not among those of the library: "weather.idl:12:3: it uses
 * "weather::Either"; weather.idl:9:1: union Either is not supported".
 *
 * @param name as for DDS_TypeLibrary_find(); null for the last struct of the text that was added
 *             last.
 * @param text filled on 1 only; may be null.
 * @return 1 if the type was left out, else 0.
 */
QDDSC_API int32_t DDS_TypeLibrary_explain_left_out(const DDS_TypeLibrary *self, const char *name,
                                                   struct DDS_ErrorText *text) QDDSC_NOEXCEPT;

/** Number of named types, and each of them in the order of their declaration. */
QDDSC_API uint32_t DDS_TypeLibrary_get_count(const DDS_TypeLibrary *self) QDDSC_NOEXCEPT;
QDDSC_API const DDS_TypeCode *DDS_TypeLibrary_get_at(const DDS_TypeLibrary *self,
                                                     uint32_t index) QDDSC_NOEXCEPT;

QDDSC_END

#endif
