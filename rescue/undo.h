// Taking an injection back: what it will change is kept beside the restored system before the first change.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/status.h"

namespace rescue {

// A change that an injection is about to make; paths are relative to the root of the restored volume.
struct PlannedChange {
  std::filesystem::path path;
  bool directory = false;  // a new one
  std::string digest;      // of the file's new contents: SHA-256 as 64 lower-case hexadecimal digits
  std::uint64_t size = 0;  // of the file's new contents
};

struct UndoPlan {
  std::filesystem::path volume, windows;  // on the host
  std::int64_t time = 0;                  // of the injection, seconds since 1970
  std::string program;                    // that makes the change, "vxr 0.1.0"
  std::vector<PlannedChange> changes;
  bool forgetsHibernation = false;  // the run drops the memory of a hibernated system, which no undo brings back
};

// Who changes a restored system, or takes a change back, holds this from the first look to the last change: what one
// run finds must not be another's half-done work. Held until `*lock` is closed. `look`: only to see whether another has
// it. Fails, with what follows the directory's name, while another run has it.
machine::Status LockWindows(const std::filesystem::path &windows, machine::Descriptor *lock, bool look = false);

// Makes "vxr-undo/DATE-N" in the Windows directory: every file that will be replaced, and a manifest. All of it is on
// the disk when this returns. `*folder` gets its path. A failure, one line without what follows from it, leaves nothing
// behind. Paths need not be spelled as on disk; a file that is there and begins as a hive is one.
machine::Status KeepForUndo(const UndoPlan &plan, std::filesystem::path *folder);
// Takes such a folder away again when nothing that it names has changed; false when something has. For a run that holds
// the lock.
bool DropIfUnused(const std::filesystem::path &folder);

enum class UndoState : std::uint8_t {
  kUnchanged,  // as before the injection
  kInjected,   // as the injection left it
  kChanged,    // neither: changed since
};

struct UndoEntry {
  std::filesystem::path path;  // relative to the root of the volume
  bool directory = false;
  bool isNew = false;  // was not there before
  bool hive = false;
  UndoState state = UndoState::kUnchanged;
};

struct UndoFolder {
  std::filesystem::path folder, volume;
  bool unfinished = false;  // without a manifest: the run was stopped before it changed anything
  std::int64_t time = 0;
  std::string program;
  bool forgotHibernation = false;
  std::string later;  // the name of another injection's folder that is to be taken back first; empty: none
  std::vector<UndoEntry> entries;
  std::string problem;  // why it cannot be used; empty: it can
};

// The manifest of a folder, each entry looked at. Fails, with what follows the folder's name, when it is damaged or the
// path leads to no such folder.
machine::Status ReadUndoFolder(const std::filesystem::path &folder, UndoFolder *undo);
// The folders of a restored system, the oldest first; `root` as for FindWindows. Fails, with what follows its
// name, when it cannot be read or holds no Windows.
machine::Status ListUndoFolders(const std::filesystem::path &root, std::vector<UndoFolder> *folders);
// Whether some of it is there, but not its hive, and nothing has changed since: the run or its undoing was stopped. Of
// one without a hive it cannot be told.
bool WasStopped(const UndoFolder &undo);
// The first folder of that Windows directory, and of nothing below it, whose injection was stopped; empty: none.
std::filesystem::path FindStopped(const std::filesystem::path &windows);
// Takes back what the injection left and nothing has changed since; then removes the folder, when nothing of it is left
// to do. Stopped at any moment, the same call goes on with it. A failure, which follows the folder's name, says what
// could not be done. A hive that has changed keeps everything as it is. Takes the lock itself.
machine::Status TakeBack(const UndoFolder &undo);

}  // namespace rescue
