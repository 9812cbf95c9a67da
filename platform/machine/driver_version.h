// The value of DriverVer: a date and a version.
#pragma once

#include <string_view>

#include "platform/platform.h"

namespace machine {

// "mm/dd/yyyy", or with "-"; its midnight in UTC. Zero when it is no date.
FILETIME ParseDriverDate(std::string_view text);
// "a.b.c.d", each part of 16 bits, later ones may be missing. 0 when it is of another form.
DWORD64 ParseDriverVersion(std::string_view text);

// A time in nanoseconds since 1970.
FILETIME FileTimeOf(std::int64_t seconds, std::int64_t nanoseconds);

inline DWORD64 TicksOf(const FILETIME &time) { return DWORD64{time.dwHighDateTime} << 32 | time.dwLowDateTime; }

}  // namespace machine
