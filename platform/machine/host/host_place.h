// A place on the host: where a file is, or may come to be.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>

#include "platform/machine/base/descriptor.h"

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

// A name for calls that take only host paths (/proc/self/fd/<directory>/<name>); valid while the directory is open.
std::string PlaceName(int directory, const std::string &name);
inline std::string PlaceName(const HostPlace &place) { return PlaceName(place.directory, place.name); }

}  // namespace machine
