#include "platform/machine/host/replace_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <optional>
#include <vector>

#include "platform/machine/base/fault.h"

namespace machine {
namespace {

// A failure that a test asked for; its error is an errno value.
bool Fails(const char *step) {
  if (!FaultPoint(step, ENOSPC)) return false;
  errno = static_cast<int>(platform::GetLastError());
  return true;
}

// Such as .SYSTEM.vxr-tmp; of a long name the beginning, in whole characters, so that it fits in 255 bytes.
std::string TemporaryName(const std::string &target) {
  std::size_t length = std::min<std::size_t>(target.size(), 240);
  while (length < target.size() && (target[length] & 0xC0) == 0x80) --length;
  return "." + target.substr(0, length) + ".vxr-tmp";
}

// False when another run has the lock. A file system without locks is no reason to fail.
bool Lock(int file) {
  if (flock(file, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return true;
  errno = EBUSY;
  return false;
}

bool OpenNamed(NewFile *created, int flags, mode_t mode) {
  const std::string name = TemporaryName(created->target);
  created->file = Descriptor(openat(created->directory, name.c_str(), O_CREAT | O_EXCL | O_NOFOLLOW | flags, mode));
  if (!created->file && errno == EEXIST) errno = EBUSY;
  if (!created->file || !Lock(created->file.fd)) return false;
  // Until it was locked, another run may have taken it for a left-over.
  if (IsNamed(created->file.fd, created->directory, name)) {
    created->name = name;
    return true;
  }
  errno = EBUSY;
  return false;
}

// --- What a file has besides its contents ---------------------------------------------------------------------------

using Names = std::vector<std::string>;

// What the drivers of NTFS answer to but do not list: security descriptor, attributes, time of creation.
const char *const kNtfsKeys[] = {"system.ntfs_acl", "system.ntfs_security", "system.ntfs_attrib_be",
                                 "system.ntfs_crtime_be"};
// They vouch for the contents, which are others now; the system makes them anew.
const char *const kSeals[] = {"security.ima", "security.evm"};

// Whether the failure is an answer about the attribute: unknown here, not for us, gone by now. Want of room is none.
bool IsRefusal(int error) {
  return error == EOPNOTSUPP || error == EPERM || error == EACCES || error == EINVAL || error == ENODATA;
}

// Nothing on a failure; an empty list where the file system has no such attributes.
std::optional<Names> ListAttributes(const std::string &file) {
  const ssize_t room = listxattr(file.c_str(), nullptr, 0);
  if (room < 0 && IsRefusal(errno)) return Names();
  if (room < 0) return std::nullopt;
  std::string list(static_cast<std::size_t>(room), '\0');
  const ssize_t size = listxattr(file.c_str(), list.data(), list.size());
  if (size < 0) return std::nullopt;
  Names names;
  for (ssize_t at = 0; at < size; at += static_cast<ssize_t>(names.back().size()) + 1) names.emplace_back(&list[at]);
  std::erase_if(names, [](const std::string &name) {
    return std::find(std::begin(kSeals), std::end(kSeals), name) != std::end(kSeals);
  });
  return names;
}

bool CopyAttribute(const std::string &from, const std::string &to, const char *name) {
  const ssize_t room = getxattr(from.c_str(), name, nullptr, 0);
  if (room < 0) return IsRefusal(errno);
  std::string value(static_cast<std::size_t>(room), '\0');
  const ssize_t size = getxattr(from.c_str(), name, value.data(), value.size());
  if (size < 0) return IsRefusal(errno);
  return setxattr(to.c_str(), name, value.data(), static_cast<std::size_t>(size), 0) == 0 || IsRefusal(errno);
}

// Afterwards `to` has those of `from`, and not the access list that its directory gives to new files.
bool CopyAttributes(const std::string &from, const std::string &to) {
  std::optional<Names> names = ListAttributes(from);
  const std::optional<Names> given = ListAttributes(to);
  if (!names || !given) return false;
  for (const std::string &name : *given) {
    const bool kept = std::find(names->begin(), names->end(), name) != names->end();
    if (!kept && removexattr(to.c_str(), name.c_str()) != 0 && !IsRefusal(errno)) return false;
  }
  names->insert(names->end(), std::begin(kNtfsKeys), std::end(kNtfsKeys));
  return std::all_of(names->begin(), names->end(),
                     [&](const std::string &name) { return CopyAttribute(from, to, name.c_str()); });
}

bool CopyOwner(const struct stat &old, int file) {
  struct stat fresh;
  if (fstat(file, &fresh) != 0) return false;
  return (old.st_uid == fresh.st_uid && old.st_gid == fresh.st_gid) || fchown(file, old.st_uid, old.st_gid) == 0;
}

bool CopyMode(const struct stat &old, int file) {
  struct stat fresh;
  if (fstat(file, &fresh) != 0) return false;
  return (old.st_mode & 07777) == (fresh.st_mode & 07777) || fchmod(file, old.st_mode & 07777) == 0;
}

// --- Taking the place -----------------------------------------------------------------------------------------------

bool Rename(NewFile *created, bool exists) {
  if (Fails("file rename")) return false;
  const std::string unnamed = created->HostName();
  if (created->name.empty()) {
    const std::string name = exists ? TemporaryName(created->target) : created->target;
    if (linkat(AT_FDCWD, unnamed.c_str(), created->directory, name.c_str(), AT_SYMLINK_FOLLOW) != 0) return false;
    if (!exists) return true;
    created->name = name;
  }
  if (renameat(created->directory, created->name.c_str(), created->directory, created->target.c_str()) != 0) {
    return false;
  }
  created->name.clear();
  return true;
}

}  // namespace

NewFile::~NewFile() {
  if (!name.empty()) unlinkat(directory, name.c_str(), 0);
}

bool ClearLeftOver(int directory, const std::string &target) {
  const std::string name = TemporaryName(target);
  const Descriptor old(openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!old && errno == ENOENT) return true;
  if (old && !Lock(old.fd)) return false;
  // Until it was locked, another run may have cleared it and made its own.
  if (old && !IsNamed(old.fd, directory, name)) return true;
  return unlinkat(directory, name.c_str(), 0) == 0 || errno == ENOENT;
}

bool OpenNewFile(NewFile *created, bool exists) {
  if (Fails("file create") || !ClearLeftOver(created->directory, created->target)) return false;
  constexpr int kFlags = O_RDWR | O_CLOEXEC;
  const mode_t mode = exists ? 0600 : 0666;
  if (!Fails("file without name")) {
    created->file = Descriptor(openat(created->directory, ".", O_TMPFILE | kFlags, mode));
  }
  return created->file ? Lock(created->file.fd) : OpenNamed(created, kFlags, mode);
}

bool MayWriteTo(int directory) {
  return !Fails("directory write") && faccessat(directory, ".", W_OK | X_OK, AT_EACCESS) == 0;
}

bool WriteAll(int file, const char *bytes, std::size_t size) {
  while (size != 0) {
    const ssize_t written = write(file, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

bool TakeOver(const NewFile &created) {
  if (Fails("file take over")) return false;
  const int file = created.file.fd;
  const Descriptor from(openat(created.directory, created.target.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat status;
  if (!from || fstat(from.fd, &status) != 0) return false;
  // The owner first, since a change of owner clears parts of the mode; the mode last, since without write permission
  // attributes are refused.
  const timespec times[2] = {status.st_atim, {0, UTIME_OMIT}};
  return CopyOwner(status, file) && CopyAttributes("/proc/self/fd/" + std::to_string(from.fd), created.HostName()) &&
         CopyMode(status, file) && futimens(file, times) == 0;
}

// Some file systems cannot flush a directory and say so; what they answer otherwise is a real failure.
bool FlushDirectory(int directory) {
  if (Fails("directory flush")) return false;
  const Descriptor opened(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // One that may be changed but not read is no reason to fail.
  return !opened || fsync(opened.fd) == 0 || errno == EINVAL || errno == EOPNOTSUPP || errno == ENOSYS;
}

const char *PutInPlace(NewFile *created, bool exists) {
  if (Fails("file flush") || fsync(created->file.fd) != 0) return "the new file cannot be flushed to disk";
  created->inPlace = Rename(created, exists);
  if (!created->inPlace) return "the new file cannot take its place";
  if (FlushDirectory(created->directory)) return nullptr;
  return "the new file is in place but its directory cannot be flushed to disk";
}

}  // namespace machine
