// Saving a hive: never in place, so that whatever fails, or whenever the machine stops, the old hive or the new one is
// whole under the hive's name.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/machine/base/fault.h"
#include "platform/machine/base/file_time.h"
#include "platform/machine/base/little_endian.h"
#include "platform/machine/description/current.h"
#include "platform/machine/description/records.h"
#include "platform/machine/hive/hive.h"
#include "platform/machine/hive/hive_check.h"
#include "platform/machine/hive/hive_logs.h"
#include "platform/machine/host/digest.h"
#include "platform/machine/host/file_bytes.h"
#include "platform/machine/host/rehearsal.h"
#include "platform/machine/host/replace_file.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

// A failure that a test asked for.
Status AskedFailure(const char *step, DWORD error, const char *what) {
  if (!FaultPoint(step, error)) return {};
  return Status::Refused(std::string(what) + ": system error " + std::to_string(platform::GetLastError()));
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

Status ReadForChange(Hive *hive) {
  const char *const failed = "cannot be read once more to change it";
  if (Status asked = AskedFailure("hive read", ERROR_NOT_ENOUGH_MEMORY, failed); !asked) return asked;
  Status writable = MakeHiveWritable(hive);
  return writable ? Status() : SaidAs(failed, std::move(writable));
}

// Deletes the keys that were, the lowest first.
Status ApplyDeletions(Hive *hive) {
  for (auto path = hive->deleted.rbegin(); path != hive->deleted.rend(); ++path) {
    const auto node = hive->nodes.find(*path);
    if (hivex_node_delete_child(hive->handle.get(), node->second) != 0) {
      const int error = errno;
      return Status::System("could not lose the key " + Utf16ToAnsi(path->back()), error);
    }
    hive->nodes.erase(node);
  }
  return {};
}

// Makes the new keys and sets each changed key's values, in libhivex's copy in memory.
Status ApplyChanges(Hive *hive) {
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
      const int error = errno;
      return Status::System("could not take the key " + Utf16ToAnsi(key.name) + " and its values", error);
    }
  }
  return {};
}

std::uint64_t FileTimeNow() {
  const Description *description = Current();
  const bool fixed = description != nullptr && description->system.clock.has_value();
  const std::int64_t seconds = fixed ? *description->system.clock : static_cast<std::int64_t>(std::time(nullptr));
  return TicksOf(FileTimeOf(seconds, 0));
}

// The time of this write. A log of the old format belongs to the hive that has its time: none must have this one.
std::uint64_t NewTime(const std::vector<HiveLog> &logs) {
  std::uint64_t time = FileTimeNow();
  const auto isTaken = [&time](const HiveLog &log) { return log.head.time == time; };
  while (std::any_of(logs.begin(), logs.end(), isTaken)) ++time;
  return time;
}

// What libhivex does not know of: sequence numbers and a time that put every log beside the hive behind it, the two
// checksums that are not the plain XOR; and nothing behind the last bin.
Status FinishNewHive(const Hive &hive, int file, std::uint64_t *size) {
  std::uint8_t head[kLogHeadSize], time[8];
  if (Status read = ReadAt(file, 0, head, sizeof head); !read) return read;
  const std::uint32_t number = NextNumber(hive.head, hive.logs);
  WriteLe64(time, NewTime(hive.logs));
  WriteLe32(head + kPrimaryOffset, number);
  WriteLe32(head + kSecondaryOffset, number);
  std::memcpy(head + kTimeOffset, time, sizeof time);
  SealBaseBlock(head);
  if (Status written = WriteAt(file, 0, head, sizeof head); !written) return written;
  if (Status written = WriteAt(file, kFirstBinTime, time, sizeof time); !written) return written;
  const off_t end = static_cast<off_t>(kBaseBlockSize + std::uint64_t{ReadLe32(head + kBinsSizeOffset)});
  if (ftruncate(file, end) != 0) return Status::System("cannot be cut to its size");
  BaseBlock written;
  if (Status sound = CheckHive(file, hive.state.binsSize, CellCheck::kAll, &written); !sound) return sound;
  return RegularFileSize(file, size);
}

// Writes the new hive to the new file.
Status WriteNewHive(const Hive &hive, int file, std::uint64_t *size) {
  const char *const failed = "the new file cannot be written";
  if (Status asked = AskedFailure("hive write", ERROR_DISK_FULL, failed); !asked) return asked;
  if (hivex_commit(hive.handle.get(), ("/proc/self/fd/" + std::to_string(file)).c_str(), 0) != 0) {
    return Status::System(failed);
  }
  Status finished = FinishNewHive(hive, file, size);
  if (!finished) finished.text.insert(0, "the new file ");
  return finished;
}

Status Replace(NewFile *created) {
  if (Status taken = TakeOver(*created); !taken) {
    return SaidAs("the new file cannot be given the owner, mode and attributes of the old one", std::move(taken));
  }
  return PutInPlace(created, true);
}

// Makes the new hive in memory, and asks whether it could take the old one's place.
Status RehearseSave(const Hive &hive, std::uint64_t *size, std::string *digest) {
  Descriptor made;
  std::uint64_t needed = 0;
  if (Status memory = MakeMemoryFile(&made); !memory) return memory;
  if (Status written = WriteNewHive(hive, made.fd, &needed); !written) return written;
  if (Status would = RehearseNewFile(hive.directory.fd, hive.name, needed); !would) return would;
  if (Status read = FileDigest(made.fd, needed, digest); !read) return read;
  *size = needed;
  return {};
}

std::string g_rehearsed;  // SHA-256 of the only hive to be saved; empty: any

Status CheckRehearsed(int file, std::uint64_t size) {
  std::string digest;
  if (g_rehearsed.empty()) return {};
  if (Status read = FileDigest(file, size, &digest); !read) return read;
  if (digest == g_rehearsed) return {};
  return Status::Refused(
      "would not be what the rehearsal made of it: something that the run reads has changed, or could "
      "not be read this time; run again");
}

Status SaveInPlace(const Hive &hive, std::uint64_t *size) {
  NewFile created(hive.directory.fd, hive.name);
  std::uint64_t written = 0;
  if (Status opened = OpenNewFile(&created, true); !opened) {
    return SaidAs("no new file can be made beside it", std::move(opened));
  }
  if (Status made = WriteNewHive(hive, created.file.fd, &written); !made) return made;
  if (Status checked = CheckRehearsed(created.file.fd, written); !checked) return checked;
  Status replaced = Replace(&created);
  if (created.inPlace) *size = written;
  return replaced;
}

}  // namespace

void SaveOnly(std::string digest) { g_rehearsed = std::move(digest); }

Status SaveHive(Hive *hive, std::uint64_t *size, std::string *digest) {
  *size = 0;
  digest->clear();
  ForgetUnchanged(hive);
  if (hive->changes.empty() && hive->deleted.empty()) {
    // All was there already: perhaps from a run that was stopped before the disk knew the new hive's name.
    if (!Rehearsing()) (void)FlushDirectory(hive->directory.fd);
    return {};
  }
  hive->nodes.emplace(FoldedPath(), hivex_root(hive->handle.get()));
  if (Status read = ReadHiveLogs(&hive->logs); !read) return read;
  if (Status replaceable = CheckReplacedCells(hive); !replaceable) return replaceable;
  if (Status read = ReadForChange(hive); !read) return read;
  if (Status applied = ApplyDeletions(hive); !applied) return applied;
  if (Status applied = ApplyChanges(hive); !applied) return applied;
  return Rehearsing() ? RehearseSave(*hive, size, digest) : SaveInPlace(*hive, size);
}

}  // namespace machine
