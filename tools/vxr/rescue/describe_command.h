// The command `describe`: the machine file that `inject` would use.
#pragma once

#include "tools/vxr/rescue/rescue_options.h"

// 0; 1 when the restored system or its disks cannot be told; 2 for wrong usage.
int DescribeCommand(const RescueOptions &options);
