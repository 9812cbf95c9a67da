#include "platform/machine/rehearsal.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <tuple>

#include "platform/machine/fault.h"
#include "platform/machine/file_bytes.h"
#include "platform/machine/fold_name.h"
#include "platform/machine/machine.h"
#include "platform/machine/paths.h"
#include "platform/machine/replace_file.h"

namespace machine {
namespace {

using NewFileKey = std::tuple<dev_t, ino_t, std::string>;  // the directory, and the folded name
using FileKey = std::pair<dev_t, ino_t>;

struct Rehearsal {
  std::map<NewFileKey, std::uint64_t> files;  // their bytes
  std::map<dev_t, std::int64_t> taken;        // bytes of each file system, less what replaced files gave back
  std::map<FileKey, DWORD> attributes;
};

bool g_on = false;
Rehearsal g_rehearsal;

// Whether the new file could be given the old one's owner. On a file system that gives all files one owner, its
// directory's, nothing has to be given; else a file in memory shows what this process may do.
bool MayTakeOver(const struct stat &directory, const struct stat &old) {
  if (old.st_uid == directory.st_uid && old.st_gid == directory.st_gid) return true;
  if (old.st_uid == geteuid() && old.st_gid == getegid()) return true;
  Descriptor trial;
  return MakeMemoryFile(&trial).empty() && fchown(trial.fd, old.st_uid, old.st_gid) == 0;
}

// Where only a file's owner may replace it, as in a directory for temporary files.
bool MayReplace(const struct stat &directory, const struct stat &old) {
  const uid_t self = geteuid();
  if ((directory.st_mode & S_ISVTX) == 0 || self == 0 || self == old.st_uid || self == directory.st_uid) return true;
  errno = EPERM;
  return false;
}

std::string Reason(const char *what, const char *advice) {
  return std::string(what) + " (" + std::strerror(errno) + "); " + advice;
}

// Room on the directory's file system in bytes, what is taken already included; -1 when it does not tell.
std::int64_t FreeRoom(int directory, std::int64_t *blockSize) {
  struct statvfs system = {};
  *blockSize = 1;
  if (FaultPoint("free room", ERROR_DISK_FULL)) return 0;
  if (fstatvfs(directory, &system) != 0 || system.f_blocks == 0 || system.f_frsize == 0) return -1;
  *blockSize = static_cast<std::int64_t>(system.f_frsize);
  const fsblkcnt_t blocks = geteuid() == 0 ? system.f_bfree : system.f_bavail;
  std::int64_t bytes = 0;
  return __builtin_mul_overflow(blocks, *blockSize, &bytes) ? INT64_MAX : bytes;
}

// The new file stands beside the old one for a moment: both need room then.
std::string TakeRoom(int directory, dev_t device, std::uint64_t size, std::uint64_t givenBack) {
  std::int64_t blockSize = 1;
  const std::int64_t room = FreeRoom(directory, &blockSize);
  if (size > INT64_MAX / 2) size = INT64_MAX / 2;
  const std::int64_t needed = (static_cast<std::int64_t>(size) + blockSize - 1) / blockSize * blockSize;
  std::int64_t &taken = g_rehearsal.taken[device];
  if (room >= 0 && needed > room - taken) {
    errno = ENOSPC;
    const std::int64_t left = room > taken ? room - taken : 0;
    return "there is no room: it needs " + std::to_string(needed) + " bytes, " + std::to_string(left) +
           " are free; make room on the restored volume";
  }
  taken += needed - static_cast<std::int64_t>(givenBack);
  return "";
}

// Bytes on the disk that come back when the old file is replaced.
std::uint64_t GivenBack(const struct stat &old) {
  return old.st_nlink > 1 ? 0 : static_cast<std::uint64_t>(old.st_blocks) * 512;
}

}  // namespace

bool Rehearsing() { return g_on; }

std::string RehearseNewFile(int directory, const std::string &name, std::uint64_t size) {
  if (!MayWriteTo(directory)) {
    return Reason("its directory cannot be written to", "mount the file system for writing, or allow it");
  }
  struct stat parent = {}, old = {};
  if (fstatat(directory, ".", &parent, 0) != 0)
    return Reason("its directory cannot be examined", "look for its errors");
  const bool exists = fstatat(directory, name.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0;
  if (exists && (!MayReplace(parent, old) || !MayTakeOver(parent, old))) {
    return Reason("the old file belongs to another user and cannot be replaced", "run as its owner or as root");
  }
  const NewFileKey key = {parent.st_dev, parent.st_ino, FoldName(name)};
  const auto earlier = g_rehearsal.files.find(key);
  const std::uint64_t back = earlier != g_rehearsal.files.end() ? earlier->second : exists ? GivenBack(old) : 0;
  std::string reason = TakeRoom(directory, parent.st_dev, size, back);
  if (reason.empty()) g_rehearsal.files[key] = size;
  return reason;
}

bool WouldExist(const HostPlace &place, std::uint64_t *size) {
  struct stat parent = {};
  if (!g_on || fstatat(place.directory, ".", &parent, 0) != 0) return false;
  const auto found = g_rehearsal.files.find({parent.st_dev, parent.st_ino, FoldName(place.name)});
  if (found == g_rehearsal.files.end()) return false;
  *size = found->second;
  return true;
}

bool RehearseAttributes(const struct stat &file, DWORD attributes) {
  const uid_t self = geteuid();
  if (self != 0 && self != file.st_uid) {
    errno = EPERM;
    return false;
  }
  g_rehearsal.attributes[{file.st_dev, file.st_ino}] = attributes;
  return true;
}

DWORD WouldHaveAttributes(const struct stat &file, DWORD real) {
  const auto found = g_rehearsal.attributes.find({file.st_dev, file.st_ino});
  return found == g_rehearsal.attributes.end() ? real : found->second;
}

bool BeginRehearsal() {
  if (g_on) return true;
  if (CurrentOrNotReady() == nullptr || !BeginRegistryRehearsal()) return false;
  BeginPromptRehearsal();
  g_on = true;
  return true;
}

void EndRehearsal() {
  if (!g_on) return;
  g_on = false;
  g_rehearsal = {};
  EndRegistryRehearsal();
  EndPromptRehearsal();
}

}  // namespace machine

int32_t VXRMachine_Rehearse(int32_t on) {
  if (on != 0) return machine::BeginRehearsal();
  machine::EndRehearsal();
  return 1;
}
