// The one table from errno values to Windows' codes.
#pragma once

#include "platform/platform.h"

namespace machine {

// The Windows error code for an errno value.
DWORD ErrorFromErrno(int error);

}  // namespace machine
