// `ferry new adapter`: a project for an adapter of one's own, from the installation's template.
#ifndef FERRY_LAUNCHER_NEW_ADAPTER_H
#define FERRY_LAUNCHER_NEW_ADAPTER_H

#include <string>

#include "launcher/installation.h"

namespace ferry {

struct NewAdapter {
    /// As the user wrote it: begins the class's name, and in small letters names files.
    std::string name;
    /// "" for org.example.<name>.
    std::string package;
    /// Where to; "" for the name in small letters.
    std::string directory;
};

/// Makes the project, or nothing where a file of it is there already; returns the exit code.
int makeAdapter(const NewAdapter &wanted, const Installation &installation);

} // namespace ferry

#endif
