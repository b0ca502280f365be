// A secured participant's files: checked before the engine sees them, and as the engine's XML.
#ifndef QDDSDOMAIN_SRC_SECURITY_H
#define QDDSDOMAIN_SRC_SECURITY_H

#include <string>

#include "qddsdomain/security.h"

namespace qddsdomain {

/// What is wrong with the files, in one sentence; "" if nothing is.
std::string securityProblem(const DDS_SecuritySettings &settings);

/// A fragment of the engine's configuration. It holds the password.
std::string securityXml(const DDS_SecuritySettings &settings);

} // namespace qddsdomain

#endif
