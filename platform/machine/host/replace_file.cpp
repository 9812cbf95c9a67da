#include "platform/machine/host/replace_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>
#include <vector>

#include "platform/machine/base/fault.h"

namespace machine {
namespace {

// A failure that a test asked for; its error is an errno value.
Status AskedFailure(const char *step) {
  if (!FaultPoint(step, ENOSPC)) return {};
  return Status::System({}, static_cast<int>(platform::GetLastError()));
}

// What a call of the host that answers 0 answered.
Status Answered(int result) { return result == 0 ? Status() : Status::System(); }

Status Busy() { return Status::System({}, EBUSY); }

// Such as .SYSTEM.vxr-tmp; of a long name the beginning, in whole characters, so that it fits in 255 bytes.
std::string TemporaryName(const std::string &target) {
  std::size_t length = std::min<std::size_t>(target.size(), 240);
  while (length < target.size() && (target[length] & 0xC0) == 0x80) --length;
  return "." + target.substr(0, length) + ".vxr-tmp";
}

// Busy when another run has the lock. A file system without locks is no reason to fail.
Status Lock(int file) { return flock(file, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK ? Status() : Busy(); }

Status OpenNamed(NewFile *created, int flags, mode_t mode) {
  const std::string name = TemporaryName(created->target);
  created->file = Descriptor(openat(created->directory, name.c_str(), O_CREAT | O_EXCL | O_NOFOLLOW | flags, mode));
  if (!created->file) return errno == EEXIST ? Busy() : Status::System();
  if (Status locked = Lock(created->file.fd); !locked) return locked;
  // Until it was locked, another run may have taken it for a left-over.
  if (!IsNamed(created->file.fd, created->directory, name)) return Busy();
  created->name = name;
  return {};
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

// An empty list where the file system has no such attributes.
Status ListAttributes(const std::string &file, Names *names) {
  const ssize_t room = listxattr(file.c_str(), nullptr, 0);
  if (room < 0) return IsRefusal(errno) ? Status() : Status::System();
  std::string list(static_cast<std::size_t>(room), '\0');
  const ssize_t size = listxattr(file.c_str(), list.data(), list.size());
  if (size < 0) return Status::System();
  for (ssize_t at = 0; at < size; at += static_cast<ssize_t>(names->back().size()) + 1) names->emplace_back(&list[at]);
  std::erase_if(*names, [](const std::string &name) {
    return std::find(std::begin(kSeals), std::end(kSeals), name) != std::end(kSeals);
  });
  return {};
}

// The last call's failure, where it is no answer about the attribute.
Status UnlessRefused() { return IsRefusal(errno) ? Status() : Status::System(); }

Status CopyAttribute(const std::string &from, const std::string &to, const char *name) {
  const ssize_t room = getxattr(from.c_str(), name, nullptr, 0);
  if (room < 0) return UnlessRefused();
  std::string value(static_cast<std::size_t>(room), '\0');
  const ssize_t size = getxattr(from.c_str(), name, value.data(), value.size());
  if (size < 0) return UnlessRefused();
  const bool set = setxattr(to.c_str(), name, value.data(), static_cast<std::size_t>(size), 0) == 0;
  return set ? Status() : UnlessRefused();
}

// Afterwards `to` has those of `from`, and not the access list that its directory gives to new files.
Status CopyAttributes(const std::string &from, const std::string &to) {
  Names names, given;
  if (Status listed = ListAttributes(from, &names); !listed) return listed;
  if (Status listed = ListAttributes(to, &given); !listed) return listed;
  for (const std::string &name : given) {
    const bool kept = std::find(names.begin(), names.end(), name) != names.end();
    if (!kept && removexattr(to.c_str(), name.c_str()) != 0 && !IsRefusal(errno)) return Status::System();
  }
  names.insert(names.end(), std::begin(kNtfsKeys), std::end(kNtfsKeys));
  for (const std::string &name : names) {
    if (Status copied = CopyAttribute(from, to, name.c_str()); !copied) return copied;
  }
  return {};
}

Status CopyOwner(const struct stat &old, int file) {
  struct stat fresh;
  if (fstat(file, &fresh) != 0) return Status::System();
  if (old.st_uid == fresh.st_uid && old.st_gid == fresh.st_gid) return {};
  return Answered(fchown(file, old.st_uid, old.st_gid));
}

Status CopyMode(const struct stat &old, int file) {
  struct stat fresh;
  if (fstat(file, &fresh) != 0) return Status::System();
  if ((old.st_mode & 07777) == (fresh.st_mode & 07777)) return {};
  return Answered(fchmod(file, old.st_mode & 07777));
}

// --- Taking the place -----------------------------------------------------------------------------------------------

Status FlushFile(int file) {
  if (Status asked = AskedFailure("file flush"); !asked) return asked;
  return Answered(fsync(file));
}

Status Rename(NewFile *created, bool exists) {
  if (Status asked = AskedFailure("file rename"); !asked) return asked;
  const std::string unnamed = created->HostName();
  if (created->name.empty()) {
    const std::string name = exists ? TemporaryName(created->target) : created->target;
    if (linkat(AT_FDCWD, unnamed.c_str(), created->directory, name.c_str(), AT_SYMLINK_FOLLOW) != 0) {
      return Status::System();
    }
    if (!exists) return {};
    created->name = name;
  }
  if (renameat(created->directory, created->name.c_str(), created->directory, created->target.c_str()) != 0) {
    return Status::System();
  }
  created->name.clear();
  return {};
}

}  // namespace

NewFile::~NewFile() {
  if (!name.empty()) unlinkat(directory, name.c_str(), 0);
}

Status ClearLeftOver(int directory, const std::string &target) {
  const std::string name = TemporaryName(target);
  const Descriptor old(openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!old && errno == ENOENT) return {};
  if (old) {
    if (Status locked = Lock(old.fd); !locked) return locked;
    // Until it was locked, another run may have cleared it and made its own.
    if (!IsNamed(old.fd, directory, name)) return {};
  }
  return unlinkat(directory, name.c_str(), 0) == 0 || errno == ENOENT ? Status() : Status::System();
}

Status OpenNewFile(NewFile *created, bool exists) {
  if (Status asked = AskedFailure("file create"); !asked) return asked;
  if (Status cleared = ClearLeftOver(created->directory, created->target); !cleared) return cleared;
  constexpr int kFlags = O_RDWR | O_CLOEXEC;
  const mode_t mode = exists ? 0600 : 0666;
  if (AskedFailure("file without name")) {
    created->file = Descriptor(openat(created->directory, ".", O_TMPFILE | kFlags, mode));
  }
  return created->file ? Lock(created->file.fd) : OpenNamed(created, kFlags, mode);
}

Status MayWriteTo(int directory) {
  if (Status asked = AskedFailure("directory write"); !asked) return asked;
  return Answered(faccessat(directory, ".", W_OK | X_OK, AT_EACCESS));
}

Status WriteAll(int file, const char *bytes, std::size_t size) {
  while (size != 0) {
    const ssize_t written = write(file, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return Status::System();
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return {};
}

Status TakeOver(const NewFile &created) {
  const Descriptor from(openat(created.directory, created.target.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  return from ? TakeOver(from.fd, created.file.fd) : Status::System();
}

Status TakeOver(int from, int to) {
  if (Status asked = AskedFailure("file take over"); !asked) return asked;
  struct stat status;
  if (fstat(from, &status) != 0) return Status::System();
  // The owner first, since a change of owner clears parts of the mode; the mode last, since without write permission
  // attributes are refused.
  const timespec times[2] = {status.st_atim, {0, UTIME_OMIT}};
  if (Status copied = CopyOwner(status, to); !copied) return copied;
  const std::string names = "/proc/self/fd/";
  if (Status copied = CopyAttributes(names + std::to_string(from), names + std::to_string(to)); !copied) return copied;
  if (Status copied = CopyMode(status, to); !copied) return copied;
  return Answered(futimens(to, times));
}

// Some file systems cannot flush a directory and say so; what they answer otherwise is a real failure.
Status FlushDirectory(int directory) {
  if (Status asked = AskedFailure("directory flush"); !asked) return asked;
  const Descriptor opened(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // One that may be changed but not read is no reason to fail.
  if (!opened || fsync(opened.fd) == 0 || errno == EINVAL || errno == EOPNOTSUPP || errno == ENOSYS) return {};
  return Status::System();
}

Status PutInPlace(NewFile *created, bool exists) {
  if (Status flushed = FlushFile(created->file.fd); !flushed) {
    return SaidAs("the new file cannot be flushed to disk", std::move(flushed));
  }
  if (Status renamed = Rename(created, exists); !renamed) {
    return SaidAs("the new file cannot take its place", std::move(renamed));
  }
  created->inPlace = true;
  Status flushed = FlushDirectory(created->directory);
  if (flushed) return {};
  return SaidAs("the new file is in place but its directory cannot be flushed to disk", std::move(flushed));
}

}  // namespace machine
