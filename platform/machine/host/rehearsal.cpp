#include "platform/machine/host/rehearsal.h"

#include <fcntl.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <map>
#include <set>
#include <tuple>

#include "platform/machine/base/fault.h"
#include "platform/machine/host/file_bytes.h"
#include "platform/machine/host/replace_file.h"
#include "platform/text/ansi_case.h"

namespace machine {
namespace {

using NewFileKey = std::tuple<dev_t, ino_t, std::string>;  // the directory, and the folded name
using FileKey = std::pair<dev_t, ino_t>;

struct Rehearsal {
  std::map<NewFileKey, std::uint64_t> files;  // their bytes
  std::set<NewFileKey> directories;
  std::map<dev_t, std::int64_t> taken;  // bytes of each file system, less what replaced files gave back
  std::map<FileKey, DWORD> attributes;
};

bool g_on = false;
Rehearsal g_rehearsal;

// Whether all files of the directory's file system belong to whom the mount says, a new one too.
bool HasNoOwners(int directory) {
  constexpr std::uint32_t kFat = 0x4D44, kExFat = 0x2011BAB0, kNtfs = 0x5346544E, kNtfs3 = 0x7366746E,
                          kFuse = 0x65735546, kCifs = 0xFF534D42, kSmb2 = 0xFE534D42;
  struct statfs system = {};
  if (fstatfs(directory, &system) != 0) return false;
  const auto type = static_cast<std::uint32_t>(system.f_type);
  const std::uint32_t types[] = {kFat, kExFat, kNtfs, kNtfs3, kFuse, kCifs, kSmb2};
  return std::find(std::begin(types), std::end(types), type) != std::end(types);
}

// Whether the new file could be given the old one's owner and group: a file in memory shows what this process may do.
Status MayTakeOver(int directory, const struct stat &parent, const struct stat &old) {
  const gid_t group = (parent.st_mode & S_ISGID) != 0 ? parent.st_gid : getegid();
  if ((old.st_uid == geteuid() && old.st_gid == group) || HasNoOwners(directory)) return {};
  Descriptor trial;
  if (Status made = MakeMemoryFile(&trial); !made) return made;
  return fchown(trial.fd, old.st_uid, old.st_gid) == 0 ? Status() : Status::System();
}

// Where only a file's owner may replace it, as in a directory for temporary files.
Status MayUnlink(const struct stat &directory, const struct stat &old) {
  const uid_t self = geteuid();
  if ((directory.st_mode & S_ISVTX) == 0 || self == 0 || self == old.st_uid || self == directory.st_uid) return {};
  return Status::System({}, EPERM);
}

Status MayReplace(int directory, const struct stat &parent, const struct stat &old) {
  if (Status may = MayUnlink(parent, old); !may) return may;
  return MayTakeOver(directory, parent, old);
}

Status Refusal(const char *what, int error, const char *advice) {
  return Status::Refused(std::string(what) + " (" + std::strerror(error) + "); " + advice, error);
}

// More than any disk has; sums of a few stay in range.
constexpr std::uint64_t kMost = std::uint64_t{1} << 60;

// Bytes free on the directory's file system at the rehearsal's beginning; -1 when it does not tell.
std::int64_t FreeRoom(int directory, std::int64_t *blockSize) {
  struct statvfs system = {};
  *blockSize = 1;
  if (FaultPoint("free room", ERROR_DISK_FULL)) return 0;
  if (fstatvfs(directory, &system) != 0 || system.f_blocks == 0 || system.f_frsize == 0) return -1;
  *blockSize = static_cast<std::int64_t>(system.f_frsize);
  const fsblkcnt_t blocks = geteuid() == 0 ? system.f_bfree : system.f_bavail;
  return static_cast<std::int64_t>(std::min<std::uint64_t>(blocks, kMost / system.f_frsize) * system.f_frsize);
}

// The new file stands beside the old one for a moment: both need room then.
Status TakeRoom(int directory, dev_t device, std::uint64_t size, std::uint64_t givenBack) {
  std::int64_t blockSize = 1;
  const std::int64_t room = FreeRoom(directory, &blockSize);
  if (room < 0) return {};
  const auto bytes = static_cast<std::int64_t>(std::min(size, 2 * kMost));
  const std::int64_t needed = (bytes + blockSize - 1) / blockSize * blockSize;
  std::int64_t &taken = g_rehearsal.taken[device];
  if (needed > room - taken) {
    const std::int64_t left = std::max<std::int64_t>(room - taken, 0);
    return Status::Refused("there is no room: it needs " + std::to_string(needed) + " bytes, " + std::to_string(left) +
                               " are free; make room on the restored volume",
                           ENOSPC);
  }
  taken += needed - static_cast<std::int64_t>(givenBack);
  return {};
}

// Bytes on the disk that come back when the old file is replaced.
std::uint64_t GivenBack(const struct stat &old) {
  return old.st_nlink > 1 ? 0 : static_cast<std::uint64_t>(old.st_blocks) * 512;
}

}  // namespace

bool Rehearsing() { return g_on; }

Status RehearseNewFile(int directory, const std::string &name, std::uint64_t size) {
  if (const Status may = MayWriteTo(directory); !may) {
    return Refusal("its directory cannot be written to", may.error, "mount the file system for writing, or allow it");
  }
  struct stat parent = {}, old = {};
  if (fstatat(directory, ".", &parent, 0) != 0) {
    return Refusal("its directory cannot be examined", errno, "look for errors of the disk");
  }
  const bool exists = fstatat(directory, name.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0;
  if (const Status may = exists ? MayReplace(directory, parent, old) : Status(); !may) {
    return Refusal("the old file has another owner or group and cannot be replaced", may.error,
                   "run as its owner or as root");
  }
  const NewFileKey key = {parent.st_dev, parent.st_ino, FoldName(name)};
  const auto earlier = g_rehearsal.files.find(key);
  const std::uint64_t back = earlier != g_rehearsal.files.end() ? earlier->second : exists ? GivenBack(old) : 0;
  if (Status taken = TakeRoom(directory, parent.st_dev, size, back); !taken) return taken;
  g_rehearsal.files[key] = size;
  return {};
}

Status RehearseDirectory(int directory, const std::string &name) {
  struct stat parent = {};
  if (Status may = MayWriteTo(directory); !may) return may;
  if (fstatat(directory, ".", &parent, 0) != 0) return Status::System();
  g_rehearsal.directories.emplace(parent.st_dev, parent.st_ino, FoldName(name));
  return {};
}

bool WouldBeDirectory(int directory, const std::string &name) {
  struct stat parent = {};
  if (g_rehearsal.directories.empty() || fstatat(directory, ".", &parent, 0) != 0) return false;
  return g_rehearsal.directories.count({parent.st_dev, parent.st_ino, FoldName(name)}) != 0;
}

Status RoomLeft(int directory, std::uint64_t *bytes) {
  struct stat status = {};
  std::int64_t blockSize = 1;
  if (fstatat(directory, ".", &status, 0) != 0) return Status::System();
  const std::int64_t room = FreeRoom(directory, &blockSize);
  const auto taken = g_rehearsal.taken.find(status.st_dev);
  const std::int64_t less = taken == g_rehearsal.taken.end() ? 0 : taken->second;
  *bytes = room < 0 ? kMost : static_cast<std::uint64_t>(std::max<std::int64_t>(room - less, 0));
  return {};
}

bool WouldExist(const HostPlace &place, std::uint64_t *size) {
  struct stat parent = {};
  if (!g_on || fstatat(place.directory, ".", &parent, 0) != 0) return false;
  const auto found = g_rehearsal.files.find({parent.st_dev, parent.st_ino, FoldName(place.name)});
  if (found == g_rehearsal.files.end()) return false;
  *size = found->second;
  return true;
}

Status RehearseAttributes(const struct stat &file, DWORD attributes) {
  const uid_t self = geteuid();
  if (self != 0 && self != file.st_uid) return Status::System({}, EPERM);
  g_rehearsal.attributes[{file.st_dev, file.st_ino}] = attributes;
  return {};
}

DWORD WouldHaveAttributes(const struct stat &file, DWORD real) {
  const auto found = g_rehearsal.attributes.find({file.st_dev, file.st_ino});
  return found == g_rehearsal.attributes.end() ? real : found->second;
}

void SetRehearsing(bool on) {
  g_on = on;
  g_rehearsal = {};
}

}  // namespace machine
