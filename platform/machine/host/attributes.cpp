#include "platform/machine/host/attributes.h"

#include <sys/xattr.h>

#include <array>
#include <cerrno>
#include <optional>

namespace machine {
namespace {

constexpr const char *kNtfsAttributes = "system.ntfs_attrib_be";
constexpr const char *kOwnAttributes = "user.vxr.attributes";
// Read-only, hidden, system, archive, temporary, offline, not indexed; the others tell what a file is.
constexpr DWORD kSettable = 0x3127;

std::optional<DWORD> ReadStored(const std::string &hostName, const char *key) {
  std::array<BYTE, 4> bytes;
  if (getxattr(hostName.c_str(), key, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) return {};
  return DWORD{bytes[0]} << 24 | DWORD{bytes[1]} << 16 | DWORD{bytes[2]} << 8 | DWORD{bytes[3]};
}

// The attributes that an NTFS mount keeps itself. A file system that does not know the key never will: it is asked
// once.
std::optional<DWORD> ReadNtfs(const std::string &hostName, const struct stat &status) {
  static dev_t without = 0;
  if (without != 0 && status.st_dev == without) return {};
  std::optional<DWORD> attributes = ReadStored(hostName, kNtfsAttributes);
  if (!attributes && errno == EOPNOTSUPP) without = status.st_dev;
  return attributes;
}

Status WriteStored(const std::string &hostName, const char *key, DWORD attributes) {
  const std::array<BYTE, 4> bytes = {static_cast<BYTE>(attributes >> 24), static_cast<BYTE>(attributes >> 16),
                                     static_cast<BYTE>(attributes >> 8), static_cast<BYTE>(attributes)};
  return setxattr(hostName.c_str(), key, bytes.data(), bytes.size(), 0) == 0 ? Status() : Status::System();
}

bool IsFile(const struct stat &status) { return !S_ISDIR(status.st_mode); }

// What a file has that nobody set attributes on: Windows marks every new file for the archive.
DWORD UsualAttributes(const struct stat &status) { return IsFile(status) ? FILE_ATTRIBUTE_ARCHIVE : 0; }

// The permissions that say whether a file is read-only; a directory keeps its own.
mode_t ModeFor(const struct stat &status, bool writable) {
  const mode_t mode = status.st_mode & 07777;
  if (!IsFile(status)) return mode;
  if (!writable) return mode & ~kWriteBits;
  return (mode & kWriteBits) == 0 ? mode | S_IWUSR : mode;
}

Status ChangeMode(const std::string &hostName, mode_t from, mode_t to) {
  return from == to || chmod(hostName.c_str(), to) == 0 ? Status() : Status::System();
}

Status RemoveOwn(const std::string &hostName) {
  return removexattr(hostName.c_str(), kOwnAttributes) == 0 ? Status() : Status::System();
}

Status WriteOwn(const std::string &hostName, const struct stat &status, DWORD attributes) {
  const bool usual = (attributes & ~FILE_ATTRIBUTE_READONLY) == UsualAttributes(status) &&
                     (IsFile(status) || (attributes & FILE_ATTRIBUTE_READONLY) == 0);
  Status written = usual ? RemoveOwn(hostName) : WriteStored(hostName, kOwnAttributes, attributes);
  return written.error == ENODATA || written.error == EOPNOTSUPP ? Status() : written;
}

}  // namespace

DWORD ReadAttributes(const std::string &hostName, const struct stat &status) {
  const std::optional<DWORD> ntfs = ReadNtfs(hostName, status);
  DWORD attributes = ntfs.value_or(0);
  if (!ntfs) {
    attributes = ReadStored(hostName, kOwnAttributes).value_or(UsualAttributes(status)) & kSettable;
    // The permissions alone say this of a file: somebody may have changed them since.
    if (IsFile(status)) attributes &= ~FILE_ATTRIBUTE_READONLY;
  }
  if (IsFile(status) && (status.st_mode & kWriteBits) == 0) attributes |= FILE_ATTRIBUTE_READONLY;
  attributes &= ~(FILE_ATTRIBUTE_NORMAL | FILE_ATTRIBUTE_DIRECTORY);
  if (S_ISDIR(status.st_mode)) attributes |= FILE_ATTRIBUTE_DIRECTORY;
  return attributes == 0 ? FILE_ATTRIBUTE_NORMAL : attributes;
}

Status WriteAttributes(const std::string &hostName, const struct stat &status, DWORD attributes) {
  attributes &= kSettable;
  const bool readOnly = (attributes & FILE_ATTRIBUTE_READONLY) != 0;
  const mode_t before = status.st_mode & 07777;
  const mode_t writable = ModeFor(status, true);
  if (const std::optional<DWORD> ntfs = ReadNtfs(hostName, status)) {
    if (!readOnly) {
      if (Status changed = ChangeMode(hostName, before, writable); !changed) return changed;
    }
    return WriteStored(hostName, kNtfsAttributes, (*ntfs & ~kSettable) | attributes);
  }
  // Writable for the moment in any case: a file without write permission refuses extended attributes.
  if (Status changed = ChangeMode(hostName, before, writable); !changed) return changed;
  Status written = WriteOwn(hostName, status, attributes);
  if (written) return ChangeMode(hostName, writable, ModeFor(status, !readOnly));
  (void)ChangeMode(hostName, writable, before);
  return written;
}

}  // namespace machine
