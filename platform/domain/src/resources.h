// What a domain takes of the process. The engine crashes, or ends the process, when it runs out of
// descriptors or threads while it makes one.
#ifndef QDDSDOMAIN_SRC_RESOURCES_H
#define QDDSDOMAIN_SRC_RESOURCES_H

#include <cstddef>

#include "qddsc/common.h"

namespace qddsdomain {

/// False, with the error filled, when the process cannot open as many descriptors or start as many
/// threads as a domain with that many interfaces takes. Tries it, as limits are those of the
/// process, the user and the system. What others take in the moment after is not seen.
bool hasRoomForDomain(size_t interfaces, DDS_ErrorText *error);

} // namespace qddsdomain

#endif
