#include "platform/machine/hive/hive.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/machine/base/little_endian.h"
#include "platform/machine/hive/hive_check.h"
#include "platform/machine/hive/hive_logs.h"
#include "platform/machine/host/file_bytes.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

// Longer data is spread over several cells from version 1.4 on, which libhivex reads but does not write.
constexpr std::size_t kLongestCellData = 16344;

constexpr std::size_t kLongestKeyName = 255;

// Opens and locks. The lock is on the file that is open, and another run may have put a new one in its place between
// the two steps: then it begins again.
std::string OpenLocked(Hive *hive, HiveUse use) {
  for (int attempt = 0; attempt < 10; ++attempt) {
    hive->file =
        Descriptor(openat(hive->directory.fd, hive->name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!hive->file && errno == ELOOP) return "is a symbolic link; name the hive file itself";
    if (!hive->file && errno == ENOENT) return "does not exist; correct the path";
    if (!hive->file) return ErrnoReason("cannot be opened");
    if (flock(hive->file.fd, (use == HiveUse::kChange ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0) {
      if (errno == EWOULDBLOCK) return "is in use by another run; wait for its end, then run again";
      return ErrnoReason("cannot be locked");
    }
    if (IsNamed(hive->file.fd, hive->directory.fd, hive->name)) return "";
  }
  return "is replaced again and again by another program; stop that, then run again";
}

// What is wrong with a hive that needs logs, and what to do when they cannot help.
std::string RefuseRecovery(const Hive &hive) {
  const bool noLog = std::all_of(hive.logs.begin(), hive.logs.end(), [](const HiveLog &log) { return log.size == 0; });
  if (!hive.head.checksumRight) {
    const std::string damage = CheckHead(hive.head);
    if (noLog) return damage;
    return damage.substr(0, damage.rfind(';')) + ", and its logs cannot repair it: " + hive.recovery.refusal +
           "; restore the hive and its logs again, together";
  }
  return "was not closed cleanly (sequence numbers " + std::to_string(hive.head.primary) + " and " +
         std::to_string(hive.head.secondary) + ") and cannot be brought up to date: " + hive.recovery.refusal + "; " +
         (noLog ? "restore its .LOG1 and .LOG2 too" : "restore the hive and its logs again, together") +
         ", or load and unload it once on a running Windows, then run again";
}

// Brings a copy in memory up to date.
std::string Recover(Hive *hive) {
  std::uint8_t binTime[8];
  std::string reason = ReadHiveLogs(&hive->logs);
  if (reason.empty()) reason = ReadAt(hive->file.fd, kFirstBinTime, binTime, sizeof binTime);
  if (!reason.empty()) return reason;
  hive->recovery = PlanRecovery(hive->head, ReadLe64(binTime), hive->logs);
  if (!hive->recovery.refusal.empty()) return RefuseRecovery(*hive);
  reason = MakeMemoryFile(&hive->copy);
  if (reason.empty()) reason = ApplyRecovery(hive->recovery, hive->file.fd, hive->size, hive->copy.fd);
  // Windows puts an empty bin in a damaged one's place, which loses keys; nothing is lost here.
  if (reason.empty()) reason = CheckAllButBins(hive->copy.fd, &hive->state);
  if (!reason.empty()) return "was brought up to date from its logs, but then " + reason;
  hive->recovered = true;
  return "";
}

bool IsAscii(const char *text) {
  while (*text != '\0') {
    if (static_cast<unsigned char>(*text++) >= 0x80) return false;
  }
  return true;
}

std::u16string FromUtf8(const char *text) {
  return IsAscii(text) ? std::u16string(text, text + std::strlen(text)) : Utf8ToUtf16(text);
}

// Whether the name is the one looked for. libhivex ends names at a NUL, which a name may hold: its full length decides
// too.
bool HasName(hive_h *handle, hive_node_h node, const char *name, const std::u16string &folded) {
  if (std::strlen(name) < folded.size() || FoldKeyName(FromUtf8(name)) != folded) return false;
  return hivex_node_name_len(handle, node) == std::strlen(name);
}

LSTATUS Damaged(Hive *hive) {
  hive->damaged = true;
  return ERROR_BADDB;
}

// A key that cannot be seen because the hive is damaged is not one that is absent: a second of its name must not be
// made.
LSTATUS FindChild(Hive *hive, hive_node_h parent, const std::u16string &folded, hive_node_h *node) {
  hive_h *handle = hive->handle.get();
  const Malloced<hive_node_h> children(hivex_node_children(handle, parent));
  if (children == nullptr) return Damaged(hive);
  bool unseen = false;
  for (const hive_node_h *child = children.get(); *child != 0; ++child) {
    const Malloced<char> name(hivex_node_name(handle, *child));
    // Half a surrogate pair is a name that Windows takes and no text of ours names.
    if (name == nullptr && errno != EILSEQ) unseen = true;
    if (name == nullptr || !HasName(handle, *child, name.get(), folded)) continue;
    *node = *child;
    return ERROR_SUCCESS;
  }
  return unseen ? Damaged(hive) : static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND);
}

// The key's node in the file. The hive has been read.
LSTATUS FindNode(Hive *hive, const FoldedPath &path, hive_node_h *node) {
  if (const auto found = hive->nodes.find(path); found != hive->nodes.end()) {
    *node = found->second;
    return ERROR_SUCCESS;
  }
  hive_node_h parent = 0;
  LSTATUS status = ERROR_SUCCESS;
  if (path.empty()) {
    *node = hivex_root(hive->handle.get());
  } else {
    status = FindNode(hive, {path.begin(), path.end() - 1}, &parent);
    if (status == ERROR_SUCCESS) status = FindChild(hive, parent, path.back(), node);
  }
  if (status == ERROR_SUCCESS) hive->nodes.emplace(path, *node);
  return status;
}

bool ReadName(hive_h *handle, hive_value_h cell, std::u16string *name) {
  const Malloced<char> text(hivex_value_key(handle, cell));
  if (text == nullptr) return false;
  *name = FromUtf8(text.get());
  return hivex_value_key_len(handle, cell) == std::strlen(text.get());
}

bool ReadData(hive_h *handle, hive_value_h cell, StoredValue *value) {
  hive_type type{};
  std::size_t size = 0;
  const Malloced<char> data(hivex_value_value(handle, cell, &type, &size));
  if (data == nullptr) return false;
  // Windows keeps types of its own far beyond libhivex's list, which no variable of that enumeration may hold.
  static_assert(sizeof type == sizeof value->type);
  std::memcpy(&value->type, &type, sizeof type);
  value->bytes.assign(data.get(), data.get() + size);
  return true;
}

LSTATUS ReadAllValues(Hive *hive, hive_node_h node, std::vector<StoredValue> *values) {
  hive_h *handle = hive->handle.get();
  const Malloced<hive_value_h> cells(hivex_node_values(handle, node));
  if (cells == nullptr) return Damaged(hive);
  for (const hive_value_h *cell = cells.get(); *cell != 0; ++cell) {
    StoredValue value;
    if (!ReadData(handle, *cell, &value)) return Damaged(hive);
    if (!ReadName(handle, *cell, &value.name)) return ERROR_NOT_SUPPORTED;
    values->push_back(std::move(value));
  }
  return ERROR_SUCCESS;
}

// Has libhivex read what the hive is, by its descriptor, so that what was checked and locked is what is read.
bool OpenContent(Hive *hive, int flags) {
  hive->handle.reset(hivex_open(("/proc/self/fd/" + std::to_string(ContentOf(*hive))).c_str(), flags));
  return hive->handle != nullptr;
}

bool IsTooLong(const Hive &hive, const StoredValue &value) {
  return hive.state.minor > 3 && value.bytes.size() > kLongestCellData;
}

}  // namespace

std::string OpenHive(Hive *hive, HiveUse use) {
  std::string reason = OpenLocked(hive, use);
  if (reason.empty()) reason = ReadHead(hive->file.fd, &hive->size, &hive->head);
  // A wrong checksum says that the rest of the base block may be wrong too, and a log has another one.
  if (reason.empty() && hive->head.checksumRight) reason = CheckHead(hive->head);
  if (reason.empty()) reason = FindHiveLogs(hive->directory.fd, hive->name, &hive->logs);
  if (!reason.empty()) return reason;
  return NeedsRecovery(hive->head) ? Recover(hive) : CheckHive(hive->file.fd, 0, CellCheck::kNone, &hive->state);
}

std::string OpenHiveFile(Hive *hive, const std::filesystem::path &file, HiveUse use) {
  const std::filesystem::path parent = file.has_parent_path() ? file.parent_path() : ".";
  hive->directory = Descriptor(open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  hive->name = file.filename().string();
  return hive->directory ? OpenHive(hive, use) : "cannot be found; correct the path";
}

std::string DescribeReplay(const Recovery &recovery) {
  const char *const numbers[] = {"no log", "one log", "two logs", "three logs"};
  return "replayed " + std::to_string(recovery.entries) + (recovery.entries == 1 ? " entry from " : " entries from ") +
         numbers[recovery.applied.size()];
}

// libhivex maps what it only reads, which must be ours alone: a file that another program cuts short would end this
// one. What it may write it reads into memory, and a copy in memory need not be there twice before something is saved.
bool ReadHive(Hive *hive) {
  if (hive->handle != nullptr) return true;
  if (!hive->failure.empty()) return false;
  // libhivex checks the plain XOR and refuses the two checksums that Windows stores in its place, so it gets a copy in
  // memory that holds what it expects.
  if (hive->state.plainXor != HiveChecksum(hive->state.plainXor)) {
    if (!hive->copy) hive->failure = MakeMemoryFile(&hive->copy);
    if (!hive->recovered && hive->failure.empty()) {
      hive->failure = CopyBytes(hive->file.fd, kBaseBlockSize + std::uint64_t{hive->state.binsSize}, hive->copy.fd);
    }
    std::uint8_t sum[4];
    WriteLe32(sum, hive->state.plainXor);
    if (hive->failure.empty()) hive->failure = WriteAt(hive->copy.fd, kChecksumOffset, sum, sizeof sum);
    if (!hive->failure.empty()) return false;
  }
  if (OpenContent(hive, hive->copy ? 0 : HIVEX_OPEN_WRITE)) return true;
  hive->failure = std::string("is damaged within its bins (") + std::strerror(errno) + "); restore the file again";
  return false;
}

bool MakeHiveWritable(Hive *hive) { return !hive->copy || OpenContent(hive, HIVEX_OPEN_WRITE); }

LSTATUS FindHiveKey(Hive *hive, const KeyPath &key) {
  if (hive->changes.count(key.folded) != 0) return ERROR_SUCCESS;
  if (!ReadHive(hive)) return Damaged(hive);
  hive_node_h node = 0;
  return FindNode(hive, key.folded, &node);
}

LSTATUS FindHiveValue(Hive *hive, const KeyPath &key, const std::u16string &foldedName, StoredValue *value) {
  const auto changed = hive->changes.find(key.folded);
  if (changed != hive->changes.end() && changed->second.valuesSet) {
    const StoredValue *found = FindValue(&changed->second.values, foldedName);
    if (found == nullptr) return ERROR_FILE_NOT_FOUND;
    *value = *found;
    return ERROR_SUCCESS;
  }
  if (!ReadHive(hive)) return Damaged(hive);
  hive_node_h node = 0;
  if (const LSTATUS found = FindNode(hive, key.folded, &node); found != ERROR_SUCCESS) return found;
  const Malloced<hive_value_h> cells(hivex_node_values(hive->handle.get(), node));
  if (cells == nullptr) return Damaged(hive);
  for (const hive_value_h *cell = cells.get(); *cell != 0; ++cell) {
    if (!ReadName(hive->handle.get(), *cell, &value->name) || FoldKeyName(value->name) != foldedName) continue;
    return ReadData(hive->handle.get(), *cell, value) ? ERROR_SUCCESS : Damaged(hive);
  }
  return ERROR_FILE_NOT_FOUND;
}

LSTATUS CreateHiveKey(Hive *hive, const KeyPath &key) {
  const auto isTooLong = [](const std::u16string &name) { return name.size() > kLongestKeyName; };
  if (std::any_of(key.names.begin(), key.names.end(), isTooLong)) return ERROR_INVALID_PARAMETER;
  for (std::size_t count = 1; count <= key.names.size(); ++count) {
    const KeyPath prefix = KeyPathPrefix(key, count);
    const LSTATUS found = FindHiveKey(hive, prefix);
    if (found == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND)) {
      hive->changes[prefix.folded].name = prefix.names.back();
    } else if (found != ERROR_SUCCESS) {
      return found;
    }
  }
  return ERROR_SUCCESS;
}

LSTATUS SetHiveValue(Hive *hive, const KeyPath &key, StoredValue value) {
  const LSTATUS found = FindHiveKey(hive, key);
  if (found != ERROR_SUCCESS) return found;
  if (IsTooLong(*hive, value)) return ERROR_NOT_SUPPORTED;

  const auto changed = hive->changes.find(key.folded);
  if (changed != hive->changes.end() && changed->second.valuesSet) {
    PutValue(&changed->second.values, std::move(value));
    return ERROR_SUCCESS;
  }
  std::vector<StoredValue> values;
  if (changed == hive->changes.end()) {
    hive_node_h node = 0;
    LSTATUS read = FindNode(hive, key.folded, &node);
    if (read == ERROR_SUCCESS) read = ReadAllValues(hive, node, &values);
    if (read != ERROR_SUCCESS) return read;
  }
  const StoredValue *old = FindValue(&values, FoldKeyName(value.name));
  if (old != nullptr && old->type == value.type && old->bytes == value.bytes) return ERROR_SUCCESS;
  PutValue(&values, std::move(value));
  if (std::any_of(values.begin(), values.end(), [&](const StoredValue &each) { return IsTooLong(*hive, each); })) {
    return ERROR_NOT_SUPPORTED;
  }
  ChangedKey &entry = hive->changes[key.folded];
  entry.valuesSet = true;
  entry.values = std::move(values);
  return ERROR_SUCCESS;
}

}  // namespace machine
