// Saving a hive: never in place, so that whatever fails, or whenever the machine stops, the old hive or the new one is
// whole under the hive's name.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "log/scope_guard.h"
#include "platform/machine/code_page.h"
#include "platform/machine/fault.h"
#include "platform/machine/file_time.h"
#include "platform/machine/hive.h"
#include "platform/machine/hive_check.h"
#include "platform/machine/little_endian.h"
#include "platform/machine/machine.h"

namespace machine {
namespace {

std::string ErrnoReason(const char *what) { return std::string(what) + ": " + std::strerror(errno); }

std::string FaultReason(const char *what) {
  return std::string(what) + ": system error " + std::to_string(platform::GetLastError());
}

bool SetValues(hive_h *handle, hive_node_h node, const std::vector<StoredValue> &values) {
  std::vector<std::string> names;
  for (const StoredValue &value : values) names.push_back(Utf16ToUtf8(value.name));
  std::vector<hive_set_value> list;
  for (std::size_t i = 0; i < values.size(); ++i) {
    // libhivex takes its input as not const and does not write to it.
    auto *data = reinterpret_cast<char *>(const_cast<BYTE *>(values[i].bytes.data()));
    list.push_back({names[i].data(), hive_t_REG_NONE, values[i].bytes.size(), data});
    // Types beyond libhivex's list are kept too; the enumeration takes them only as bytes.
    std::memcpy(&list.back().t, &values[i].type, sizeof values[i].type);
  }
  return hivex_node_set_values(handle, node, list.size(), list.data(), 0) == 0;
}

// Makes the new keys and sets each changed key's values, in libhivex's copy in memory.
bool ApplyChanges(Hive *hive, std::string *reason) {
  hive_h *handle = hive->handle.get();
  for (const auto &[path, key] : hive->changes) {
    hive_node_h node = 0;
    if (const auto found = hive->nodes.find(path); found != hive->nodes.end()) {
      node = found->second;
    } else {
      const hive_node_h parent = hive->nodes.at({path.begin(), path.end() - 1});
      node = hivex_node_add_child(handle, parent, Utf16ToUtf8(key.name).c_str());
      if (node != 0) hive->nodes.emplace(path, node);
    }
    if (node == 0 || (key.valuesSet && !SetValues(handle, node, key.values))) {
      *reason = ErrnoReason(("could not take the key " + Utf16ToAnsi(key.name) + " and its values").c_str());
      return false;
    }
  }
  return true;
}

std::uint64_t FileTimeNow() {
  const Description *description = Current();
  const bool fixed = description != nullptr && description->system.clock.has_value();
  const std::int64_t seconds = fixed ? *description->system.clock : static_cast<std::int64_t>(std::time(nullptr));
  return TicksOf(FileTimeOf(seconds, 0));
}

// libhivex leaves the last written time, by which an old log beside the hive could still be taken to belong to it, and
// stores a checksum that Windows rejects when the XOR is 0 or 0xFFFFFFFF.
bool FinishBaseBlock(int file, std::string *reason) {
  std::uint8_t block[kChecksumOffset + 4], time[8];
  const std::uint64_t now = FileTimeNow();
  WriteLe32(time, static_cast<std::uint32_t>(now));
  WriteLe32(time + 4, static_cast<std::uint32_t>(now >> 32));
  bool good = pread(file, block, sizeof block, 0) == sizeof block;
  std::memcpy(block + kTimeOffset, time, sizeof time);
  WriteLe32(block + kChecksumOffset, HiveChecksum(PlainXor(block)));
  good = good && pwrite(file, block, sizeof block, 0) == sizeof block;
  good = good && pwrite(file, time, sizeof time, kFirstBinTime) == sizeof time;
  if (!good) *reason = ErrnoReason("the new file cannot be written");
  return good;
}

bool CopyAttributes(int from, int to) {
  const ssize_t listSize = flistxattr(from, nullptr, 0);
  if (listSize < 0) return errno == ENOTSUP;
  std::vector<char> names(static_cast<std::size_t>(listSize) + 1), value;
  const ssize_t listed = flistxattr(from, names.data(), static_cast<std::size_t>(listSize));
  if (listed < 0) return false;
  for (const char *name = names.data(); name < names.data() + listed; name += std::strlen(name) + 1) {
    // The system labels the new file by its own rules.
    if (std::strncmp(name, "security.", 9) == 0) continue;
    const ssize_t size = fgetxattr(from, name, nullptr, 0);
    if (size < 0) return false;
    value.resize(static_cast<std::size_t>(size) + 1);
    const ssize_t got = fgetxattr(from, name, value.data(), static_cast<std::size_t>(size));
    if (got < 0 || fsetxattr(to, name, value.data(), static_cast<std::size_t>(got), 0) != 0) return false;
  }
  return true;
}

bool CopyOwnerAndMode(int from, int to, std::string *reason) {
  struct stat old, fresh;
  bool good = fstat(from, &old) == 0 && fstat(to, &fresh) == 0;
  if (good && (old.st_uid != fresh.st_uid || old.st_gid != fresh.st_gid)) {
    good = fchown(to, old.st_uid, old.st_gid) == 0;
  }
  good = good && fchmod(to, old.st_mode & 07777) == 0 && CopyAttributes(from, to);
  if (!good) *reason = ErrnoReason("the new file cannot be given the owner, mode and attributes of the old one");
  return good;
}

// Writes the new hive to the open temporary file and has it on disk when it returns.
bool WriteTemporary(const Hive &hive, int file, std::uint64_t *size, std::string *reason) {
  if (FaultPoint("hive write", ERROR_DISK_FULL)) {
    *reason = FaultReason("the new file cannot be written");
    return false;
  }
  if (hivex_commit(hive.handle.get(), ("/proc/self/fd/" + std::to_string(file)).c_str(), 0) != 0) {
    *reason = ErrnoReason("the new file cannot be written");
    return false;
  }
  if (!FinishBaseBlock(file, reason) || !CopyOwnerAndMode(hive.file.fd, file, reason)) return false;
  HiveFacts facts;
  if (const std::string wrong = CheckHive(file, hive.binsSize, &facts); !wrong.empty()) {
    *reason = "the new file " + wrong;
    return false;
  }
  *size = facts.size;
  if (FaultPoint("hive flush", ERROR_DISK_FULL)) {
    *reason = FaultReason("the new file cannot be flushed to disk");
    return false;
  }
  if (fsync(file) == 0) return true;
  *reason = ErrnoReason("the new file cannot be flushed to disk");
  return false;
}

bool Replace(const Hive &hive, const std::string &temporary, std::string *reason) {
  if (FaultPoint("hive rename", ERROR_DISK_FULL)) {
    *reason = FaultReason("the new file cannot take the old one's place");
    return false;
  }
  if (renameat(hive.directory.fd, temporary.c_str(), hive.directory.fd, hive.name.c_str()) == 0) return true;
  *reason = ErrnoReason("the new file cannot take the old one's place");
  return false;
}

// Some file systems cannot flush a directory and say so; what they answer otherwise is a real failure.
bool FlushDirectory(int directory, std::string *reason) {
  if (fsync(directory) == 0 || errno == EINVAL || errno == ENOTSUP || errno == ENOSYS) return true;
  *reason = ErrnoReason("the new file is in place but its directory cannot be flushed to disk");
  return false;
}

}  // namespace

bool SaveHive(Hive *hive, std::uint64_t *size, std::string *reason) {
  *size = 0;
  if (hive->changes.empty()) return true;
  hive->nodes.emplace(FoldedPath(), hivex_root(hive->handle.get()));
  *reason = CheckReplacedCells(hive);
  if (!reason->empty() || !ApplyChanges(hive, reason)) return false;

  // One that a run left when it was stopped may be there; the lock on the hive says that no other run writes it now.
  const std::string temporary = "." + hive->name + ".vxr-tmp";
  unlinkat(hive->directory.fd, temporary.c_str(), 0);
  const int flags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  const Descriptor file(openat(hive->directory.fd, temporary.c_str(), flags, 0600));
  if (!file) {
    *reason = ErrnoReason("no new file can be made beside it");
    return false;
  }
  bool renamed = false;
  const ScopeGuard removeUnlessRenamed([&] {
    if (!renamed) unlinkat(hive->directory.fd, temporary.c_str(), 0);
  });
  if (!WriteTemporary(*hive, file.fd, size, reason)) return false;
  renamed = Replace(*hive, temporary, reason);
  return renamed && FlushDirectory(hive->directory.fd, reason);
}

}  // namespace machine
