// The types of a configuration file.
#ifndef FERRY_CONFIG_LOADER_TYPES_H
#define FERRY_CONFIG_LOADER_TYPES_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "config/section.h"

namespace ferry {

class TypeLoader {
public:
    /// `text` is the file's own, for the line numbers of types written in it.
    explicit TypeLoader(const std::string &text);

    void read(const Entry &types);
    /// A struct by its name, after a complaint at `entry` if there is none; null for no name. If
    /// types could not be read none is looked up, or one mistake would be reported many times.
    const DDS_TypeCode *find(const Entry &entry, const std::string &name) const;
    std::map<std::string, const DDS_TypeCode *> structs() const;
    /// What in the IDL has no effect, a line each.
    std::vector<std::string> notes() const;

private:
    struct LibraryDeleter {
        void operator()(DDS_TypeLibrary *library) const
        {
            DDS_TypeLibrary_delete(library);
        }
    };

    void readIncludes(const Section &section);
    void readType(const Section &section);
    void addInline(const Entry &idl, const std::string &text);
    std::vector<const DDS_TypeCode *> all() const;

    const std::string &text_;
    std::unique_ptr<DDS_TypeLibrary, LibraryDeleter> library_;
    bool broken_ = false;
};

} // namespace ferry

#endif
