// Where the product is installed, as the registry tells it. Stands beside the log, which needs it before anything else.
#pragma once

#include "platform/platform.h"

// The product's key below HKEY_LOCAL_MACHINE and the value that holds its directory.
inline constexpr char kProductKey[] = "SOFTWARE\\Varnelt\\Halcyra";
inline constexpr char kProductDirectoryValue[] = "HCDIR";

// Cuts one trailing backslash off `path`. The trail byte of a two-byte character may have the backslash's value and
// stays. Null is ignored.
void RemoveTrailingBackslash(char *path);
