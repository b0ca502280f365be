// `ferry archive`: the VM's archive of the classes that a relay needs, with which it starts
// quicker.
#ifndef FERRY_LAUNCHER_CLASS_ARCHIVE_H
#define FERRY_LAUNCHER_CLASS_ARCHIVE_H

#include "launcher/installation.h"
#include "launcher/virtual_machine.h"

namespace ferry {

/// Where the archive for a VM is, or would be: beside the libraries, because each is good for one
/// version of a VM. A VM that is another after all, or finds a class changed, does without.
std::filesystem::path classArchive(const Installation &installation, const VmCandidate &vm);

/// Has a relay of its own run in that VM, and keeps what this makes of the classes. An archive that
/// is in use may be replaced. Returns the exit code.
int makeClassArchive(const Installation &installation, const VmLocations &locations);

} // namespace ferry

#endif
