// Text inside the engine's XML configuration.
#ifndef QDDSDOMAIN_SRC_XML_H
#define QDDSDOMAIN_SRC_XML_H

#include <string>

namespace qddsdomain {

inline std::string escape(const std::string &text)
{
    std::string escaped;
    for (const char c : text) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&apos;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

} // namespace qddsdomain

#endif
