// Sets of named types read from IDL. A library is used by one thread at a time; the types outlive
// it.
#include <algorithm>
#include <filesystem>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include <fmt/format.h>

#include "idl_preprocessor.h"
#include "idl_reader.h"
#include "qddsc/type_code.h"
#include "qddscdr/error_text.h"
#include "type_name.h"

struct DDS_TypeLibrary {
    std::vector<const DDS_TypeCode *> types; // in order of declaration
    std::unordered_map<std::string, qddsc::NamedType> byName;
    std::vector<std::filesystem::path> includePath;
    std::vector<std::string> notes;
    std::unordered_map<std::string, qddsc::IdlLeftOut> leftOut;
    /// The last struct of the text that was added last, if it was left out.
    std::string lastLeftOut;
};

using namespace qddsc;
using qddscdr::setError;

namespace {

bool failTwice(const std::string &place, const std::string &name, const std::string &other,
               DDS_ErrorText *error)
{
    setError(error, "%s:1: \"%s\" is defined in another way at %s", place.c_str(), name.c_str(),
             other.c_str());
    return false;
}

/// "weather.idl:3" of "weather.idl:3:14".
std::string lineOf(const IdlLeftOut &leftOut)
{
    return leftOut.place.substr(0, leftOut.place.rfind(':'));
}

/// Adds types whose names are new; false, with nothing added, when a name means another type.
bool addTypes(DDS_TypeLibrary &library, const IdlContent &content, DDS_ErrorText *error)
{
    for (const NamedType &each : content.types) {
        const std::string name = DDS_TypeCode_get_name(each.type);
        const auto [known, isNew] = library.byName.emplace(name, each);
        const auto left = library.leftOut.find(name);
        if (isNew) {
            library.types.push_back(each.type);
        } else if (known->second.type != each.type) {
            return failTwice(each.place, name, known->second.place, error);
        }
        if (left != library.leftOut.end()) {
            return failTwice(each.place, name, lineOf(left->second), error);
        }
    }
    return true;
}

/// The same for what was left out. What a name means then is not looked into.
bool addLeftOuts(DDS_TypeLibrary &library, const IdlContent &content, DDS_ErrorText *error)
{
    for (const IdlLeftOut &each : content.leftOuts) {
        const auto known = library.byName.find(each.name);
        if (known != library.byName.end()) {
            return failTwice(lineOf(each), each.name, known->second.place, error);
        }
        library.leftOut.emplace(each.name, each);
        library.notes.push_back(
            fmt::format("{}: \"{}\" is left out: {}", each.place, each.name, each.why));
    }
    return true;
}

std::string lastStructLeftOut(const IdlContent &content)
{
    uint64_t last = 0;
    for (const NamedType &each : content.types) {
        const bool isStruct = DDS_TypeCode_get_kind(each.type) == DDS_TK_STRUCT;
        last = isStruct ? std::max(last, each.order) : last;
    }
    std::string name;
    for (const IdlLeftOut &each : content.leftOuts) {
        if (each.isStruct && each.order > last) {
            last = each.order;
            name = each.name;
        }
    }
    return name;
}

/// What has that name, or else one that is the same in another notation; or null.
template<typename Value>
const Value *findNamed(const std::unordered_map<std::string, Value> &all, const char *name)
{
    const auto found = all.find(name);
    if (found != all.end()) {
        return &found->second;
    }
    const std::string plain = plainTypeName(name);
    const auto same = std::find_if(all.begin(), all.end(), [&](const auto &each) {
        return plainTypeName(each.first) == plain;
    });
    return same != all.end() ? &same->second : nullptr;
}

int32_t add(DDS_TypeLibrary &library, const std::string &text, const char *sourceName,
            const std::filesystem::path &file, DDS_ErrorText *error)
{
    IdlText joined;
    IdlContent content;
    DDS_TypeLibrary merged(library);
    if (!IdlPreprocessor(library.includePath).join(text, sourceName, file, joined, error) ||
        !readIdl(joined, content, error)) {
        return 0;
    }
    merged.notes.insert(merged.notes.end(), content.notes.begin(), content.notes.end());
    if (!addTypes(merged, content, error) || !addLeftOuts(merged, content, error)) {
        return 0;
    }
    merged.lastLeftOut = lastStructLeftOut(content);
    library = std::move(merged);
    return 1;
}

} // namespace

DDS_TypeLibrary *DDS_TypeLibrary_new(void) noexcept
{
    try {
        return new DDS_TypeLibrary;
    } catch (...) {
        return nullptr;
    }
}

void DDS_TypeLibrary_delete(DDS_TypeLibrary *self) noexcept
{
    delete self;
}

int32_t DDS_TypeLibrary_set_include_path(DDS_TypeLibrary *self, const char *const *folders,
                                         uint32_t count) noexcept
{
    try {
        self->includePath.assign(folders, folders + count);
        return 1;
    } catch (...) {
        return 0;
    }
}

int32_t DDS_TypeLibrary_add_idl_text(DDS_TypeLibrary *self, const char *text,
                                     const char *sourceName, DDS_ErrorText *error) noexcept
{
    const char *source = sourceName != nullptr ? sourceName : "idl";
    try {
        return text != nullptr ? add(*self, text, source, {}, error) : 0;
    } catch (...) {
        setError(error, "%s: memory is short", source);
        return 0;
    }
}

int32_t DDS_TypeLibrary_add_idl_file(DDS_TypeLibrary *self, const char *path,
                                     DDS_ErrorText *error) noexcept
{
    try {
        return add(*self, readIdlFile(path), path, path, error);
    } catch (const IdlFault &fault) {
        setError(error, "%s: %s", path, fault.what());
    } catch (...) {
        setError(error, "%s: memory is short", path);
    }
    return 0;
}

const char *DDS_TypeLibrary_get_note(const DDS_TypeLibrary *self, uint32_t index) noexcept
{
    return index < self->notes.size() ? self->notes[index].c_str() : nullptr;
}

const DDS_TypeCode *DDS_TypeLibrary_find(const DDS_TypeLibrary *self, const char *name) noexcept
{
    try {
        const NamedType *const found = findNamed(self->byName, name);
        return found != nullptr ? found->type : nullptr;
    } catch (...) {
        return nullptr;
    }
}

int32_t DDS_TypeLibrary_explain_left_out(const DDS_TypeLibrary *self, const char *name,
                                         DDS_ErrorText *text) noexcept
{
    try {
        const IdlLeftOut *each =
            findNamed(self->leftOut, name != nullptr ? name : self->lastLeftOut.c_str());
        if (each == nullptr) {
            return 0;
        }
        std::string why = fmt::format("{}: {}", each->place, each->why);
        while (!each->cause.empty()) {
            each = &self->leftOut.at(each->cause);
            if (each->cause.empty()) { // what lies between says nothing new
                why += fmt::format("; {}: {}", each->place, each->why);
            }
        }
        setError(text, "%s", why.c_str());
    } catch (...) {
        setError(text, "memory is short");
    }
    return 1;
}

uint32_t DDS_TypeLibrary_get_count(const DDS_TypeLibrary *self) noexcept
{
    return static_cast<uint32_t>(self->types.size());
}

const DDS_TypeCode *DDS_TypeLibrary_get_at(const DDS_TypeLibrary *self, uint32_t index) noexcept
{
    return index < self->types.size() ? self->types[index] : nullptr;
}
