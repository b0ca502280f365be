// What type the records of a data file have, as far as they show it.
#ifndef FERRY_LAUNCHER_DATA_SHAPE_H
#define FERRY_LAUNCHER_DATA_SHAPE_H

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "qddsc/type_code.h"

namespace ferry {

/// A value that was seen in one or more records. What has been seen as two kinds is the wider one:
/// whole numbers among others are others, anything else is text.
class DataShape {
public:
    void add(const nlohmann::ordered_json &value);
    /// A cell's text: it shows by its form what it is.
    void addCell(const std::string &cell);
    /// An object's member, in the order in which members were seen.
    DataShape &member(const std::string &name);
    /// The type, named `name`; the structs in it have names that begin with that. Throws
    /// std::runtime_error for what no type can be made of.
    const DDS_TypeCode *type(const std::string &name) const;

private:
    enum class Kind { unknown, boolean, integer, real, text, list, object };

    void widen(Kind kind);
    const DDS_TypeCode *structType(const std::string &name) const;

    Kind kind_ = Kind::unknown;
    /// Whether some value was empty or null: a whole number cannot be.
    bool missing_ = false;
    std::vector<std::pair<std::string, DataShape>> members_;
};

/// A file of rows or of JSON lines.
struct DataFile {
    bool isJson = false;
    char delimiter = ',';
    DataShape shape;
    /// Columns whose names are no members' names, by the member.
    std::map<std::string, std::string> columns;
};

/// Looks at the beginning of a file. Throws std::runtime_error with the reason if there is nothing
/// to be learnt.
DataFile lookAt(const std::filesystem::path &path);

} // namespace ferry

#endif
