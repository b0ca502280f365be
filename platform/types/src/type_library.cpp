// Sets of named types read from IDL. A library is used by one thread at a time; the types outlive
// it.
#include <algorithm>
#include <filesystem>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

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
};

using namespace qddsc;
using qddscdr::setError;

namespace {

/// Adds types whose names are new; false, with nothing added, when a name means another type.
bool addAll(DDS_TypeLibrary &library, const std::vector<NamedType> &types, DDS_ErrorText *error)
{
    DDS_TypeLibrary merged(library);
    for (const NamedType &each : types) {
        const char *name = DDS_TypeCode_get_name(each.type);
        const auto [known, isNew] = merged.byName.emplace(name, each);
        if (isNew) {
            merged.types.push_back(each.type);
        } else if (known->second.type != each.type) {
            setError(error, "%s:1: \"%s\" is defined in another way at %s", each.place.c_str(),
                     name, known->second.place.c_str());
            return false;
        }
    }
    library.types.swap(merged.types);
    library.byName.swap(merged.byName);
    return true;
}

int32_t add(DDS_TypeLibrary &library, const std::string &text, const char *sourceName,
            const std::filesystem::path &file, DDS_ErrorText *error)
{
    std::vector<NamedType> types;
    std::vector<std::string> notes;
    IdlText joined;
    if (!IdlPreprocessor(library.includePath).join(text, sourceName, file, joined, error) ||
        !readIdl(joined, types, notes, error) || !addAll(library, types, error)) {
        return 0;
    }
    library.notes.insert(library.notes.end(), notes.begin(), notes.end());
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
        const auto found = self->byName.find(name);
        if (found != self->byName.end()) {
            return found->second.type;
        }
        const std::string plain = plainTypeName(name);
        const auto same =
            std::find_if(self->byName.begin(), self->byName.end(),
                         [&](const auto &each) { return plainTypeName(each.first) == plain; });
        return same != self->byName.end() ? same->second.type : nullptr;
    } catch (...) {
        return nullptr;
    }
}

uint32_t DDS_TypeLibrary_get_count(const DDS_TypeLibrary *self) noexcept
{
    return static_cast<uint32_t>(self->types.size());
}

const DDS_TypeCode *DDS_TypeLibrary_get_at(const DDS_TypeLibrary *self, uint32_t index) noexcept
{
    return index < self->types.size() ? self->types[index] : nullptr;
}
