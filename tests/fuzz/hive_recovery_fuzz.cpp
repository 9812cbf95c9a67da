// The recovery of hives: a hive and two logs from outside. The logs are taken apart, the recovery planned and carried
// out; what comes of it must be a hive with a sound base block, and its logs must not apply to the next edit of it.
//
// Input: flags (1: checksums of the base blocks are made right, 2: hashes of the entries too), the hive's size in units
// of 512 bytes, the first log's (16 bits each), the hive, the first log, the rest is the second log.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>
#include <vector>

#include "platform/machine/base/little_endian.h"
#include "platform/machine/hive/hive_check.h"
#include "platform/machine/hive/hive_recovery.h"
#include "platform/machine/hive/marvin.h"
#include "platform/machine/host/file_bytes.h"

namespace {

using Bytes = std::vector<uint8_t>;

void Require(bool condition) {
  if (!condition) std::abort();
}

Bytes Take(std::span<const uint8_t> *input, size_t size) {
  size = std::min(size, input->size());
  Bytes taken(input->begin(), input->begin() + static_cast<std::ptrdiff_t>(size));
  *input = input->subspan(size);
  return taken;
}

void SealEntries(Bytes *log) {
  for (size_t at = machine::kLogHeadSize; at + 512 <= log->size(); at += 512) {
    uint8_t *entry = log->data() + at;
    const size_t size = machine::ReadLe32(entry + 4);
    if (std::memcmp(entry, "HvLE", 4) != 0 || size < 40 || size > log->size() - at) continue;
    machine::WriteLe64(entry + 24, machine::MarvinHash(machine::kLogSeed, entry + 40, size - 40));
    machine::WriteLe64(entry + 32, machine::MarvinHash(machine::kLogSeed, entry, 32));
  }
}

void CheckLog(const machine::HiveLog &log) {
  for (size_t i = 0; i < log.entries.size(); ++i) {
    const machine::LogEntry &entry = log.entries[i];
    Require(entry.number == static_cast<uint32_t>(log.head.primary + i));
    Require(entry.binsSize <= machine::kLargestBins && entry.pageCount != 0);
    for (size_t p = entry.firstPage; p < entry.firstPage + entry.pageCount; ++p) {
      const machine::LogPage &page = log.pages[p];
      Require(page.logOffset <= log.bytes.size() && page.size <= log.bytes.size() - page.logOffset);
      Require(uint64_t{page.hiveOffset} + page.size <= entry.binsSize);
    }
  }
}

// Numbers that are far apart have no order.
bool AreNear(const machine::BaseBlock &hive, const std::vector<machine::HiveLog> &logs) {
  const auto isNear = [&](uint32_t number) { return number - hive.secondary + 0x20000000 < 0x40000000; };
  return hive.checksumRight && isNear(hive.primary) &&
         std::all_of(logs.begin(), logs.end(), [&](const auto &log) { return !log.latest || isNear(*log.latest); });
}

// After an edit the hive becomes dirty again while the logs still lie there.
void CheckNextTime(const machine::BaseBlock &hive, const std::vector<machine::HiveLog> &logs) {
  if (!AreNear(hive, logs)) return;
  machine::BaseBlock next = hive;
  next.secondary = machine::NextNumber(hive, logs);
  next.primary = next.secondary + 1;
  next.time = 0;
  while (std::any_of(logs.begin(), logs.end(), [&](const auto &log) { return log.head.time == next.time; })) {
    ++next.time;
  }
  Require(!machine::PlanRecovery(next, next.time, logs).refusal.empty());
}

void Recover(const machine::Recovery &plan, const Bytes &hive) {
  machine::Descriptor file, recovered;
  Require(machine::MakeMemoryFile(&file) && machine::MakeMemoryFile(&recovered));
  Require(static_cast<bool>(machine::WriteAt(file.fd, 0, hive.data(), hive.size())));
  if (!machine::ApplyRecovery(plan, file.fd, hive.size(), recovered.fd)) return;
  uint64_t size = 0;
  machine::BaseBlock head;
  Require(static_cast<bool>(machine::ReadHead(recovered.fd, &size, &head)));
  Require(head.checksumRight && head.primary == plan.number && head.secondary == plan.number);
  Require(size >= machine::kBaseBlockSize + uint64_t{head.binsSize});
  const machine::Status right = machine::CheckAllButBins(recovered.fd, &head);
  Require(Words(machine::CheckHive(recovered.fd, 0, machine::CellCheck::kAll, &head)) ==
          Words(right));  // the bins were looked at on their way
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 5) return 0;
  const unsigned flags = data[0];
  const size_t hiveSize = 512 * machine::ReadLe16(data + 1), logSize = 512 * machine::ReadLe16(data + 3);
  std::span<const uint8_t> input(data + 5, size - 5);
  Bytes hive = Take(&input, hiveSize);
  if (hive.size() < machine::kBaseBlockSize + machine::kBinUnit) return 0;
  std::vector<machine::HiveLog> logs(2);
  logs[0].bytes = Take(&input, logSize);
  logs[1].bytes = Take(&input, input.size());
  logs[0].name = "LOG1";
  logs[1].name = "LOG2";
  if ((flags & 1) != 0) machine::SealBaseBlock(hive.data());
  for (machine::HiveLog &log : logs) {
    if ((flags & 1) != 0 && log.bytes.size() >= machine::kLogHeadSize) machine::SealBaseBlock(log.bytes.data());
    if ((flags & 2) != 0) SealEntries(&log.bytes);
    machine::ReadHiveLog(&log);
    CheckLog(log);
  }
  const machine::BaseBlock head = machine::ReadBaseBlock(hive.data());
  CheckNextTime(head, logs);
  if (!machine::NeedsRecovery(head)) return 0;
  const machine::Recovery plan = machine::PlanRecovery(head, machine::ReadLe64(&hive[machine::kFirstBinTime]), logs);
  Require(plan.applied.empty() != plan.refusal.empty());
  if (!plan.refusal.empty()) return 0;
  Recover(plan, hive);
  return 0;
}
