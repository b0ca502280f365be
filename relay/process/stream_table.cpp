#include "process/stream_table.h"

#include <algorithm>
#include <memory>
#include <set>

#include <fmt/format.h>

#include "config/printable.h"
#include "qddsc/string.h"

namespace ferry {
namespace {

using Row = std::vector<std::string>;

std::string partitionsOf(const AnnouncedStream &stream)
{
    std::string text;
    for (const std::string &partition : stream.partitions) {
        text += (text.empty() ? "" : ",") + (partition.empty() ? "-" : partition);
    }
    return text;
}

std::string keyedOf(const DDS_TypeCode *type)
{
    if (type == nullptr) {
        return "no type announced";
    }
    const auto word = [](std::int32_t keyed) { return keyed != 0 ? "yes" : "no"; };
    const DDS_OpaqueType *const opaque = DDS_TypeCode_get_opaque(type);
    return opaque == nullptr ? word(DDS_TypeCode_is_keyed(type))
                             : fmt::format("{}, type not known", word(opaque->isKeyed));
}

Row rowOf(const Configuration &configuration, const AnnouncedStream &stream)
{
    return {stream.input ? "input" : "output",
            configuration.connections[stream.connection].name,
            printable(stream.name),
            printable(partitionsOf(stream)),
            stream.typeName.empty() ? "-" : printable(stream.typeName),
            keyedOf(stream.type)};
}

} // namespace

std::vector<std::string> streamTable(const Configuration &configuration,
                                     const std::vector<AnnouncedStream> &streams)
{
    if (streams.empty()) {
        return {"no streams"};
    }
    std::vector<Row> rows{{"DIRECTION", "CONNECTION", "STREAM", "PARTITIONS", "TYPE", "KEYED"}};
    for (const AnnouncedStream &stream : streams) {
        rows.push_back(rowOf(configuration, stream));
    }
    std::vector<std::size_t> widths(rows[0].size());
    for (const Row &row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    std::vector<std::string> lines;
    for (const Row &row : rows) {
        std::string line;
        for (std::size_t i = 0; i + 1 < row.size(); ++i) {
            line += row[i] + std::string(widths[i] + 2 - row[i].size(), ' ');
        }
        lines.push_back(line + row.back());
    }
    return lines;
}

std::vector<std::string> streamTypes(const std::vector<AnnouncedStream> &streams,
                                     const std::string &typeName)
{
    std::set<const DDS_TypeCode *> seen;
    std::vector<std::string> texts;
    for (const AnnouncedStream &stream : streams) {
        const bool asked = typeName.empty() || stream.typeName == typeName;
        if (!isKnown(stream.type) || !asked || !seen.insert(stream.type).second) {
            continue;
        }
        const std::unique_ptr<char, decltype(&DDS_String_free)> idl(
            DDS_TypeCode_to_idl(stream.type), &DDS_String_free);
        if (idl != nullptr) {
            texts.emplace_back(idl.get());
        }
    }
    return texts;
}

} // namespace ferry
