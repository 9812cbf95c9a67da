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
Status OpenLocked(Hive *hive, HiveUse use) {
  for (int attempt = 0; attempt < 10; ++attempt) {
    hive->file =
        Descriptor(openat(hive->directory.fd, hive->name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!hive->file && errno == ELOOP) return Status::Refused("is a symbolic link; name the hive file itself", errno);
    if (!hive->file && errno == ENOENT) return Status::Refused("does not exist; correct the path", errno);
    if (!hive->file) return Status::System("cannot be opened");
    if (flock(hive->file.fd, (use == HiveUse::kChange ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK) return Status::System("cannot be locked");
      return Status::Refused("is in use by another run; wait for its end, then run again", errno);
    }
    if (IsNamed(hive->file.fd, hive->directory.fd, hive->name)) return {};
  }
  return Status::Refused("is replaced again and again by another program; stop that, then run again");
}

// What is wrong with a hive that needs logs, and what to do when they cannot help.
Status RefuseRecovery(const Hive &hive) {
  const bool noLog = std::all_of(hive.logs.begin(), hive.logs.end(), [](const HiveLog &log) { return log.size == 0; });
  if (!hive.head.checksumRight) {
    Status damage = CheckHead(hive.head);
    if (noLog) return damage;
    return Status::Refused(damage.text.substr(0, damage.text.rfind(';')) + ", and its logs cannot repair it: " +
                           hive.recovery.refusal + "; restore the hive and its logs again, together");
  }
  return Status::Refused("was not closed cleanly (sequence numbers " + std::to_string(hive.head.primary) + " and " +
                         std::to_string(hive.head.secondary) +
                         ") and cannot be brought up to date: " + hive.recovery.refusal + "; " +
                         (noLog ? "restore its .LOG1 and .LOG2 too" : "restore the hive and its logs again, together") +
                         ", or load and unload it once on a running Windows, then run again");
}

// Makes a copy in memory that is up to date, by the plan for it.
Status MakeRecovered(Hive *hive) {
  if (Status made = MakeMemoryFile(&hive->copy); !made) return made;
  Status applied = ApplyRecovery(hive->recovery, hive->file.fd, hive->size, hive->copy.fd);
  if (!applied) return applied;
  // Windows puts an empty bin in a damaged one's place, which loses keys; nothing is lost here.
  return CheckAllButBins(hive->copy.fd, &hive->state);
}

Status Recover(Hive *hive) {
  if (Status read = ReadHiveLogs(&hive->logs); !read) return read;
  std::uint8_t binTime[8];
  if (Status read = ReadAt(hive->file.fd, kFirstBinTime, binTime, sizeof binTime); !read) return read;
  hive->recovery = PlanRecovery(hive->head, ReadLe64(binTime), hive->logs);
  if (!hive->recovery.refusal.empty()) return RefuseRecovery(*hive);
  if (Status made = MakeRecovered(hive); !made) {
    made.text.insert(0, "was brought up to date from its logs, but then ");
    return made;
  }
  hive->recovered = true;
  return {};
}

bool IsAscii(const char *text) {
  while (*text != '\0') {
    if (static_cast<unsigned char>(*text++) >= 0x80) return false;
  }
  return true;
}

bool ReadName(hive_h *handle, hive_value_h cell, std::u16string *name) {
  const Malloced<char> text(hivex_value_key(handle, cell));
  if (text == nullptr) return false;
  *name = HiveText(text.get());
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

enum class Unnamed { kFails, kLeftOut };  // a value whose name cannot be given

Status ReadAllValues(Hive *hive, hive_node_h node, Unnamed unnamed, std::vector<StoredValue> *values) {
  hive_h *handle = hive->handle.get();
  const Malloced<hive_value_h> cells(hivex_node_values(handle, node));
  if (cells == nullptr) return DamagedHive(hive);
  for (const hive_value_h *cell = cells.get(); *cell != 0; ++cell) {
    StoredValue value;
    if (!ReadData(handle, *cell, &value)) return DamagedHive(hive);
    if (ReadName(handle, *cell, &value.name)) {
      values->push_back(std::move(value));
    } else if (unnamed == Unnamed::kFails) {
      return Status::Of(StatusKind::kUnsupported);
    }
  }
  return {};
}

// The values of a key that exists.
Status ReadValues(Hive *hive, const KeyPath &key, Unnamed unnamed, std::vector<StoredValue> *values) {
  const auto changed = hive->changes.find(key.folded);
  if (changed != hive->changes.end()) {
    *values = changed->second.values;
    return {};
  }
  hive_node_h node = 0;
  if (Status found = FindHiveNode(hive, key.folded, &node); !found) return found;
  return ReadAllValues(hive, node, unnamed, values);
}

// Has libhivex read what the hive is, by its descriptor, so that what was checked and locked is what is read.
bool OpenContent(Hive *hive, int flags) {
  hive->handle.reset(hivex_open(("/proc/self/fd/" + std::to_string(ContentOf(*hive))).c_str(), flags));
  return hive->handle != nullptr;
}

// libhivex checks the plain XOR and refuses the two checksums that Windows stores in its place, so it gets a copy in
// memory that holds what it expects.
Status CopyWithPlainXor(Hive *hive) {
  if (!hive->copy) {
    if (Status made = MakeMemoryFile(&hive->copy); !made) return made;
  }
  if (!hive->recovered) {
    const std::uint64_t size = kBaseBlockSize + std::uint64_t{hive->state.binsSize};
    if (Status copied = CopyBytes(hive->file.fd, size, hive->copy.fd); !copied) return copied;
  }
  std::uint8_t sum[4];
  WriteLe32(sum, hive->state.plainXor);
  return WriteAt(hive->copy.fd, kChecksumOffset, sum, sizeof sum);
}

// libhivex maps what it only reads, which must be ours alone: a file that another program cuts short would end this
// one. What it may write it reads into memory, and a copy in memory need not be there twice before something is saved.
Status ReadFirst(Hive *hive) {
  if (hive->state.plainXor != HiveChecksum(hive->state.plainXor)) {
    if (Status copied = CopyWithPlainXor(hive); !copied) return copied;
  }
  if (OpenContent(hive, hive->copy ? 0 : HIVEX_OPEN_WRITE)) return {};
  const int error = errno;
  // A file that is open has a name wherever /proc is.
  if (error == ENOENT) {
    return Status::Refused("cannot be read, since /proc is not mounted; mount it: mount -t proc proc /proc", error);
  }
  return Status::Refused(
      std::string("is damaged within its bins (") + std::strerror(error) + "); restore the file again", error);
}

bool IsTooLong(const Hive &hive, const StoredValue &value) {
  return hive.state.minor > 3 && value.bytes.size() > kLongestCellData;
}

// All values of a key that exists, in place of those that it has.
Status ReplaceValues(Hive *hive, const KeyPath &key, std::vector<StoredValue> values) {
  if (std::any_of(values.begin(), values.end(), [&](const StoredValue &each) { return IsTooLong(*hive, each); })) {
    return Status::Of(StatusKind::kUnsupported);
  }
  ChangedKey &entry = hive->changes[key.folded];
  entry.valuesSet = true;
  entry.values = std::move(values);
  return {};
}

// Whether the change leaves the file's key as it is; the order of values says nothing.
bool IsUnchanged(Hive *hive, const ChangedKey &key, hive_node_h node) {
  std::vector<StoredValue> values;
  const Malloced<char> name(hivex_node_name(hive->handle.get(), node));
  const bool respelled = name == nullptr || (!key.name.empty() && HiveText(name.get()) != key.name);
  if (respelled || !ReadAllValues(hive, node, Unnamed::kFails, &values) || values.size() != key.values.size()) {
    return false;
  }
  return std::all_of(key.values.begin(), key.values.end(), [&](const StoredValue &value) {
    const StoredValue *old = FindValue(&values, FoldKeyName(value.name));
    return old != nullptr && old->name == value.name && old->type == value.type && old->bytes == value.bytes;
  });
}

}  // namespace

void ForgetUnchanged(Hive *hive) {
  for (auto change = hive->changes.begin(); change != hive->changes.end();) {
    const FoldedPath &path = change->first;
    const auto node = hive->nodes.find(path);
    // A key below one that is deleted goes with it.
    const bool stands = !path.empty() && hive->deleted.count({path.begin(), path.end() - 1}) == 0;
    if (stands && node != hive->nodes.end() && IsUnchanged(hive, change->second, node->second)) {
      hive->deleted.erase(path);
      change = hive->changes.erase(change);
    } else {
      ++change;
    }
  }
}

std::u16string HiveText(const char *text) {
  return IsAscii(text) ? std::u16string(text, text + std::strlen(text)) : Utf8ToUtf16(text);
}

Status OpenHive(Hive *hive, HiveUse use) {
  if (Status opened = OpenLocked(hive, use); !opened) return opened;
  if (Status read = ReadHead(hive->file.fd, &hive->size, &hive->head); !read) return read;
  // A wrong checksum says that the rest of the base block may be wrong too, and a log has another one.
  if (hive->head.checksumRight) {
    if (Status right = CheckHead(hive->head); !right) return right;
  }
  if (Status found = FindHiveLogs(hive->directory.fd, hive->name, &hive->logs); !found) return found;
  return NeedsRecovery(hive->head) ? Recover(hive) : CheckHive(hive->file.fd, 0, CellCheck::kNone, &hive->state);
}

Status OpenHiveFile(Hive *hive, const std::filesystem::path &file, HiveUse use) {
  const std::filesystem::path parent = file.has_parent_path() ? file.parent_path() : ".";
  hive->directory = Descriptor(open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  hive->name = file.filename().string();
  return hive->directory ? OpenHive(hive, use) : Status::Refused("cannot be found; correct the path", errno);
}

std::string DescribeReplay(const Recovery &recovery) {
  const char *const numbers[] = {"no log", "one log", "two logs", "three logs"};
  return "replayed " + std::to_string(recovery.entries) + (recovery.entries == 1 ? " entry from " : " entries from ") +
         numbers[recovery.applied.size()];
}

Status ReadHive(Hive *hive) {
  if (hive->handle != nullptr) return {};
  if (hive->failure) hive->failure = ReadFirst(hive);
  return hive->failure;
}

Status MakeHiveWritable(Hive *hive) {
  return !hive->copy || OpenContent(hive, HIVEX_OPEN_WRITE) ? Status() : Status::System();
}

Status FindHiveKey(Hive *hive, const KeyPath &key) {
  if (hive->changes.count(key.folded) != 0) return {};
  if (!ReadHive(hive)) return DamagedHive(hive);
  if (hive->deleted.count(key.folded) != 0) return Status::Of(StatusKind::kNotFound);
  hive_node_h node = 0;
  return FindHiveNode(hive, key.folded, &node);
}

Status FindHiveValue(Hive *hive, const KeyPath &key, const std::u16string &foldedName, StoredValue *value) {
  const auto changed = hive->changes.find(key.folded);
  if (changed != hive->changes.end() && changed->second.valuesSet) {
    const StoredValue *found = FindValue(&changed->second.values, foldedName);
    if (found == nullptr) return Status::Of(StatusKind::kNotFound);
    *value = *found;
    return {};
  }
  if (!ReadHive(hive)) return DamagedHive(hive);
  if (hive->deleted.count(key.folded) != 0) return Status::Of(StatusKind::kNotFound);
  hive_node_h node = 0;
  if (Status found = FindHiveNode(hive, key.folded, &node); !found) return found;
  const Malloced<hive_value_h> cells(hivex_node_values(hive->handle.get(), node));
  if (cells == nullptr) return DamagedHive(hive);
  for (const hive_value_h *cell = cells.get(); *cell != 0; ++cell) {
    if (!ReadName(hive->handle.get(), *cell, &value->name) || FoldKeyName(value->name) != foldedName) continue;
    return ReadData(hive->handle.get(), *cell, value) ? Status() : DamagedHive(hive);
  }
  return Status::Of(StatusKind::kNotFound);
}

Status CreateHiveKey(Hive *hive, const KeyPath &key) {
  const auto isTooLong = [](const std::u16string &name) { return name.size() > kLongestKeyName; };
  if (std::any_of(key.names.begin(), key.names.end(), isTooLong)) return Status::Of(StatusKind::kInvalid);
  for (std::size_t count = 1; count <= key.names.size(); ++count) {
    const KeyPath prefix = KeyPathPrefix(key, count);
    Status found = FindHiveKey(hive, prefix);
    if (found) continue;
    if (found.kind != StatusKind::kNotFound) return found;
    hive->changes[prefix.folded].name = prefix.names.back();
  }
  return {};
}

Status SetHiveValue(Hive *hive, const KeyPath &key, StoredValue value) {
  if (Status found = FindHiveKey(hive, key); !found) return found;
  if (IsTooLong(*hive, value)) return Status::Of(StatusKind::kUnsupported);

  const auto changed = hive->changes.find(key.folded);
  if (changed != hive->changes.end() && changed->second.valuesSet) {
    PutValue(&changed->second.values, std::move(value));
    return {};
  }
  std::vector<StoredValue> values;
  if (Status read = ReadValues(hive, key, Unnamed::kFails, &values); !read) return read;
  const StoredValue *old = FindValue(&values, FoldKeyName(value.name));
  if (old != nullptr && old->type == value.type && old->bytes == value.bytes) return {};
  PutValue(&values, std::move(value));
  return ReplaceValues(hive, key, std::move(values));
}

Status DeleteHiveValue(Hive *hive, const KeyPath &key, const std::u16string &foldedName) {
  if (Status found = FindHiveKey(hive, key); !found) return found;
  std::vector<StoredValue> values;
  if (Status read = ReadValues(hive, key, Unnamed::kFails, &values); !read) return read;
  const StoredValue *old = FindValue(&values, foldedName);
  if (old == nullptr) return Status::Of(StatusKind::kNotFound);
  values.erase(values.begin() + (old - values.data()));
  return ReplaceValues(hive, key, std::move(values));
}

Status ListHiveValues(Hive *hive, const KeyPath &key, std::vector<StoredValue> *values) {
  if (Status found = FindHiveKey(hive, key); !found) return found;
  return ReadValues(hive, key, Unnamed::kLeftOut, values);
}

}  // namespace machine
