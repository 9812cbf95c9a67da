// What has become of an injection's changes: each file against its old and its new state.
#include <algorithm>

#include "platform/machine/host/digest.h"
#include "platform/machine/host/file_bytes.h"
#include "rescue/undo_folder.h"

namespace rescue {

namespace fs = std::filesystem;
using machine::Descriptor;
using machine::Status;

namespace {

// A file on its way into its place, which a run that was stopped left.
bool IsLeftOver(const std::string &name) { return name.starts_with('.') && name.ends_with(".vxr-tmp"); }

bool Names(const UndoManifest &manifest, const std::string &path) {
  return std::any_of(manifest.changes.begin(), manifest.changes.end(),
                     [&](const UndoChange &change) { return change.path == path; });
}

// A new directory is the injection's as long as it holds nothing else.
Status LookAtDirectory(int parent, const std::string &name, const UndoManifest &manifest, const UndoChange &change,
                       UndoState *state) {
  struct stat status;
  if (fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? Status() : Status::System("cannot be looked at");
  }
  *state = UndoState::kChanged;
  if (!S_ISDIR(status.st_mode)) return {};
  const Descriptor directory = OpenDirectory(parent, name);
  std::vector<std::string> names;
  if (Status listed = ListNames(directory.fd, &names); !listed) return SaidAs("cannot be read", std::move(listed));
  const bool own = std::all_of(names.begin(), names.end(), [&](const std::string &held) {
    return IsLeftOver(held) || Names(manifest, change.path + "/" + held);
  });
  if (own) *state = UndoState::kInjected;
  return {};
}

// A hive, old or new, is what it was as long as its logs are: Windows writes to them first.
Status LookAtLogs(int parent, const std::string &name, const UndoChange &change, UndoState *state) {
  std::vector<HiveLogState> logs;
  if (Status read = StatesOfLogs(parent, name, &logs); !read) return read;
  if (logs != change.logs) *state = UndoState::kChanged;
  return {};
}

Status LookAtFile(int parent, const std::string &name, const UndoChange &change, UndoState *state) {
  const Descriptor file = OpenForReading(parent, name);
  const bool isGone = !file && errno == ENOENT;
  if (isGone && !change.before) return {};
  *state = UndoState::kChanged;
  if (!file) return isGone || errno == ELOOP || errno == ENXIO ? Status() : Status::System("cannot be opened");
  FileState now;
  if (!machine::RegularFileSize(file.fd, &now.size) || now.size > kLargestFile) return {};
  const bool old = change.before && now.size == change.before->state.size;
  if (!old && now.size != change.after.size) return {};
  if (Status read = machine::FileDigest(file.fd, now.size, &now.digest); !read) return read;
  const bool isHive = change.kind == ChangeKind::kHive;
  if (old && now == change.before->state && !(isHive && now == change.after)) {
    *state = UndoState::kUnchanged;
  } else if (now == change.after) {
    *state = UndoState::kInjected;
  }
  return isHive && *state != UndoState::kChanged ? LookAtLogs(parent, name, change, state) : Status();
}

UndoEntry EntryOf(const UndoChange &change, UndoState state) {
  return {change.path, change.kind == ChangeKind::kDirectory, !change.before, change.kind == ChangeKind::kHive, state};
}

}  // namespace

Status LookAt(int volume, const UndoManifest &manifest, const UndoChange &change, UndoState *state) {
  Descriptor parent;
  std::string name;
  if (Status opened = OpenParent(volume, change.path, &parent, &name); !opened) return opened;
  *state = UndoState::kUnchanged;
  if (!parent) {
    if (change.before) *state = UndoState::kChanged;
    return {};
  }
  if (change.kind == ChangeKind::kDirectory) return LookAtDirectory(parent.fd, name, manifest, change, state);
  return LookAtFile(parent.fd, name, change, state);
}

Status ReadUndoFolder(const fs::path &folder, UndoFolder *undo) {
  OpenFolder opened;
  UndoManifest manifest;
  undo->folder = folder;
  if (Status found = OpenUndoFolder(folder, &opened); !found) return found;
  undo->folder = opened.path;
  undo->volume = opened.volumePath;
  if (Status read = ReadManifest(opened, &manifest, &undo->unfinished); !read) return read;
  undo->time = manifest.time;
  undo->program = manifest.program;
  undo->forgotHibernation = manifest.forgotHibernation;
  unsigned hives = 0;
  for (const UndoChange &change : manifest.changes) {
    UndoState state = UndoState::kUnchanged;
    if (Status looked = LookAt(opened.volume.fd, manifest, change, &state); !looked) {
      return Status::Refused("cannot be compared with what it names: " + change.path + " " + Words(looked));
    }
    if (change.kind == ChangeKind::kHive && state != UndoState::kUnchanged && !hives++) {
      undo->later = LaterInjection(opened, manifest.time, change, state);
    }
    undo->entries.push_back(EntryOf(change, state));
  }
  return {};
}

namespace {

// The undo folders of a Windows directory, if it has some.
Status AddFolders(int directory, const fs::path &windows, std::vector<UndoFolder> *folders) {
  const Descriptor parent = OpenDirectory(directory, kUndoDirectory);
  std::vector<std::string> names;
  if (!parent && errno == ENOENT) return {};
  if (!parent) return Status::System("has a directory vxr-undo that cannot be opened");
  if (Status listed = ListNames(parent.fd, &names); !listed) {
    return SaidAs("has a directory vxr-undo that cannot be read", std::move(listed));
  }
  for (const std::string &name : names) {
    if (!OpenDirectory(parent.fd, name)) continue;  // a file or a link of somebody
    UndoFolder &undo = folders->emplace_back();
    const Status read = ReadUndoFolder(windows / kUndoDirectory / name, &undo);
    if (!read) undo.problem = Words(read);
  }
  return {};
}

}  // namespace

bool WasStopped(const UndoFolder &undo) {
  const auto count = [&undo](bool hives, UndoState state) {
    return std::count_if(undo.entries.begin(), undo.entries.end(),
                         [&](const UndoEntry &entry) { return entry.hive == hives && entry.state == state; });
  };
  return undo.problem.empty() && count(false, UndoState::kChanged) == 0 && count(false, UndoState::kInjected) != 0 &&
         count(true, UndoState::kUnchanged) != 0 && count(true, UndoState::kInjected) == 0 &&
         count(true, UndoState::kChanged) == 0;
}

fs::path FindStopped(const fs::path &windows) {
  const Descriptor opened(open(windows.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  std::vector<UndoFolder> folders;
  if (!opened || !AddFolders(opened.fd, windows, &folders)) return {};
  const auto stopped = std::find_if(folders.begin(), folders.end(), WasStopped);
  return stopped == folders.end() ? fs::path() : stopped->folder;
}

// Whatever else there is of Windows does not matter: its files may be damaged by now.
Status ListUndoFolders(const fs::path &root, std::vector<UndoFolder> *folders) {
  const Descriptor opened(open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  std::vector<std::string> names;
  if (!opened) return Status::System("cannot be opened");
  if (Status listed = ListNames(opened.fd, &names); !listed) return SaidAs("cannot be read", std::move(listed));
  bool holdsWindows = false;
  names.insert(names.begin(), ".");
  for (const std::string &name : names) {
    const fs::path path = name == "." ? root : root / name;
    const Descriptor windows = OpenDirectory(opened.fd, name);
    if (!windows || !HoldsSystem32(path)) continue;
    holdsWindows = true;
    if (Status added = AddFolders(windows.fd, path, folders); !added) {
      return Status::Refused("cannot be looked at: " + path.string() + " " + Words(added), added.error);
    }
  }
  if (!holdsWindows) {
    return Status::Refused("holds no Windows directory; name the root of the restored volume");
  }
  std::stable_sort(folders->begin(), folders->end(),
                   [](const UndoFolder &a, const UndoFolder &b) { return a.time < b.time; });
  return {};
}

}  // namespace rescue
