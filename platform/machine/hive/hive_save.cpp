// Saving a hive: never in place, so that whatever fails, or whenever the machine stops, the old hive or the new one is
// whole under the hive's name.
#include <unistd.h>

#include <algorithm>
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
#include "platform/machine/host/file_bytes.h"
#include "platform/machine/host/rehearsal.h"
#include "platform/machine/host/replace_file.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

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

bool ReadForChange(Hive *hive, std::string *reason) {
  const char *const failed = "cannot be read once more to change it";
  if (FaultPoint("hive read", ERROR_NOT_ENOUGH_MEMORY)) {
    *reason = FaultReason(failed);
  } else if (!MakeHiveWritable(hive)) {
    *reason = ErrnoReason(failed);
  }
  return reason->empty();
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
      *reason = ErrnoReason("could not take the key " + Utf16ToAnsi(key.name) + " and its values");
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

// The time of this write. A log of the old format belongs to the hive that has its time: none must have this one.
std::uint64_t NewTime(const std::vector<HiveLog> &logs) {
  std::uint64_t time = FileTimeNow();
  const auto isTaken = [&time](const HiveLog &log) { return log.head.time == time; };
  while (std::any_of(logs.begin(), logs.end(), isTaken)) ++time;
  return time;
}

// What libhivex does not know of: sequence numbers and a time that put every log beside the hive behind it, the two
// checksums that are not the plain XOR; and nothing behind the last bin.
std::string FinishNewHive(const Hive &hive, int file) {
  std::uint8_t head[kLogHeadSize], time[8];
  std::string reason = ReadAt(file, 0, head, sizeof head);
  if (!reason.empty()) return reason;
  const std::uint32_t number = NextNumber(hive.head, hive.logs);
  WriteLe64(time, NewTime(hive.logs));
  WriteLe32(head + kPrimaryOffset, number);
  WriteLe32(head + kSecondaryOffset, number);
  std::memcpy(head + kTimeOffset, time, sizeof time);
  SealBaseBlock(head);
  reason = WriteAt(file, 0, head, sizeof head);
  if (reason.empty()) reason = WriteAt(file, kFirstBinTime, time, sizeof time);
  const off_t end = static_cast<off_t>(kBaseBlockSize + std::uint64_t{ReadLe32(head + kBinsSizeOffset)});
  if (reason.empty() && ftruncate(file, end) != 0) reason = ErrnoReason("cannot be cut to its size");
  BaseBlock written;
  return reason.empty() ? CheckHive(file, hive.state.binsSize, CellCheck::kAll, &written) : reason;
}

// Writes the new hive to the new file.
bool WriteNewHive(const Hive &hive, int file, std::uint64_t *size, std::string *reason) {
  if (FaultPoint("hive write", ERROR_DISK_FULL)) {
    *reason = FaultReason("the new file cannot be written");
    return false;
  }
  if (hivex_commit(hive.handle.get(), ("/proc/self/fd/" + std::to_string(file)).c_str(), 0) != 0) {
    *reason = ErrnoReason("the new file cannot be written");
    return false;
  }
  std::string wrong = FinishNewHive(hive, file);
  if (wrong.empty()) wrong = RegularFileSize(file, size);
  if (!wrong.empty()) *reason = "the new file " + wrong;
  return wrong.empty();
}

bool Replace(NewFile *created, std::string *reason) {
  const char *failed = TakeOver(*created)
                           ? PutInPlace(created, true)
                           : "the new file cannot be given the owner, mode and attributes of the old one";
  if (failed != nullptr) *reason = ErrnoReason(failed);
  return failed == nullptr;
}

// Makes the new hive in memory, and asks whether it could take the old one's place.
bool RehearseSave(const Hive &hive, std::uint64_t *size, std::string *reason) {
  Descriptor made;
  *reason = MakeMemoryFile(&made);
  if (!reason->empty() || !WriteNewHive(hive, made.fd, size, reason)) return false;
  *reason = RehearseNewFile(hive.directory.fd, hive.name, *size);
  if (!reason->empty()) *size = 0;
  return reason->empty();
}

}  // namespace

bool SaveHive(Hive *hive, std::uint64_t *size, std::string *reason) {
  *size = 0;
  if (hive->changes.empty()) {
    // All was there already: perhaps from a run that was stopped before the disk knew the new hive's name.
    if (!Rehearsing()) FlushDirectory(hive->directory.fd);
    return true;
  }
  hive->nodes.emplace(FoldedPath(), hivex_root(hive->handle.get()));
  *reason = ReadHiveLogs(&hive->logs);
  if (reason->empty()) *reason = CheckReplacedCells(hive);
  if (!reason->empty() || !ReadForChange(hive, reason) || !ApplyChanges(hive, reason)) return false;
  if (Rehearsing()) return RehearseSave(*hive, size, reason);

  NewFile created(hive->directory.fd, hive->name);
  if (!OpenNewFile(&created, true)) {
    *reason = ErrnoReason("no new file can be made beside it");
    return false;
  }
  if (WriteNewHive(*hive, created.file.fd, size, reason) && Replace(&created, reason)) return true;
  if (!created.inPlace) *size = 0;
  return false;
}

}  // namespace machine
