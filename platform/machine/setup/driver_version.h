// The value of DriverVer: a date and a version.
#pragma once

#include <string_view>

#include "platform/platform.h"

namespace machine {

// "mm/dd/yyyy", or with "-"; its midnight in UTC. Zero when it is no date.
FILETIME ParseDriverDate(std::string_view text);
// "a.b.c.d", each part of 16 bits, later ones may be missing. 0 when it is of another form.
DWORD64 ParseDriverVersion(std::string_view text);

}  // namespace machine
