// Writing a type code as IDL: every named type it uses first, each in its own reopening of its
// modules, referred to by absolute names. Plain recursion: the depth of types is bounded.
#include <algorithm>
#include <cstring>
#include <strings.h>
#include <unordered_set>

#include "qddsc/string.h"
#include "type_code.h"
#include "type_default.h"

namespace qddsc {

namespace {

/// Words that IDL reserves, in whatever case they are written.
bool isReserved(const std::string &word)
{
    static const char *const words[] = {
        "abstract",    "alias",     "any",       "attribute",  "bitfield",   "bitmask",
        "bitset",      "boolean",   "case",      "char",       "component",  "connector",
        "const",       "consumes",  "context",   "custom",     "default",    "double",
        "emits",       "enum",      "eventtype", "exception",  "factory",    "FALSE",
        "finder",      "fixed",     "float",     "getraises",  "home",       "import",
        "in",          "inout",     "int16",     "int32",      "int64",      "int8",
        "interface",   "local",     "long",      "manages",    "map",        "mirrorport",
        "module",      "multiple",  "native",    "Object",     "octet",      "oneway",
        "out",         "port",      "porttype",  "primarykey", "private",    "provides",
        "public",      "publishes", "raises",    "readonly",   "sequence",   "setraises",
        "short",       "string",    "struct",    "supports",   "switch",     "TRUE",
        "truncatable", "typedef",   "typeid",    "typename",   "typeprefix", "uint16",
        "uint32",      "uint64",    "uint8",     "union",      "unsigned",   "uses",
        "ValueBase",   "valuetype", "void",      "wchar",      "wstring"};
    return std::any_of(std::begin(words), std::end(words), [&word](const char *reserved) {
        return strcasecmp(reserved, word.c_str()) == 0;
    });
}

/// An underscore in front makes a plain name of a reserved word, and is itself not part of it.
std::string identifier(const std::string &name)
{
    return name.front() == '_' || isReserved(name) ? "_" + name : name;
}

std::vector<std::string> splitName(const std::string &scoped)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t end = scoped.find("::"); end != std::string::npos; end = scoped.find("::", start)) {
        parts.push_back(scoped.substr(start, end - start));
        start = end + 2;
    }
    parts.push_back(scoped.substr(start));
    return parts;
}

class Writer {
public:
    void define(const DDS_TypeCode &type)
    {
        if (!done_.insert(&type).second) {
            return;
        }
        if (type.base != nullptr) {
            define(*type.base);
        }
        if (type.content != nullptr) {
            define(*type.content);
        }
        for (const Member &member : type.members) {
            if (member.type != nullptr) {
                define(*member.type);
            }
        }
        if (!type.name.empty()) {
            writeNamed(type);
        }
    }

    const std::string &text() const
    {
        return text_;
    }

private:
    static std::string reference(const DDS_TypeCode &type)
    {
        const std::string bound = type.bound != 0 ? std::to_string(type.bound) : "";
        switch (type.kind) {
        case DDS_TK_STRING:
            return bound.empty() ? "string" : "string<" + bound + ">";
        case DDS_TK_SEQUENCE: {
            const std::string element = reference(*type.content);
            // Not all parsers know ">>" from a shift.
            const char *end = bound.empty() && element.back() == '>' ? " >" : ">";
            return "sequence<" + element + (bound.empty() ? end : ", " + bound + end);
        }
        case DDS_TK_ENUM:
        case DDS_TK_STRUCT:
        case DDS_TK_ALIAS:
            break;
        default:
            return qddscdr::idlNames[type.kind];
        }
        std::string name;
        for (const std::string &part : splitName(type.name)) {
            name += "::" + identifier(part);
        }
        return name;
    }

    /// "type name" or, of an array, "type name[2][3]".
    static std::string declaration(const DDS_TypeCode &type, const std::string &name)
    {
        if (type.kind != DDS_TK_ARRAY) {
            return reference(type) + " " + identifier(name);
        }
        std::string text = reference(*type.content) + " " + identifier(name);
        for (const uint32_t dimension : type.dimensions) {
            text += "[" + std::to_string(dimension) + "]";
        }
        return text;
    }

    void writeNamed(const DDS_TypeCode &type)
    {
        const std::vector<std::string> parts = splitName(type.name);
        const size_t modules = parts.size() - 1;
        for (size_t i = 0; i < modules; ++i) {
            text_ += "module " + identifier(parts[i]) + " { ";
        }
        text_ += modules > 0 ? "\n" : "";
        switch (type.kind) {
        case DDS_TK_ENUM:
            writeEnum(type, parts.back());
            break;
        case DDS_TK_STRUCT:
            writeStruct(type, parts.back());
            break;
        default:
            // Only aliases are left among the named kinds, and an alias always has its target.
            // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker)
            text_ += "typedef " + declaration(*type.content, parts.back()) + ";\n";
            break;
        }
        for (size_t i = 0; i < modules; ++i) {
            text_ += "}; ";
        }
        text_ += modules > 0 ? "\n" : "";
    }

    /// Values are written only where they are not what counting on would give.
    void writeEnum(const DDS_TypeCode &type, const std::string &name)
    {
        text_ += "enum " + identifier(name) + " {\n";
        int64_t next = 0;
        for (const Member &member : type.members) {
            text_ += &member != &type.members.front() ? ",\n" : "";
            text_ += "    ";
            if (member.value != next) {
                text_ += "@value(" + std::to_string(member.value) + ") ";
            }
            text_ += identifier(member.name);
            next = int64_t{member.value} + 1;
        }
        text_ += "\n};\n";
    }

    void writeStruct(const DDS_TypeCode &type, const std::string &name)
    {
        text_ += type.extensibility == DDS_EXTENSIBILITY_FINAL ? "@final " : "@appendable ";
        text_ += type.nested ? "@nested " : "";
        text_ += "struct " + identifier(name);
        text_ += type.base != nullptr ? " : " + reference(*type.base) : "";
        text_ += " {\n";
        const size_t inherited = type.base != nullptr ? type.base->members.size() : 0;
        for (size_t i = inherited; i < type.members.size(); ++i) {
            const Member &member = type.members[i];
            text_ += member.isKey ? "    @key " : "    ";
            if (!member.initial.empty()) {
                const DDS_TypeCode &resolved = *member.type->resolved;
                text_ += "@default(" + defaultAsIdl(resolved, member.initial) + ") ";
            }
            text_ += declaration(*member.type, member.name) + ";\n";
        }
        text_ += "};\n";
    }

    std::string text_;
    std::unordered_set<const DDS_TypeCode *> done_;
};

} // namespace

} // namespace qddsc

char *DDS_TypeCode_to_idl(const DDS_TypeCode *self) noexcept
{
    try {
        qddsc::Writer writer;
        writer.define(*self);
        return DDS_String_dup(writer.text().c_str());
    } catch (...) {
        return nullptr;
    }
}
