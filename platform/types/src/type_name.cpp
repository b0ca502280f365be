// See type_name.h.
#include "type_name.h"

#include "qddsc/type_code.h"

namespace qddsc {

std::string plainTypeName(std::string name)
{
    for (size_t at = name.find('/'); at != std::string::npos; at = name.find('/', at)) {
        name.replace(at, 1, "::");
    }
    static const std::string hidden = "::dds_::";
    const size_t at = name.rfind(hidden);
    if (at != std::string::npos && name.back() == '_' &&
        name.find("::", at + hidden.size()) == std::string::npos) {
        name.pop_back();
        name.erase(at, hidden.size() - 2);
    }
    return name;
}

} // namespace qddsc

int32_t DDS_TypeName_is_same(const char *left, const char *right) noexcept
{
    try {
        return qddsc::plainTypeName(left) == qddsc::plainTypeName(right) ? 1 : 0;
    } catch (...) {
        return 0;
    }
}
