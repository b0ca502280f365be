// `ferry doctor`: what this installation has, and what it lacks.
#ifndef FERRY_LAUNCHER_DOCTOR_H
#define FERRY_LAUNCHER_DOCTOR_H

#include "launcher/virtual_machine.h"

namespace ferry {

/// Prints its findings; the exit code is 0 when adapters can be run, else 1.
int runDoctor(const VmPlaces &places);

} // namespace ferry

#endif
