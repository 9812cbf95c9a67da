// Windows paths to places on the host. A path begins with a drive's letter and is found below that drive's directory
// without regard to case; it never leaves it, not through ".." and not through a symbolic link (an absolute link leaves
// it, wherever it points). A path that begins with "/" is the host's own and is taken as it is; no name out of an INF
// file or a registry can begin so, since callers join those with directories.
//
// A name spelled as on disk costs a system call or two, however large its directory; only a name that does not exist so
// is sought without regard to case.
#pragma once

#include <string>

#include "platform/machine/base/status.h"
#include "platform/machine/host/host_place.h"

namespace machine {

inline constexpr unsigned kLongestLinkChain = 40;  // the kernel's own limit

// Finds the place of a path whose directory must exist; the last component need not. Fails with ERROR_PATH_NOT_FOUND no
// such drive or directory, or not a path; ERROR_INVALID_NAME not a name, or a file named as a directory;
// ERROR_ACCESS_DENIED leads out of the drive (told to the observer) or may not be searched; others of the host.
Status LocatePlace(const char *windowsPath, HostPlace *place);

// Opens what the path names. `flags` as for open(2), O_CLOEXEC added. Fails as LocatePlace, and with
// ERROR_FILE_NOT_FOUND. With O_CREAT a file that differs in case alone is that file.
Status OpenHostFile(const char *windowsPath, int flags, Descriptor *file);

// Opens a directory to be read, named with or without a separator at its end. As OpenHostFile, but ERROR_PATH_NOT_FOUND
// when nothing is there and ERROR_DIRECTORY when something else is.
Status OpenHostDirectory(const char *windowsPath, Descriptor *directory);

// Called when the machine closes.
void ClosePaths();

}  // namespace machine
