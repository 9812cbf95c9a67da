// What the machine tells its observer.
#pragma once

#include "vxrcore/machine.h"

namespace machine {

// Tells the observer, if there is one; leaves the last error as it was. Works without a machine.
void Report(const VXRMachine_Event &event);

}  // namespace machine
