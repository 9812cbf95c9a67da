// Failures as Windows' codes, by the one table from errno values to them.
#pragma once

#include "platform/machine/base/status.h"
#include "platform/platform.h"

namespace machine {

// The Windows error code for an errno value.
DWORD ErrorFromErrno(int error);

// The Windows error code for a status: NO_ERROR for a good one; by errno where the failure has one.
DWORD WindowsError(const Status &status);

}  // namespace machine
