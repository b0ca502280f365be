// See type_rules.h.
#include "type_rules.h"

#include <algorithm>

namespace qddsc {

namespace {

bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool isIdentifier(std::string_view name)
{
    return !name.empty() && isLetter(name.front()) &&
           std::all_of(name.begin(), name.end(),
                       [](char c) { return isLetter(c) || (c >= '0' && c <= '9'); });
}

/// The first name that occurs twice, or null.
const std::string *findDuplicate(const DDS_TypeCode &type)
{
    std::vector<const std::string *> names;
    for (const Member &member : type.members) {
        names.push_back(&member.name);
    }
    const auto less = [](const std::string *a, const std::string *b) { return *a < *b; };
    const auto equal = [](const std::string *a, const std::string *b) { return *a == *b; };
    std::sort(names.begin(), names.end(), less);
    const auto found = std::adjacent_find(names.begin(), names.end(), equal);
    return found != names.end() ? *found : nullptr;
}

bool checkDistinct(const DDS_TypeCode &type, const char *what, DDS_ErrorText *error)
{
    const std::string *name = findDuplicate(type);
    if (name != nullptr) {
        setError(error, "%s has two %ss named %s", type.name.c_str(), what, name->c_str());
    }
    return name == nullptr;
}

} // namespace

bool checkTypeName(const char *name, DDS_ErrorText *error)
{
    std::string_view rest = name != nullptr ? name : "";
    for (size_t end = rest.find("::"); end != std::string_view::npos; end = rest.find("::")) {
        if (!isIdentifier(rest.substr(0, end))) {
            break;
        }
        rest.remove_prefix(end + 2);
    }
    if (!isIdentifier(rest)) {
        setError(error, "\"%s\" is not the scoped name of a type", name != nullptr ? name : "");
        return false;
    }
    return true;
}

bool checkMemberName(const char *owner, const char *name, DDS_ErrorText *error)
{
    if (name == nullptr || !isIdentifier(name)) {
        setError(error, "%s: \"%s\" is not an identifier", owner, name != nullptr ? name : "");
        return false;
    }
    return true;
}

bool checkBase(const DDS_TypeCode &structure, DDS_ErrorText *error)
{
    const char *name = structure.name.c_str();
    if (structure.extensibility != DDS_EXTENSIBILITY_FINAL &&
        structure.extensibility != DDS_EXTENSIBILITY_APPENDABLE) {
        setError(error,
                 "%s: extensibility is neither final nor appendable; mutable types are not "
                 "supported",
                 name);
        return false;
    }
    if (structure.base != nullptr && structure.base->kind != DDS_TK_STRUCT) {
        setError(error, "%s: its base is not a struct", name);
        return false;
    }
    if (structure.base != nullptr && structure.base->extensibility != structure.extensibility) {
        setError(error, "%s and its base %s differ in extensibility", name,
                 structure.base->name.c_str());
        return false;
    }
    return true;
}

bool checkMember(const DDS_TypeCode &structure, const DDS_StructMember &member,
                 DDS_ErrorText *error)
{
    const char *name = structure.name.c_str();
    if (member.type == nullptr) {
        setError(error, "%s.%s: type is null", name, member.name);
        return false;
    }
    if (member.isKey != 0 && structure.base != nullptr) {
        setError(error, "%s.%s: a struct with a base cannot declare keys; declare them in the base",
                 name, member.name);
        return false;
    }
    if (member.isKey != 0 && !member.type->keyable) {
        setError(error, "%s.%s: a sequence cannot be part of a key", name, member.name);
        return false;
    }
    return true;
}

bool checkStruct(const DDS_TypeCode &structure, DDS_ErrorText *error)
{
    if (structure.members.empty()) {
        setError(error, "struct %s has no members", structure.name.c_str());
        return false;
    }
    return checkDistinct(structure, "member", error);
}

bool checkEnum(const DDS_TypeCode &enumeration, DDS_ErrorText *error)
{
    if (enumeration.members.empty()) {
        setError(error, "enum %s has no enumerators", enumeration.name.c_str());
        return false;
    }
    if (!checkDistinct(enumeration, "enumerator", error)) {
        return false;
    }
    std::vector<int32_t> values;
    for (const Member &member : enumeration.members) {
        values.push_back(member.value);
    }
    std::sort(values.begin(), values.end());
    const auto twice = std::adjacent_find(values.begin(), values.end());
    if (twice != values.end()) {
        setError(error, "enum %s has two enumerators of value %d", enumeration.name.c_str(),
                 static_cast<int>(*twice));
        return false;
    }
    return true;
}

} // namespace qddsc
