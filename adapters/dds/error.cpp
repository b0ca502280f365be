#include "error.h"

#include <algorithm>

#include "qddscore/log.h"

namespace ferrydds {

void report(QEL_FerrionEnvironment *environment, const std::string &text) noexcept
{
    std::size_t length = std::min(text.size(), sizeof environment->message - 1);
    while (length < text.size() && length > 0 &&
           (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U) {
        --length;
    }
    QEL_FerrionEnvironment_set_errorI(environment, "%.*s", static_cast<int>(length), text.data());
}

void warn(const char *where, const std::string &text) noexcept
{
    constexpr std::uint32_t warning = 0x02;
    if (QELLog_setLogLevel != nullptr) {
        QELLog_setLogLevel(warning);
    }
    QELLog_printContextAndMsg(where, &QEL_LOG_ANY_s, text.c_str());
}

} // namespace ferrydds
