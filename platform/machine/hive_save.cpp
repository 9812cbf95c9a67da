// Saving a hive: never in place, so that whatever fails, or whenever the machine stops, the old hive or the new one is
// whole under the hive's name.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/machine/code_page.h"
#include "platform/machine/fault.h"
#include "platform/machine/file_time.h"
#include "platform/machine/hive.h"
#include "platform/machine/hive_check.h"
#include "platform/machine/little_endian.h"
#include "platform/machine/machine.h"
#include "platform/machine/replace_file.h"

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

// Writes the new hive to the new file.
bool WriteNewHive(const Hive &hive, const NewFile &created, std::uint64_t *size, std::string *reason) {
  if (FaultPoint("hive write", ERROR_DISK_FULL)) {
    *reason = FaultReason("the new file cannot be written");
    return false;
  }
  if (hivex_commit(hive.handle.get(), created.HostName().c_str(), 0) != 0) {
    *reason = ErrnoReason("the new file cannot be written");
    return false;
  }
  if (!FinishBaseBlock(created.file.fd, reason)) return false;
  HiveFacts facts;
  if (const std::string wrong = CheckHive(created.file.fd, hive.binsSize, &facts); !wrong.empty()) {
    *reason = "the new file " + wrong;
    return false;
  }
  *size = facts.size;
  return true;
}

bool Replace(const Hive &hive, NewFile *created, std::string *reason) {
  const char *failed = TakeOver(*created, hive.name)
                           ? PutInPlace(created, hive.name, true)
                           : "the new file cannot be given the owner, mode and attributes of the old one";
  if (failed != nullptr) *reason = ErrnoReason(failed);
  return failed == nullptr;
}

}  // namespace

bool SaveHive(Hive *hive, std::uint64_t *size, std::string *reason) {
  *size = 0;
  if (hive->changes.empty()) return true;
  hive->nodes.emplace(FoldedPath(), hivex_root(hive->handle.get()));
  *reason = CheckReplacedCells(hive);
  if (!reason->empty() || !ApplyChanges(hive, reason)) return false;

  // The lock on the hive keeps other runs from the name.
  NewFile created(hive->directory.fd, "." + hive->name + ".vxr-tmp");
  if (!OpenNewFile(&created, true)) {
    *reason = ErrnoReason("no new file can be made beside it");
    return false;
  }
  return WriteNewHive(*hive, created, size, reason) && Replace(*hive, &created, reason);
}

}  // namespace machine
