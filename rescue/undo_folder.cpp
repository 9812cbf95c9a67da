#include "rescue/undo_folder.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "platform/machine/hive/hive_logs.h"
#include "platform/machine/host/digest.h"
#include "platform/machine/host/file_bytes.h"
#include "platform/machine/host/listing.h"
#include "platform/machine/host/replace_file.h"
#include "rescue/disk_names.h"

namespace rescue {

namespace fs = std::filesystem;
using machine::Descriptor;
using machine::Status;

namespace {

// No injection changes so many files; a file that only claims to be one must not fill the memory.
constexpr std::uint64_t kLargestManifest = 16 << 20;

// Locks it unless another run has it; a file system without locks has none.
bool IsTaken(int file, int kind = LOCK_EX) { return flock(file, kind | LOCK_NB) != 0 && errno == EWOULDBLOCK; }

Status NoUndoFolder() {
  return Status::Refused("is no undo folder, such as \"vxr undo --list ROOT\" names; correct the path");
}

}  // namespace

bool IsOnVolume(int volume, int file) {
  struct stat root, status;
  return fstat(volume, &root) == 0 && fstat(file, &status) == 0 && root.st_dev == status.st_dev;
}

bool HoldsSystem32(const fs::path &directory) { return !FindBelow(directory, {"system32"}).empty(); }

Descriptor OpenDirectory(int at, const std::string &name, int flags) {
  return Descriptor(openat(at, name.c_str(), flags | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

Descriptor OpenForReading(int directory, const std::string &name) {
  struct stat status;
  if (fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISREG(status.st_mode) &&
      !S_ISLNK(status.st_mode) && !S_ISDIR(status.st_mode)) {
    errno = ENXIO;  // to open a device may do something
    return {};
  }
  return Descriptor(openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

Status OpenParent(int volume, const std::string &path, Descriptor *parent, std::string *name) {
  Descriptor at = OpenDirectory(volume, ".");
  std::size_t begin = 0;
  for (std::size_t end; at && (end = path.find('/', begin)) != std::string::npos; begin = end + 1) {
    at = OpenDirectory(at.fd, path.substr(begin, end - begin));
    if (at && !IsOnVolume(volume, at.fd)) return Status::Refused("leads to another file system");
  }
  *name = path.substr(path.rfind('/') + 1);
  if (!at && errno != ENOENT) {
    const bool leadsAway = errno == ENOTDIR || errno == ELOOP;
    return leadsAway ? Status::Refused("leads through a link or a file, which is not followed")
                     : Status::System("cannot be looked at");
  }
  *parent = std::move(at);
  return {};
}

Status OpenUndoFolder(const fs::path &path, OpenFolder *opened) {
  std::error_code failed;
  const fs::path given = path.has_filename() ? path : path.parent_path();
  if (fs::is_symlink(given, failed)) return NoUndoFolder();
  opened->path = fs::canonical(given, failed);
  if (failed) return Status::System(failed.value() == ENOENT ? "cannot be found" : "cannot be opened", failed.value());
  const fs::path parent = opened->path.parent_path(), above = parent.parent_path();
  if (parent.filename() != kUndoDirectory || !above.has_relative_path() || !HoldsSystem32(above)) return NoUndoFolder();
  opened->name = opened->path.filename();
  opened->volumePath = above.parent_path();
  opened->volume = OpenDirectory(AT_FDCWD, opened->volumePath);
  opened->windows = OpenDirectory(opened->volume.fd, above.filename());
  opened->parent = OpenDirectory(opened->windows.fd, kUndoDirectory);
  opened->folder = OpenDirectory(opened->parent.fd, opened->name, O_RDONLY);
  if (opened->folder) {
    const bool one =
        IsOnVolume(opened->volume.fd, opened->windows.fd) && IsOnVolume(opened->volume.fd, opened->folder.fd);
    return one ? Status() : NoUndoFolder();
  }
  return errno == ENOTDIR ? NoUndoFolder() : Status::System("cannot be opened");
}

Status InUseByAnother() { return Status::Refused("is in use by another run; wait for its end, then run again"); }

Status LockWindows(const fs::path &windows, Descriptor *lock, bool look) {
  *lock = OpenDirectory(AT_FDCWD, windows, O_RDONLY);
  if (!*lock) return Status::System("cannot be opened");
  return IsTaken(lock->fd, look ? LOCK_SH : LOCK_EX) ? InUseByAnother() : Status();
}

Status LockUndoFolder(const OpenFolder &folder) {
  const bool isOwn = !IsTaken(folder.folder.fd) && machine::IsNamed(folder.folder.fd, folder.parent.fd, folder.name);
  return isOwn ? Status() : InUseByAnother();
}

Status ReadManifest(const OpenFolder &folder, UndoManifest *manifest, bool *unfinished) {
  const Descriptor file = OpenForReading(folder.folder.fd, kManifestName);
  *unfinished = !file && errno == ENOENT;
  if (*unfinished && faccessat(folder.folder.fd, kLogDirectory, F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
    *unfinished = false;
    return Status::Refused(
        "has lost its manifest.json, without which nothing can be taken back; it still has the old files");
  }
  if (*unfinished) return {};
  std::uint64_t size = 0;
  if (!file) return Status::System("has a manifest that cannot be read");
  if (Status sized = machine::RegularFileSize(file.fd, &size); !sized || size > kLargestManifest) {
    return Status::Refused("has a damaged manifest; nothing can be taken back with it");
  }
  std::string text(size, '\0');
  if (Status read = machine::ReadAt(file.fd, 0, text.data(), text.size()); !read) {
    return SaidAs("has a manifest that cannot be read", std::move(read));
  }
  return ReadManifestText(text, manifest);
}

Status ListNames(int directory, std::vector<std::string> *names) {
  machine::DirectoryStream stream;
  if (Status opened = machine::OpenDirectoryStream(directory, &stream); !opened) return opened;
  while (const dirent *entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names->push_back(name);
  }
  std::sort(names->begin(), names->end());
  return {};
}

namespace {

// Removes the log of the injection's run.
Status RemoveLog(int folder) {
  const Descriptor logs = OpenDirectory(folder, kLogDirectory);
  std::vector<std::string> names;
  if (!logs) return errno == ENOENT ? Status() : Status::System();
  if (Status listed = ListNames(logs.fd, &names); !listed) return listed;
  for (const std::string &name : names) {
    if (unlinkat(logs.fd, name.c_str(), 0) != 0) return Status::System();
  }
  return unlinkat(folder, kLogDirectory, AT_REMOVEDIR) == 0 ? Status() : Status::System();
}

}  // namespace

Status RemoveUndoFolder(const OpenFolder &folder) {
  const auto failed = [] { return Status::System("cannot be removed"); };
  std::vector<std::string> names;
  if (Status listed = ListNames(folder.folder.fd, &names); !listed) {
    return SaidAs("cannot be removed", std::move(listed));
  }
  if (Status removed = RemoveLog(folder.folder.fd); !removed) return SaidAs("cannot be removed", std::move(removed));
  for (const std::string &name : names) {
    if (IsKeptName(name) && unlinkat(folder.folder.fd, name.c_str(), 0) != 0) return failed();
  }
  if (Status cleared = machine::ClearLeftOver(folder.folder.fd, kManifestName); !cleared) {
    return SaidAs("cannot be removed", std::move(cleared));
  }
  if (unlinkat(folder.folder.fd, kManifestName, 0) != 0 && errno != ENOENT) return failed();
  if (unlinkat(folder.parent.fd, folder.name.c_str(), AT_REMOVEDIR) != 0) return failed();
  Status flushed = machine::FlushDirectory(folder.parent.fd);
  return flushed ? Status() : SaidAs("was removed, but perhaps not on the disk", std::move(flushed));
}

void RemoveEmptyParent(const OpenFolder &folder) {
  if (unlinkat(folder.windows.fd, kUndoDirectory, AT_REMOVEDIR) == 0) {
    (void)machine::FlushDirectory(folder.windows.fd);
  }
}

namespace {

// What the change's file is now; nothing when it cannot be read.
FileState Present(const OpenFolder &folder, const UndoChange &change) {
  FileState now;
  Descriptor parent;
  std::string name;
  if (!OpenParent(folder.volume.fd, change.path, &parent, &name)) return {};
  const Descriptor file = OpenForReading(parent.fd, name);
  const bool read = file && machine::RegularFileSize(file.fd, &now.size) && now.size <= kLargestFile &&
                    machine::FileDigest(file.fd, now.size, &now.digest);
  return read ? now : FileState();
}

}  // namespace

std::string LaterInjection(const OpenFolder &folder, std::int64_t time, const UndoChange &change, UndoState state) {
  const FileState now = state == UndoState::kInjected ? change.after : Present(folder, change);
  std::vector<std::string> names;
  if (now.digest.empty() || !ListNames(folder.parent.fd, &names)) return "";
  for (const std::string &each : names) {
    OpenFolder other;
    UndoManifest manifest;
    bool unfinished = false;
    other.folder = OpenDirectory(folder.parent.fd, each, O_RDONLY);
    if (each == folder.name || !other.folder || !ReadManifest(other, &manifest, &unfinished)) continue;
    const bool later = manifest.time != time
                           ? manifest.time > time
                           : std::pair(each.size(), each) > std::pair(folder.name.size(), folder.name);
    if (!later) continue;
    const bool comesFirst = std::any_of(manifest.changes.begin(), manifest.changes.end(), [&](const UndoChange &its) {
      return its.path == change.path && its.before && its.before->state != its.after &&
             (now == change.after ? its.before->state : its.after) == now;
    });
    if (comesFirst) return each;
  }
  return "";
}

Status CopyWhole(int from, std::uint64_t size, int to) {
  struct stat status;
  if (fstat(from, &status) != 0) return Status::System("cannot be read");
  if (Status copied = machine::CopyBytes(from, size, to); !copied) return copied;
  if (Status taken = machine::TakeOver(from, to); !taken) {
    return SaidAs("cannot be copied with its owner, mode and attributes", std::move(taken));
  }
  const timespec times[2] = {status.st_atim, status.st_mtim};
  return futimens(to, times) == 0 ? Status() : Status::System("cannot be copied with its times");
}

Status StatesOfLogs(int directory, const std::string &hive, std::vector<HiveLogState> *logs) {
  std::vector<machine::HiveLog> found;
  if (Status listed = machine::FindHiveLogs(directory, hive, &found); !listed) return listed;
  for (const machine::HiveLog &log : found) {
    HiveLogState &state = logs->emplace_back();
    state.name = log.name;
    state.state.size = log.size;
    if (Status read = machine::FileDigest(log.file.fd, log.size, &state.state.digest); !read) return read;
  }
  return {};
}

}  // namespace rescue
