// Sets of named types read from IDL. A library is used by one thread at a time; the types outlive
// it.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "idl_reader.h"
#include "qddsc/type_code.h"
#include "qddscdr/error_text.h"

struct DDS_TypeLibrary {
    std::vector<const DDS_TypeCode *> types; // in order of declaration
    std::unordered_map<std::string, const DDS_TypeCode *> byName;
};

using namespace qddsc;
using qddscdr::setError;

namespace {

constexpr size_t maxText = 64U << 20;

/// Adds types whose names are new; false, with nothing added, when a name means another type.
bool addAll(DDS_TypeLibrary &library, const std::vector<const DDS_TypeCode *> &types,
            const char *sourceName, DDS_ErrorText *error)
{
    DDS_TypeLibrary merged(library);
    for (const DDS_TypeCode *type : types) {
        const char *name = DDS_TypeCode_get_name(type);
        const auto [place, isNew] = merged.byName.emplace(name, type);
        if (isNew) {
            merged.types.push_back(type);
        } else if (place->second != type) {
            setError(error, "%s: %s means another type in what was read before", sourceName, name);
            return false;
        }
    }
    library.types.swap(merged.types);
    library.byName.swap(merged.byName);
    return true;
}

bool readFile(const char *path, std::string &text, DDS_ErrorText *error)
{
    std::FILE *file = std::fopen(path, "rbe");
    if (file == nullptr) {
        setError(error, "%s: cannot be opened: %s", path, std::strerror(errno));
        return false;
    }
    char block[4096];
    size_t count = 0;
    bool good = true;
    try {
        while (text.size() <= maxText && (count = std::fread(block, 1, sizeof block, file)) > 0) {
            text.append(block, count);
        }
        good = std::ferror(file) == 0;
    } catch (...) {
        std::fclose(file);
        throw;
    }
    std::fclose(file);
    if (!good || text.size() > maxText || text.find('\0') != std::string::npos) {
        setError(error, "%s: %s", path,
                 !good ? "cannot be read" : "is not a text or larger than 64 MiB");
        return false;
    }
    return true;
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

int32_t DDS_TypeLibrary_add_idl_text(DDS_TypeLibrary *self, const char *text,
                                     const char *sourceName, DDS_ErrorText *error) noexcept
{
    const char *source = sourceName != nullptr ? sourceName : "idl";
    try {
        std::vector<const DDS_TypeCode *> types;
        return text != nullptr && readIdl(text, source, types, error) &&
                       addAll(*self, types, source, error)
                   ? 1
                   : 0;
    } catch (...) {
        setError(error, "%s: memory is short", source);
        return 0;
    }
}

int32_t DDS_TypeLibrary_add_idl_file(DDS_TypeLibrary *self, const char *path,
                                     DDS_ErrorText *error) noexcept
{
    try {
        std::string text;
        return readFile(path, text, error)
                   ? DDS_TypeLibrary_add_idl_text(self, text.c_str(), path, error)
                   : 0;
    } catch (...) {
        setError(error, "%s: memory is short", path);
        return 0;
    }
}

const DDS_TypeCode *DDS_TypeLibrary_find(const DDS_TypeLibrary *self, const char *name) noexcept
{
    try {
        const auto found = self->byName.find(name);
        return found != self->byName.end() ? found->second : nullptr;
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
