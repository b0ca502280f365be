#include "error.h"

#include <algorithm>
#include <cstring>

namespace ferrydds {

void report(QEL_FerrionEnvironment *environment, const std::string &text) noexcept
{
    if (environment->errorFlag != 0) {
        return;
    }
    std::size_t length = std::min(text.size(), sizeof environment->message - 1);
    while (length < text.size() && length > 0 &&
           (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U) {
        --length;
    }
    environment->errorFlag = 1;
    environment->errorCode = 0;
    std::memcpy(environment->message, text.data(), length);
    environment->message[length] = '\0';
}

} // namespace ferrydds
