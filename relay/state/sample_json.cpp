#include "state/sample_json.h"

#include <cmath>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace ferry {
namespace {

std::string quoted(const std::string &text)
{
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

template<class Number> std::string numberText(Number value)
{
    return std::isfinite(value) ? fmt::format("{}", value) : fmt::format("\"{}\"", value);
}

std::string enumeratorText(const DDS_TypeCode &type, std::int32_t value)
{
    for (std::uint32_t i = 0; i < DDS_TypeCode_get_member_count(&type); ++i) {
        if (DDS_TypeCode_get_member_value(&type, i) == value) {
            return quoted(DDS_TypeCode_get_member_name(&type, i));
        }
    }
    return std::to_string(value);
}

/// Writes value after value until the text is long enough.
class JsonText {
public:
    JsonText(const DDS_DynamicData &sample, std::size_t limit) : sample_(sample), limit_(limit) {}

    std::string take()
    {
        if (full()) {
            std::size_t end = limit_;
            while (end > 0 && (text_[end] & '\xc0') == '\x80') {
                --end; // within a character
            }
            text_.resize(end);
            text_ += "...";
        }
        return std::move(text_);
    }
    /// The members of a struct; `path` leads to it and is "" for the sample itself.
    void structure(const DDS_TypeCode &type, const std::string &path);

private:
    bool full() const
    {
        return text_.size() > limit_;
    }
    void value(const DDS_TypeCode &declared, const std::string &path, std::uint32_t dimension);
    void elements(const DDS_TypeCode &type, const std::string &path, std::uint32_t dimension);
    void scalar(const DDS_TypeCode &type, const std::string &path);
    void string(const std::string &path);
    template<class Value>
    Value get(DDS_ReturnCode_t (*getter)(const DDS_DynamicData *, const char *, Value *) noexcept,
              const std::string &path) const
    {
        Value value{};
        getter(&sample_, path.c_str(), &value);
        return value;
    }

    const DDS_DynamicData &sample_;
    const std::size_t limit_;
    std::string text_;
};

void JsonText::structure(const DDS_TypeCode &type, const std::string &path)
{
    text_ += '{';
    for (std::uint32_t i = 0; i < DDS_TypeCode_get_member_count(&type) && !full(); ++i) {
        const std::string name = DDS_TypeCode_get_member_name(&type, i);
        text_ += i == 0 ? "" : ",";
        text_ += quoted(name);
        text_ += ':';
        value(*DDS_TypeCode_get_member_type(&type, i),
              path.empty() ? name : fmt::format("{}.{}", path, name), 0);
    }
    text_ += '}';
}

/// `dimension` indices of an array stand in the path already.
void JsonText::value(const DDS_TypeCode &declared, const std::string &path, std::uint32_t dimension)
{
    const DDS_TypeCode &type = *DDS_TypeCode_resolve(&declared);
    switch (DDS_TypeCode_get_kind(&type)) {
    case DDS_TK_STRUCT:
        structure(type, path);
        break;
    case DDS_TK_SEQUENCE:
    case DDS_TK_ARRAY:
        elements(type, path, dimension);
        break;
    case DDS_TK_STRING:
        string(path);
        break;
    default:
        scalar(type, path);
    }
}

void JsonText::elements(const DDS_TypeCode &type, const std::string &path, std::uint32_t dimension)
{
    const bool isArray = DDS_TypeCode_get_kind(&type) == DDS_TK_ARRAY;
    const bool inner = isArray && dimension + 1 < DDS_TypeCode_get_dimension_count(&type);
    const std::uint32_t count = get<std::uint32_t>(DDS_DynamicData_get_length, path);
    text_ += '[';
    for (std::uint32_t i = 0; i < count && !full(); ++i) {
        text_ += i == 0 ? "" : ",";
        value(inner ? type : *DDS_TypeCode_get_content(&type), fmt::format("{}[{}]", path, i),
              inner ? dimension + 1 : 0);
    }
    text_ += ']';
}

void JsonText::string(const std::string &path)
{
    const char *value = "";
    std::size_t length = 0;
    DDS_DynamicData_get_string(&sample_, path.c_str(), &value, &length);
    // Of a text that does not fit its beginning is enough.
    text_ += quoted({value, std::min(length, limit_ + 1)});
}

void JsonText::scalar(const DDS_TypeCode &type, const std::string &path)
{
    switch (DDS_TypeCode_get_kind(&type)) {
    case DDS_TK_BOOLEAN:
        text_ += get<std::int32_t>(DDS_DynamicData_get_boolean, path) != 0 ? "true" : "false";
        break;
    case DDS_TK_CHAR:
        text_ += quoted(std::string(1, get<char>(DDS_DynamicData_get_char, path)));
        break;
    case DDS_TK_OCTET:
        text_ += std::to_string(get<std::uint8_t>(DDS_DynamicData_get_octet, path));
        break;
    case DDS_TK_INT8:
        text_ += std::to_string(get<std::int8_t>(DDS_DynamicData_get_int8, path));
        break;
    case DDS_TK_SHORT:
        text_ += std::to_string(get<std::int16_t>(DDS_DynamicData_get_short, path));
        break;
    case DDS_TK_USHORT:
        text_ += std::to_string(get<std::uint16_t>(DDS_DynamicData_get_ushort, path));
        break;
    case DDS_TK_LONG:
        text_ += std::to_string(get<std::int32_t>(DDS_DynamicData_get_long, path));
        break;
    case DDS_TK_ENUM:
        text_ += enumeratorText(type, get<std::int32_t>(DDS_DynamicData_get_long, path));
        break;
    case DDS_TK_ULONG:
        text_ += std::to_string(get<std::uint32_t>(DDS_DynamicData_get_ulong, path));
        break;
    case DDS_TK_LONGLONG:
        text_ += std::to_string(get<std::int64_t>(DDS_DynamicData_get_longlong, path));
        break;
    case DDS_TK_ULONGLONG:
        text_ += std::to_string(get<std::uint64_t>(DDS_DynamicData_get_ulonglong, path));
        break;
    case DDS_TK_FLOAT:
        text_ += numberText(get<float>(DDS_DynamicData_get_float, path));
        break;
    case DDS_TK_DOUBLE:
        text_ += numberText(get<double>(DDS_DynamicData_get_double, path));
        break;
    default:
        text_ += "null";
    }
}

} // namespace

std::string sampleAsJson(const DDS_DynamicData &sample, std::size_t limit)
{
    JsonText text(sample, limit);
    text.structure(*DDS_TypeCode_resolve(DDS_DynamicData_get_type(&sample)), "");
    return text.take();
}

} // namespace ferry
