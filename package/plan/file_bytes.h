// What is asked of a file beside its name: whether it is the same as another, and how new it says that it is.
#pragma once

#include <string>

#include "platform/platform.h"

namespace package {

// Whether both are there, of one size and with the same bytes.
bool SameBytes(const std::string &a, const std::string &b);
// The version of its version resource, the first of four numbers of 16 bits highest; 0 without one.
DWORD64 FileVersion(const std::string &path);
// The size of a file; false when there is none, or it cannot be opened for reading.
bool ReadableSize(const std::string &path, DWORD64 *size);

}  // namespace package
