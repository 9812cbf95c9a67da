// An undo folder on the host, opened step by step without following a link: "vxr-undo/DATE-N" in the Windows directory,
// which lies in the root of its volume.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/status.h"
#include "rescue/undo.h"
#include "rescue/undo_manifest.h"

namespace rescue {

inline constexpr const char *kUndoDirectory = "vxr-undo";
inline constexpr const char *kLogDirectory = "logs.dir";  // in a folder; the injection's host has the run log there

// No injection writes a file of that size; to read one that a manifest only claims would take for ever.
inline constexpr std::uint64_t kLargestFile = std::uint64_t{2} << 30;

struct OpenFolder {
  std::filesystem::path path, volumePath;
  std::string name;                                     // "2026-11-25-1"
  machine::Descriptor volume, windows, parent, folder;  // O_PATH, but the folder
};

// A directory of an open one, `flags` besides O_DIRECTORY, without following a link.
machine::Descriptor OpenDirectory(int at, const std::string &name, int flags = O_PATH);
// The directory of a path's last component and that component's name. A directory that is not there leaves `*parent`
// empty. A link on the way is refused: it may lead out of the volume.
machine::Status OpenParent(int volume, const std::string &path, machine::Descriptor *parent, std::string *name);
// A file of a directory for reading, without following a link or waiting; empty with errno set.
machine::Descriptor OpenForReading(int directory, const std::string &name);

// What a manifest on a mounted volume says must not be done to another file system, below it or above.
bool IsOnVolume(int volume, int file);

// Whether it is a Windows directory, however damaged.
bool HoldsSystem32(const std::filesystem::path &directory);

machine::Status InUseByAnother();

// Fails with what follows the folder's name.
machine::Status OpenUndoFolder(const std::filesystem::path &path, OpenFolder *opened);
// So that no two runs work on one folder; held until it is closed.
machine::Status LockUndoFolder(const OpenFolder &folder);
// `*unfinished`: there is no manifest, since the run that began the folder was stopped before it changed anything. One
// that has a log had a manifest.
machine::Status ReadManifest(const OpenFolder &folder, UndoManifest *manifest, bool *unfinished);

// Removes what such a folder holds, the manifest last, and the folder.
machine::Status RemoveUndoFolder(const OpenFolder &folder);
// Removes the directory of undo folders when it is empty.
void RemoveEmptyParent(const OpenFolder &folder);

// What a directory holds.
machine::Status ListNames(int directory, std::vector<std::string> *names);

// Writes what the one file is to the other, empty one: contents, owner, mode, attributes and times.
machine::Status CopyWhole(int from, std::uint64_t size, int to);

// The logs beside a hive.
machine::Status StatesOfLogs(int directory, const std::string &hive, std::vector<HiveLogState> *logs);

// The name of the folder of another injection that put the present hive in place, or that began with it and is not
// taken back yet: it comes first. Empty: none. For a hive that is not as it was before this one.
std::string LaterInjection(const OpenFolder &folder, std::int64_t time, const UndoChange &change, UndoState state);

// What has become of a change. Fails, with what follows the change's path, when it cannot be told.
machine::Status LookAt(int volume, const UndoManifest &manifest, const UndoChange &change, UndoState *state);

}  // namespace rescue
