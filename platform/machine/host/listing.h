// Names in host directories, found without regard to case.
#pragma once

#include <dirent.h>

#include <memory>
#include <string>

#include "platform/machine/base/status.h"

namespace machine {

struct CloseDirectoryStream {
  void operator()(DIR *stream) const { closedir(stream); }
};
using DirectoryStream = std::unique_ptr<DIR, CloseDirectoryStream>;

// Stores the entries of an open directory, from the first. `directory` stays the caller's and may be an O_PATH
// descriptor.
Status OpenDirectoryStream(int directory, DirectoryStream *stream);

// The entry of an open directory whose name differs from `name` (UTF-8) in case alone, as spelled on disk; empty when
// there is none. Of several the first in byte order. The last few listings are kept, so that looking up many missing
// names in a large directory reads it once while it does not change.
std::string FindNameNoCase(int directory, const std::string &name);

void ForgetListings();
// Directories read by FindNameNoCase so far.
unsigned ListingsRead();

}  // namespace machine
