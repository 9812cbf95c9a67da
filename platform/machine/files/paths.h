// Windows paths to places on the host. A path begins with a drive's letter and is found below that drive's directory
// without regard to case; it never leaves it, not through ".." and not through a symbolic link (an absolute link leaves
// it, wherever it points). A path that begins with "/" is the host's own and is taken as it is; no name out of an INF
// file or a registry can begin so, since callers join those with directories.
//
// A name spelled as on disk costs a system call or two, however large its directory; only a name that does not exist so
// is sought without regard to case.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>

#include "platform/machine/base/descriptor.h"
#include "platform/platform.h"

namespace machine {

// A place: the open directory and the name in it, spelled as on disk when it exists. The directory is closed with the
// last place in it.
struct HostPlace {
  int directory = -1;  // may be an O_PATH descriptor; enough for the ...at() calls and to be opened anew as "."
  std::string name;    // "." for the directory itself; never that of a symbolic link, which is followed
  bool exists = false;
  struct stat status = {};                  // of what exists there
  bool throughLink = false;                 // the path's last component is a symbolic link; the place is where it leads
  std::shared_ptr<const Descriptor> owner;  // of `directory`
};

// Finds the place of a path whose directory must exist; the last component need not. False with the last error set:
// ERROR_PATH_NOT_FOUND no such drive or directory, or not a path; ERROR_INVALID_NAME not a name, or a file named as a
// directory; ERROR_ACCESS_DENIED leads out of the drive (told to the observer) or may not be searched; others of the
// host.
bool LocatePlace(const char *windowsPath, HostPlace *place);

// Opens what the path names. `flags` as for open(2), O_CLOEXEC added. Returns a descriptor, or -1 with the last error
// set: those of LocatePlace, and ERROR_FILE_NOT_FOUND. With O_CREAT a file that differs in case alone is that file.
int OpenHostFile(const char *windowsPath, int flags, mode_t mode = 0644);

// Opens a directory to be read, named with or without a separator at its end. As OpenHostFile, but ERROR_PATH_NOT_FOUND
// when nothing is there and ERROR_DIRECTORY when something else is.
int OpenHostDirectory(const char *windowsPath);

// A name for calls that take only host paths (/proc/self/fd/<directory>/<name>); valid while the directory is open.
std::string PlaceName(int directory, const std::string &name);
inline std::string PlaceName(const HostPlace &place) { return PlaceName(place.directory, place.name); }

// Called when the machine closes.
void ClosePaths();

}  // namespace machine
