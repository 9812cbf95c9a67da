// The command `inject`: puts drivers into a restored system that is mounted on the rescue system's machine.
#pragma once

#include "tools/vxr/rescue/rescue_options.h"

// The run's result code; 1 when the restored system must not be touched, or nothing can be told; 2 for wrong usage.
int InjectCommand(const RescueOptions &options);
