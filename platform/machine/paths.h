// Windows paths to places on the host. A path begins with a drive's letter and is found below that drive's directory
// without regard to case; it never leaves it, not through ".." and not through a symbolic link. A path that begins with
// "/" is the host's own.
#pragma once

#include <sys/types.h>

#include <string>

#include "platform/platform.h"

namespace machine {

// A place: the open directory and the name in it, spelled as on disk when it exists. Closed by ClosePlace.
struct HostPlace {
  int directory = -1;
  std::string name;
  bool exists = false;
};

// Finds the place of a path whose directory must exist; the last component need not. False with the last error set (2 no
// such file, 3 no such directory, 123 not a name, 5 leads out of the drive).
bool LocatePlace(const char *windowsPath, HostPlace *place);
void ClosePlace(HostPlace *place);

// Opens what the path names. `flags` as for open(2), O_CLOEXEC added. Returns a descriptor, or -1 with the last error
// set.
int OpenHostFile(const char *windowsPath, int flags, mode_t mode = 0644);

// A name for calls that take only host paths (/proc/self/fd/<directory>/<name>); valid while `place` is open.
std::string PlaceName(const HostPlace &place);

// The Windows error code for an errno value.
DWORD ErrorFromErrno(int error);

}  // namespace machine
