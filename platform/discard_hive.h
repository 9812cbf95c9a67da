// What only the described machine can do with a mounted hive.
#pragma once

#include "platform/platform.h"

namespace platform {

// The mounted hive that holds the key below HKEY_LOCAL_MACHINE is not to be saved when it is unmounted, which then
// fails: it holds changes that are neither whole nor taken back. Windows writes a hive as it is changed, so that there
// this does nothing.
#ifdef _WIN32
inline void DiscardHive(const char *) {}
#else
void DiscardHive(const char *key);
#endif

}  // namespace platform
