// What the launcher has to say on standard error, where nobody logs yet.
#ifndef FERRY_LAUNCHER_COMPLAIN_H
#define FERRY_LAUNCHER_COMPLAIN_H

#include <cstdio>
#include <string>

#include "config/printable.h"

namespace ferry {

/// A text of one or more lines, safe for terminals and without secrets.
inline void complain(const std::string &text)
{
    std::fprintf(stderr, "%s\n", forLog(text, Layout::kept).c_str());
}

/// A line that somebody else has a part in: it stays one.
inline void complainLine(const std::string &line)
{
    std::fprintf(stderr, "%s\n", forLog(line).c_str());
}

} // namespace ferry

#endif
