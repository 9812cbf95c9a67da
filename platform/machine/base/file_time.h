// Windows' file times: steps of 100 nanoseconds since the beginning of 1601, UTC.
#pragma once

#include <algorithm>
#include <cstdint>
#include <ctime>

#include "platform/platform.h"

namespace machine {

// Of a time since 1970. One that Windows cannot tell becomes the nearest that it can.
inline FILETIME FileTimeOf(std::int64_t seconds, std::int64_t nanoseconds) {
  constexpr std::int64_t kSecondsTo1970 = 11644473600;
  constexpr std::int64_t kTicksPerSecond = 10000000;
  constexpr std::int64_t kLastSecond = INT64_MAX / kTicksPerSecond - 1 - kSecondsTo1970;
  const std::int64_t since1601 = std::clamp(seconds, -kSecondsTo1970, kLastSecond) + kSecondsTo1970;
  const auto ticks = static_cast<DWORD64>(since1601 * kTicksPerSecond + nanoseconds / 100);
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

inline FILETIME FileTimeOf(const timespec &time) { return FileTimeOf(time.tv_sec, time.tv_nsec); }

inline DWORD64 TicksOf(const FILETIME &time) { return DWORD64{time.dwHighDateTime} << 32 | time.dwLowDateTime; }

}  // namespace machine
