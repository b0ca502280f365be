#include "launcher/data_shape.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include <fmt/format.h>

namespace ferry {
namespace {

/// What is looked at of a file.
constexpr std::size_t mostBytes = 8U << 20;

std::string beginningOf(const std::filesystem::path &path)
{
    std::error_code error;
    std::ifstream in(path, std::ios::binary);
    if (!in || std::filesystem::is_directory(path, error)) {
        throw std::runtime_error(fmt::format("{} cannot be read", path.string()));
    }
    std::string text(mostBytes, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    if (text.rfind("\xEF\xBB\xBF", 0) == 0) {
        text.erase(0, 3);
    }
    // A last line that is cut off shows nothing.
    const std::size_t end = text.rfind('\n');
    if (text.size() >= mostBytes - 3 && end != std::string::npos) {
        text.resize(end + 1);
    }
    return text;
}

bool isWhole(const std::string &cell)
{
    const std::size_t sign = cell[0] == '-' ? 1 : 0;
    const bool isPadded = cell.size() > sign + 1 && cell[sign] == '0';
    return cell.size() > sign && cell.size() - sign <= 18 && !isPadded &&
           cell.find_first_not_of("0123456789", sign) == std::string::npos;
}

/// Digits alone are a code, or more than a number can hold: as numbers they would come out
/// otherwise.
bool isNumber(const std::string &cell)
{
    if (cell.find_first_of(".eE") == std::string::npos) {
        return false;
    }
    std::istringstream in(cell);
    in.imbue(std::locale::classic());
    double value = 0;
    return cell.find_first_not_of("+-.0123456789eE") == std::string::npos && in >> value &&
           in.peek() == std::istringstream::traits_type::eof();
}

/// The cells of the next row; moves behind it.
std::vector<std::string> takeRow(const std::string &text, std::size_t &at, char delimiter)
{
    std::vector<std::string> cells(1);
    bool quoted = false;
    for (; at < text.size(); ++at) {
        const char c = text[at];
        if (quoted && c == '"' && at + 1 < text.size() && text[at + 1] == '"') {
            cells.back() += '"';
            ++at;
        } else if (c == '"' && (quoted || cells.back().empty())) {
            quoted = !quoted;
        } else if (!quoted && c == delimiter) {
            cells.emplace_back();
        } else if (!quoted && c == '\n') {
            ++at;
            break;
        } else if (quoted || c != '\r') {
            cells.back() += c;
        }
    }
    return cells;
}

/// The sign of those that usually stand between cells that the first line has most of.
char delimiterOf(const std::string &text)
{
    const std::string line = text.substr(0, text.find('\n'));
    char best = ',';
    for (const char sign : {',', ';', '\t', '|'}) {
        if (std::count(line.begin(), line.end(), sign) >
            std::count(line.begin(), line.end(), best)) {
            best = sign;
        }
    }
    return best;
}

/// A member's name for a column, that no other has.
std::string memberFor(const std::string &column, std::set<std::string> &taken)
{
    std::string name;
    for (const char c : column) {
        name += std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
    }
    if (name.empty() || std::isalpha(static_cast<unsigned char>(name[0])) == 0) {
        name.insert(0, "c");
    }
    while (!taken.insert(name).second) {
        name += '_';
    }
    return name;
}

void lookAtRows(const std::string &text, DataFile &data)
{
    data.delimiter = delimiterOf(text);
    std::size_t at = 0;
    std::set<std::string> taken;
    std::vector<std::string> members;
    for (const std::string &column : takeRow(text, at, data.delimiter)) {
        members.push_back(memberFor(column, taken));
        if (members.back() != column) {
            data.columns[members.back()] = column;
        }
    }
    for (const std::string &member : members) {
        data.shape.member(member);
    }
    while (at < text.size()) {
        const std::vector<std::string> cells = takeRow(text, at, data.delimiter);
        // Others are bad rows.
        for (std::size_t i = 0; cells.size() == members.size() && i < cells.size(); ++i) {
            data.shape.member(members[i]).addCell(cells[i]);
        }
    }
}

void lookAtLines(const std::string &text, DataFile &data)
{
    std::istringstream lines(text);
    std::size_t good = 0;
    for (std::string line; std::getline(lines, line);) {
        const auto value = nlohmann::ordered_json::parse(line, nullptr, false);
        if (value.is_object()) {
            data.shape.add(value);
            ++good;
        }
    }
    if (good == 0) {
        throw std::runtime_error("there is no line with a JSON object");
    }
}

} // namespace

void DataShape::widen(Kind kind)
{
    const bool numbers = (kind_ == Kind::integer || kind_ == Kind::real) &&
                         (kind == Kind::integer || kind == Kind::real);
    if (kind_ == Kind::unknown || numbers) {
        kind_ = std::max(kind_, kind);
    } else if (kind_ != kind) {
        kind_ = Kind::text;
    }
}

void DataShape::add(const nlohmann::ordered_json &value)
{
    if (value.is_null()) {
        missing_ = true;
    } else if (value.is_object()) {
        widen(Kind::object);
        for (const auto &[name, inner] : value.items()) {
            member(name).add(inner);
        }
    } else if (value.is_array()) {
        widen(Kind::list);
        for (const auto &inner : value) {
            member("").add(inner);
        }
    } else if (value.is_number_unsigned() && value.get<std::uint64_t>() > INT64_MAX) {
        widen(Kind::real);
    } else {
        widen(value.is_boolean()          ? Kind::boolean
              : value.is_number_integer() ? Kind::integer
              : value.is_number()         ? Kind::real
                                          : Kind::text);
    }
}

void DataShape::addCell(const std::string &cell)
{
    if (cell.empty()) {
        missing_ = true;
    } else {
        widen(cell == "true" || cell == "false" ? Kind::boolean
              : isWhole(cell)                   ? Kind::integer
              : isNumber(cell)                  ? Kind::real
                                                : Kind::text);
    }
}

DataShape &DataShape::member(const std::string &name)
{
    const auto known = std::find_if(members_.begin(), members_.end(),
                                    [&](const auto &each) { return each.first == name; });
    return known != members_.end() ? known->second
                                   : members_.emplace_back(name, DataShape()).second;
}

const DDS_TypeCode *DataShape::type(const std::string &name) const
{
    switch (kind_) {
    case Kind::boolean:
        return missing_ ? DDS_TypeCode_create_string(0, nullptr)
                        : DDS_TypeCode_get_primitive(DDS_TK_BOOLEAN);
    case Kind::integer:
        // An empty cell, and null, can stand for no number among floating-point ones.
        return DDS_TypeCode_get_primitive(missing_ ? DDS_TK_DOUBLE : DDS_TK_LONGLONG);
    case Kind::real:
        return DDS_TypeCode_get_primitive(DDS_TK_DOUBLE);
    case Kind::list:
        return DDS_TypeCode_create_sequence(members_.empty()
                                                ? DDS_TypeCode_create_string(0, nullptr)
                                                : members_.front().second.type(name + "Element"),
                                            0, nullptr);
    case Kind::object:
        return structType(name);
    default:
        return members_.empty() || kind_ == Kind::text ? DDS_TypeCode_create_string(0, nullptr)
                                                       : structType(name);
    }
}

const DDS_TypeCode *DataShape::structType(const std::string &name) const
{
    std::vector<DDS_StructMember> members;
    for (const auto &[each, shape] : members_) {
        std::string inner = name;
        if (!each.empty()) {
            inner += static_cast<char>(std::toupper(static_cast<unsigned char>(each[0])));
            inner += each.substr(1);
        }
        members.push_back({each.c_str(), shape.type(inner), 0});
    }
    DDS_ErrorText why{};
    const DDS_TypeCode *const type =
        DDS_TypeCode_create_struct(name.c_str(), nullptr, DDS_EXTENSIBILITY_FINAL, members.data(),
                                   static_cast<std::uint32_t>(members.size()), &why);
    if (type == nullptr) {
        throw std::runtime_error(why.text);
    }
    return type;
}

DataFile lookAt(const std::filesystem::path &path)
{
    const std::string text = beginningOf(path);
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) {
        throw std::runtime_error(fmt::format("{} is empty", path.string()));
    }
    DataFile data;
    data.isJson = text[first] == '{';
    try {
        data.isJson ? lookAtLines(text, data) : lookAtRows(text, data);
    } catch (const std::runtime_error &reason) {
        throw std::runtime_error(fmt::format("{}: {}", path.string(), reason.what()));
    }
    return data;
}

} // namespace ferry
