// Why two types are not the same, for people. Pairs found equal are remembered: types from outside
// may use each other so often that walking every path would never end.
#include <algorithm>
#include <set>

#include <fmt/format.h>

#include "type_code.h"
#include "type_name.h"

namespace qddsc {

namespace {

/// A type as a reader of IDL would write it, aliases taken off.
std::string typeText(const DDS_TypeCode &type)
{
    const std::string bound = type.bound != 0 ? std::to_string(type.bound) : "";
    switch (type.kind) {
    case DDS_TK_STRING:
        return bound.empty() ? "string" : "string<" + bound + ">";
    case DDS_TK_SEQUENCE:
        return "sequence<" + typeText(*type.content->resolved) +
               (bound.empty() ? ">" : ", " + bound + ">");
    case DDS_TK_ARRAY: {
        const DDS_TypeCode &element = *type.content->resolved;
        std::string text = typeText(element);
        if (element.kind == DDS_TK_ARRAY) {
            text = "(" + text + ")";
        }
        for (const uint32_t dimension : type.dimensions) {
            text += "[" + std::to_string(dimension) + "]";
        }
        return text;
    }
    case DDS_TK_ENUM:
        return "enum " + type.name;
    case DDS_TK_STRUCT:
        return "struct " + type.name;
    default:
        return qddscdr::idlNames[type.kind];
    }
}

/// What peers announce as char.
bool isByteSized(DDS_TCKind kind)
{
    return kind == DDS_TK_CHAR || kind == DDS_TK_INT8;
}

class Comparison {
public:
    /// When `onlyShape`, names of types do not count, nor does whether members were inherited, nor
    /// the order of enumerators, nor int8 against char, which some peers cannot distinguish.
    explicit Comparison(bool onlyShape) : onlyShape_(onlyShape) {}

    /// Fills text() and returns false at the first difference.
    bool equal(const DDS_TypeCode &mine, const DDS_TypeCode &theirs, const std::string &path)
    {
        const DDS_TypeCode &here = *mine.resolved;
        const DDS_TypeCode &there = *theirs.resolved;
        if (&here == &there || equal_.count({&here, &there}) != 0) {
            return true;
        }
        if (!equalHead(here, there, path)) {
            return false;
        }
        bool same = true;
        switch (here.kind) {
        case DDS_TK_STRUCT:
            same = equalStructs(here, there, path);
            break;
        case DDS_TK_ENUM:
            same = equalMembers(here, there, path, "enumerator");
            break;
        case DDS_TK_SEQUENCE:
        case DDS_TK_ARRAY:
            same = equal(*here.content, *there.content, path + "[]");
            break;
        default:
            break;
        }
        if (same) {
            equal_.insert({&here, &there});
        }
        return same;
    }

    const std::string &text() const
    {
        return text_;
    }

private:
    bool differ(const std::string &path, const std::string &here, const std::string &there)
    {
        text_ = fmt::format("{}: {} here, {} there", path, here, there);
        return false;
    }

    /// What the types themselves say, not what they are made of.
    bool equalHead(const DDS_TypeCode &here, const DDS_TypeCode &there, const std::string &path)
    {
        const bool sameKind =
            here.kind == there.kind || (isByteSized(here.kind) && isByteSized(there.kind));
        if (!sameKind || here.bound != there.bound || here.dimensions != there.dimensions ||
            (!onlyShape_ && plainTypeName(here.name) != plainTypeName(there.name))) {
            return differ(path, typeText(here), typeText(there));
        }
        return true;
    }

    static std::string baseText(const DDS_TypeCode &type)
    {
        return type.base != nullptr ? fmt::format("base {}", type.base->name) : "no base";
    }

    bool equalStructs(const DDS_TypeCode &here, const DDS_TypeCode &there, const std::string &path)
    {
        if (here.extensibility != there.extensibility) {
            const bool final = here.extensibility == DDS_EXTENSIBILITY_FINAL;
            return differ(path, final ? "final" : "appendable", final ? "appendable" : "final");
        }
        if (!onlyShape_ && baseText(here) != baseText(there)) {
            return differ(path, baseText(here), baseText(there));
        }
        if (!onlyShape_ && here.nested != there.nested) {
            return differ(path, here.nested ? "nested" : "not nested",
                          there.nested ? "nested" : "not nested");
        }
        return equalMembers(here, there, path, "member");
    }

    static const Member *named(const DDS_TypeCode &type, const std::string &name)
    {
        const uint32_t index = findMember(type, name);
        return index != UINT32_MAX ? &type.members[index] : nullptr;
    }

    bool equalMembers(const DDS_TypeCode &here, const DDS_TypeCode &there, const std::string &path,
                      const char *what)
    {
        const size_t count = std::max(here.members.size(), there.members.size());
        for (size_t i = 0; i < count; ++i) {
            const Member *mine = i < here.members.size() ? &here.members[i] : nullptr;
            const Member *theirs = i < there.members.size() ? &there.members[i] : nullptr;
            if (mine != nullptr && named(there, mine->name) == nullptr) {
                text_ = fmt::format("{}.{}: {} here only", path, mine->name, what);
                return false;
            }
            if (theirs != nullptr && named(here, theirs->name) == nullptr) {
                text_ = fmt::format("{}.{}: {} there only", path, theirs->name, what);
                return false;
            }
            if (mine == nullptr || theirs == nullptr) {
                break; // never: names are distinct, so with none missing both are as many
            }
            // The order of enumerators is for readers only.
            const bool isOrdered = !onlyShape_ || here.kind == DDS_TK_STRUCT;
            if (isOrdered && mine->name != theirs->name) {
                return differ(fmt::format("{}, {} {}", path, what, i + 1), mine->name,
                              theirs->name);
            }
            if (!equalMember(*mine, *named(there, mine->name), path + "." + mine->name)) {
                return false;
            }
        }
        return true;
    }

    bool equalMember(const Member &mine, const Member &theirs, const std::string &path)
    {
        if (mine.isKey != theirs.isKey) {
            return differ(path, mine.isKey ? "key" : "not key", theirs.isKey ? "key" : "not key");
        }
        if (mine.type == nullptr) {
            return mine.value == theirs.value ||
                   differ(path, std::to_string(mine.value), std::to_string(theirs.value));
        }
        return equal(*mine.type, *theirs.type, path);
    }

    bool onlyShape_;
    std::string text_;
    std::set<std::pair<const DDS_TypeCode *, const DDS_TypeCode *>> equal_;
};

} // namespace

} // namespace qddsc

int32_t DDS_TypeCode_explain_difference(const DDS_TypeCode *mine, const DDS_TypeCode *theirs,
                                        DDS_ErrorText *text) noexcept
{
    try {
        for (const bool onlyShape : {true, false}) {
            qddsc::Comparison comparison(onlyShape);
            const DDS_TypeCode &here = *mine->resolved;
            const std::string path = here.name.empty() ? "type" : here.name;
            if (!comparison.equal(here, *theirs, path)) {
                qddsc::setError(text, "%s", comparison.text().c_str());
                return 1;
            }
        }
        return 0;
    } catch (...) {
        qddsc::setError(text, "memory is short");
        return 1;
    }
}
