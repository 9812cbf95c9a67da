// A Windows path taken apart by its text alone, before any look at the disk.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/machine/base/status.h"
#include "platform/platform.h"

namespace machine {

struct WindowsPath {
  std::string host;  // the whole path when it begins with "/" and is the host's own; then all else is empty
  char drive = 0;    // letter, upper case
  std::vector<std::string> names;  // below the drive's root, in UTF-8, each one a name that Windows allows
  std::string pattern;             // the last component when it holds wildcards, in UTF-8; not among the names
  bool directory = false;          // ends in a separator
};

// Takes `text` (in the ANSI code page) apart: "/" and "\" both separate, "." and empty components are dropped, ".."
// takes away the name before it, trailing dots and blanks of a name are dropped. A "\\?\" prefix lifts the limit of 259
// bytes and changes nothing else. A drive without a separator behind it stands for its root, since the machine has no
// current directories. Fails with ERROR_PATH_NOT_FOUND (null, empty, too long, no drive letter),
// ERROR_FILE_NOT_FOUND (the name of a device), ERROR_INVALID_NAME, ERROR_ACCESS_DENIED when ".." would leave the drive
// (told to the observer).
Status ParseWindowsPath(const char *text, WindowsPath *path);

// Tells the observer that a path is not followed. Returns the failure, ERROR_ACCESS_DENIED.
Status RefusePath(const char *windowsPath, const std::string &why);

}  // namespace machine
