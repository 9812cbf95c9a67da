// Keeping what an injection will change.
#include <algorithm>
#include <charconv>

#include "platform/machine/hive/base_block.h"
#include "platform/machine/host/digest.h"
#include "platform/machine/host/file_bytes.h"
#include "platform/machine/host/listing.h"
#include "platform/machine/host/replace_file.h"
#include "platform/text/ansi_case.h"
#include "rescue/undo_folder.h"

namespace rescue {

namespace fs = std::filesystem;
using machine::Descriptor;
using machine::Status;

namespace {

// --- The folder -----------------------------------------------------------------------------------------------------

Status OpenDirectories(const UndoPlan &plan, OpenFolder *folder) {
  const fs::path name = plan.windows.lexically_normal().lexically_relative(plan.volume.lexically_normal());
  if (!IsPathBelow(name) || name.has_parent_path()) {
    return Status::Refused("the Windows directory does not lie in the root of its volume");
  }
  folder->volumePath = plan.volume;
  folder->volume = Descriptor(open(plan.volume.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  folder->windows = OpenDirectory(folder->volume.fd, name);
  if (!folder->windows) return Status::System("the Windows directory cannot be opened");
  if (mkdirat(folder->windows.fd, kUndoDirectory, 0700) != 0 && errno != EEXIST) {
    return Status::System("the directory vxr-undo cannot be made");
  }
  folder->parent = OpenDirectory(folder->windows.fd, kUndoDirectory);
  if (!folder->parent) return Status::System("the directory vxr-undo cannot be opened");
  const bool one =
      IsOnVolume(folder->volume.fd, folder->windows.fd) && IsOnVolume(folder->volume.fd, folder->parent.fd);
  return one ? Status() : Status::Refused("the directory vxr-undo lies on another file system than the volume's root");
}

Status OpenNamed(OpenFolder *folder, const std::string &name) {
  folder->name = name;
  folder->folder = OpenDirectory(folder->parent.fd, name, O_RDONLY);
  return folder->folder ? LockUndoFolder(*folder) : Status::System("cannot be opened");
}

// The number of "DATE-12"; 0 of any other name.
unsigned NumberOf(const std::string &name, const std::string &date) {
  unsigned number = 0;
  if (!name.starts_with(date + "-")) return 0;
  const char *end = name.data() + name.size();
  const auto [stopped, failure] = std::from_chars(name.data() + date.size() + 1, end, number);
  return failure == std::errc() && stopped == end ? number : 0;
}

// Removes the folders of runs that were stopped before they changed anything. One that cannot be removed is in
// nobody's way.
void ClearUnfinished(OpenFolder *folder, const std::vector<std::string> &names) {
  for (const std::string &name : names) {
    UndoManifest manifest;
    std::vector<std::string> held;
    bool unfinished = false;
    if (name.size() < 11 || NumberOf(name, name.substr(0, 10)) == 0 || !OpenNamed(folder, name)) continue;
    if (!ReadManifest(*folder, &manifest, &unfinished) || !unfinished || !ListNames(folder->folder.fd, &held)) continue;
    const bool own = std::all_of(held.begin(), held.end(), [](const std::string &each) {
      return IsKeptName(each) || each.starts_with(std::string(".") + kManifestName);
    });
    if (own) (void)RemoveUndoFolder(*folder);
  }
}

Status MakeFolder(const UndoPlan &plan, OpenFolder *folder) {
  const std::string date = TimeText(plan.time).substr(0, 10);
  std::vector<std::string> names;
  if (Status listed = ListNames(folder->parent.fd, &names); !listed) {
    return SaidAs("the directory vxr-undo cannot be read", std::move(listed));
  }
  unsigned number = 1;
  for (const std::string &name : names) number = std::max(number, NumberOf(name, date) + 1);
  ClearUnfinished(folder, names);
  const std::string name = date + "-" + std::to_string(number);
  if (mkdirat(folder->parent.fd, name.c_str(), 0700) != 0) return Status::System(name + " cannot be made");
  if (Status opened = OpenNamed(folder, name); !opened) {
    unlinkat(folder->parent.fd, name.c_str(), AT_REMOVEDIR);
    return SaidAs(name + " " + opened.text, std::move(opened));
  }
  folder->path = plan.windows / kUndoDirectory / name;
  return {};
}

// --- What it keeps --------------------------------------------------------------------------------------------------

// The path as spelled on the disk, as far as it is there: Windows does not tell case.
std::string Spelled(int volume, const fs::path &path) {
  fs::path spelled;
  Descriptor at = OpenDirectory(volume, ".");
  for (const fs::path &part : path) {
    std::string name = part;
    if (at && faccessat(at.fd, name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) != 0) {
      if (const std::string found = machine::FindNameNoCase(at.fd, name); !found.empty()) name = found;
    }
    spelled /= name;
    if (at) at = OpenDirectory(at.fd, name);
  }
  return spelled;
}

Status IsHive(int file, std::uint64_t size, bool *isHive) {
  std::uint8_t head[machine::kLogHeadSize];
  if (size < sizeof head) return {};
  if (Status read = machine::ReadAt(file, 0, head, sizeof head); !read) return read;
  const machine::BaseBlock block = machine::ReadBaseBlock(head);
  *isHive = block.hasSignature && block.type == 0;
  return {};
}

// Copies a file into the folder; the copy is the one whose digest is told.
Status KeepFile(int file, int folder, OldFile *old) {
  if (Status sized = machine::RegularFileSize(file, &old->state.size); !sized) return sized;
  const Descriptor kept(openat(folder, old->kept.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!kept) return Status::System("cannot be copied");
  if (Status copied = CopyWhole(file, old->state.size, kept.fd); !copied) return copied;
  if (Status read = machine::FileDigest(kept.fd, old->state.size, &old->state.digest); !read) return read;
  return fsync(kept.fd) == 0 ? Status() : Status::System("cannot be copied");
}

Status KeepOldFile(const OpenFolder &folder, int parent, const std::string &name, std::size_t number,
                   UndoChange *change) {
  const Descriptor file = OpenForReading(parent, name);
  if (!file) return errno == ENOENT ? Status() : Status::System("cannot be opened");
  bool isHive = false;
  change->before.emplace().kept = std::to_string(number);
  if (Status kept = KeepFile(file.fd, folder.folder.fd, &*change->before); !kept) return kept;
  if (Status read = IsHive(file.fd, change->before->state.size, &isHive); !read) return read;
  if (!isHive) return {};
  change->kind = ChangeKind::kHive;
  return StatesOfLogs(parent, name, &change->logs);
}

// The change before the injection. A directory that is there already is none.
Status Keep(const OpenFolder &folder, const PlannedChange &planned, UndoManifest *manifest) {
  UndoChange change;
  Descriptor parent;
  std::string name;
  change.path = Spelled(folder.volume.fd, planned.path);
  if (!IsPathBelow(change.path)) return Status::Refused("does not stay below the volume's root");
  if (Status opened = OpenParent(folder.volume.fd, change.path, &parent, &name); !opened) return opened;
  change.after = {planned.size, planned.digest};
  struct stat status;
  const bool exists = parent && fstatat(parent.fd, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  if (planned.directory) {
    if (exists) return S_ISDIR(status.st_mode) ? Status() : Status::Refused("is no directory");
    change.kind = ChangeKind::kDirectory;
  } else if (exists) {
    const std::size_t number = manifest->changes.size() + 1;
    if (Status kept = KeepOldFile(folder, parent.fd, name, number, &change); !kept) return kept;
  }
  manifest->changes.push_back(std::move(change));
  return {};
}

// Of several changes of one file the last is what the injection leaves.
std::vector<PlannedChange> LastOfEach(const std::vector<PlannedChange> &changes) {
  std::vector<PlannedChange> last;
  for (const PlannedChange &change : changes) {
    const auto earlier = std::find_if(last.begin(), last.end(), [&](const PlannedChange &known) {
      return machine::FoldName(known.path.native()) == machine::FoldName(change.path.native());
    });
    if (earlier == last.end()) {
      last.push_back(change);
    } else {
      earlier->digest = change.digest;
      earlier->size = change.size;
    }
  }
  return last;
}

// The kept files are on the disk when the manifest gets its name, and all of it is when this returns.
Status WriteManifest(const OpenFolder &folder, const UndoManifest &manifest) {
  const std::string text = ManifestText(manifest);
  if (Status flushed = machine::FlushDirectory(folder.folder.fd); !flushed) return flushed;
  machine::NewFile created(folder.folder.fd, kManifestName);
  if (Status opened = machine::OpenNewFile(&created, false); !opened) return opened;
  if (Status written = machine::WriteAll(created.file.fd, text.data(), text.size()); !written) return written;
  if (Status placed = machine::PutInPlace(&created, false); !placed) return placed;
  if (Status flushed = machine::FlushDirectory(folder.parent.fd); !flushed) return flushed;
  return machine::FlushDirectory(folder.windows.fd);
}

Status Fill(const OpenFolder &folder, const UndoPlan &plan) {
  UndoManifest manifest = {plan.time, plan.program, plan.forgetsHibernation, {}};
  for (const PlannedChange &change : LastOfEach(plan.changes)) {
    if (Status kept = Keep(folder, change, &manifest); !kept) {
      return Status::Refused(change.path.string() + " " + Words(kept), kept.error);
    }
  }
  Status written = WriteManifest(folder, manifest);
  return written ? Status() : Status::Refused("the manifest cannot be written: " + Words(written), written.error);
}

Status MakeUndoFolder(const UndoPlan &plan, OpenFolder *folder) {
  if (Status opened = OpenDirectories(plan, folder); !opened) return opened;
  Status filled = MakeFolder(plan, folder);
  if (filled) filled = Fill(*folder, plan);
  if (filled) return {};
  if (!folder->path.empty()) (void)RemoveUndoFolder(*folder);
  RemoveEmptyParent(*folder);
  return filled;
}

}  // namespace

Status KeepForUndo(const UndoPlan &plan, fs::path *folder) {
  OpenFolder opened;
  if (Status made = MakeUndoFolder(plan, &opened); !made) {
    return Status::Refused(
        "what an undo needs cannot be kept in " + (plan.windows / kUndoDirectory).string() + ": " + Words(made),
        made.error);
  }
  *folder = opened.path;
  return {};
}

}  // namespace rescue
