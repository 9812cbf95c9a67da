// What the generic access rights let a handle do.
#pragma once

#include <fcntl.h>

#include "platform/platform.h"

namespace machine {

inline bool GrantsReading(DWORD access) { return (access & (GENERIC_READ | GENERIC_ALL)) != 0; }
inline bool GrantsWriting(DWORD access) { return (access & (GENERIC_WRITE | GENERIC_ALL)) != 0; }

// As open(2) takes it. Without any right it is O_RDONLY, since there is no less.
inline int AccessFlags(DWORD access) {
  if (!GrantsWriting(access)) return O_RDONLY;
  return GrantsReading(access) ? O_RDWR : O_WRONLY;
}

}  // namespace machine
