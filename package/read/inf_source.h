// An INF file as Windows' own rules read it, from wherever platform.h reaches.
#pragma once

#include <memory>
#include <string>

#include "package/read/target.h"
#include "platform/inf/inf_file.h"

namespace package {

struct InfSource {
  std::string path;       // as it was opened
  std::string directory;  // the path without the file's name; what the file calls directory 1
  std::shared_ptr<machine::InfFile> file;
  // A file of the running or restored system's own inf directory, whose package lies elsewhere: what it names is sought
  // in the system's own directories.
  bool inbox = false;
};

// How the target's INF files are read: the running system's code page, the target's language. Directory ids stay as
// they stand ("%12%"), since they mean places of the restored system. Text before the first section is passed over.
std::shared_ptr<const machine::InfSettings> SettingsFor(const Target &target);

// The path up to its last separator, which no second byte of a two-byte character is; empty when it has none.
std::string ParentOf(const std::string &path, const machine::InfSettings &settings);

// Reads one file whole, in one opening. False, with what to tell in `*reason`, when it cannot be opened or read, is
// larger than 64 MiB or is no INF text of this style.
bool ReadInfSource(const std::string &path, const std::shared_ptr<const machine::InfSettings> &settings,
                   InfSource *source, std::string *reason);

}  // namespace package
