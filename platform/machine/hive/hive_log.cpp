#include "platform/machine/hive/hive_log.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "platform/machine/base/little_endian.h"
#include "platform/machine/hive/marvin.h"

namespace machine {
namespace {

constexpr std::size_t kLogUnit = 512;  // of entries, and of the old format's pages
constexpr std::uint32_t kNewLog = 6;
constexpr std::size_t kEntryHead = 40;
constexpr std::size_t kReferenceSize = 8;
constexpr std::size_t kBitmapOffset = kLogHeadSize + 4;

bool IsBinsSize(std::uint32_t size) { return size != 0 && size % kBinUnit == 0 && size <= kLargestBins; }

// --- The old format -------------------------------------------------------------------------------------------------

// The bitmap's set bits as runs of pages, which lie one behind the other in the log.
void ReadBitmap(HiveLog *log, std::size_t at) {
  const std::uint32_t count = log->head.binsSize / kLogUnit;
  for (std::uint32_t i = 0; i < count; ++i) {
    if ((log->bytes[kBitmapOffset + i / 8] >> i % 8 & 1) == 0) continue;
    const auto offset = static_cast<std::uint32_t>(i * kLogUnit);
    const bool follows = !log->pages.empty() && log->pages.back().hiveOffset + log->pages.back().size == offset;
    if (!follows) log->pages.push_back({offset, 0, at});
    log->pages.back().size += kLogUnit;
    at += kLogUnit;
  }
}

std::string ReadOldLog(HiveLog *log) {
  const std::uint32_t binsSize = log->head.binsSize;
  if (!IsBinsSize(binsSize)) return "has the impossible bins size " + std::to_string(binsSize);
  const std::size_t bitmapSize = binsSize / kLogUnit / 8;
  if (log->bytes.size() < kBitmapOffset + bitmapSize || std::memcmp(&log->bytes[kLogHeadSize], "DIRT", 4) != 0) {
    return "has no list of pages";
  }
  std::size_t count = 0;
  for (std::size_t i = 0; i < bitmapSize; ++i) count += std::popcount(log->bytes[kBitmapOffset + i]);
  const std::size_t pagesAt = (kBitmapOffset + bitmapSize + kLogUnit - 1) / kLogUnit * kLogUnit;
  if (count != 0 && log->bytes.size() < pagesAt + count * kLogUnit) return "is cut off within its pages";
  ReadBitmap(log, pagesAt);
  if (count != 0) log->entries.push_back({log->head.primary, log->head.flags & 1, binsSize, 0, log->pages.size()});
  return "";
}

// --- The new format -------------------------------------------------------------------------------------------------

// Whether a header that nobody damaged begins at the offset, of an entry that fits into the log.
bool HasEntryHead(const HiveLog &log, std::size_t offset) {
  const std::uint8_t *at = log.bytes.data() + offset;
  const std::size_t left = log.bytes.size() - offset;
  if (left < kLogUnit || std::memcmp(at, "HvLE", 4) != 0) return false;
  const std::size_t size = ReadLe32(at + 4);
  return size >= kLogUnit && size % kLogUnit == 0 && size <= left && ReadLe64(at + 32) == MarvinHash(kLogSeed, at, 32);
}

bool HasEntryBody(const HiveLog &log, std::size_t offset) {
  const std::uint8_t *at = log.bytes.data() + offset;
  return ReadLe64(at + 24) == MarvinHash(kLogSeed, at + kEntryHead, ReadLe32(at + 4) - kEntryHead);
}

// Takes the whole entry at the offset to the valid ones. False when its content is impossible.
bool TakeEntry(HiveLog *log, std::size_t offset) {
  const std::uint8_t *at = log->bytes.data() + offset;
  const std::size_t size = ReadLe32(at + 4);
  const std::size_t count = ReadLe32(at + 20);
  LogEntry entry = {ReadLe32(at + 12), ReadLe32(at + 8), ReadLe32(at + 16), log->pages.size(), count};
  if (!IsBinsSize(entry.binsSize) || count == 0 || count > (size - kEntryHead) / kReferenceSize) return false;
  std::size_t from = kEntryHead + count * kReferenceSize;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint8_t *reference = at + kEntryHead + i * kReferenceSize;
    const LogPage page = {ReadLe32(reference), ReadLe32(reference + 4), offset + from};
    if (page.size > size - from || std::uint64_t{page.hiveOffset} + page.size > entry.binsSize) {
      log->pages.resize(entry.firstPage);
      return false;
    }
    log->pages.push_back(page);
    from += page.size;
  }
  log->entries.push_back(entry);
  return true;
}

// Takes the valid entries, from the first on, and looks for whole ones behind them; in a log of the old format too,
// which may have been written over a new one.
void ReadEntries(HiveLog *log) {
  bool valid = log->flaw.empty() && log->format == LogFormat::kNew;
  // Headers made to lie about large entries would have the same bytes hashed again and again. Beyond this limit a sound
  // header counts as a whole entry: a number too many does no harm.
  std::size_t allowance = 4 * log->bytes.size();
  for (std::size_t at = kLogHeadSize; at + kLogUnit <= log->bytes.size();) {
    const bool sound = HasEntryHead(*log, at);
    const std::size_t size = sound ? ReadLe32(&log->bytes[at + 4]) : kLogUnit;
    const bool affordable = size <= allowance;
    const bool whole = sound && (affordable ? HasEntryBody(*log, at) : !valid);
    if (affordable && sound) allowance -= size;
    const auto expected = static_cast<std::uint32_t>(log->head.primary + log->entries.size());
    valid = valid && whole && ReadLe32(&log->bytes[at + 12]) == expected && TakeEntry(log, at);
    if (whole) NoteNumber(&log->latest, ReadLe32(&log->bytes[at + 12]));
    at += whole && affordable ? size : kLogUnit;
  }
}

std::string CheckLogHead(const HiveLog &log) {
  const BaseBlock &head = log.head;
  if (log.bytes.empty()) return "is empty";
  if (log.bytes.size() < kLogHeadSize) return "is too short for a log";
  if (!head.hasSignature) return "does not begin with regf";
  if (!head.checksumRight) return "has a wrong checksum";
  if (FormatOf(head) == LogFormat::kNone) return "is no log (its type is " + std::to_string(head.type) + ")";
  if (head.primary == head.secondary) return "";
  return "was not written to its end (its sequence numbers are " + std::to_string(head.primary) + " and " +
         std::to_string(head.secondary) + ")";
}

}  // namespace

LogFormat FormatOf(const BaseBlock &head) {
  if (!head.hasSignature || !head.checksumRight) return LogFormat::kNone;
  if (head.type == kNewLog) return LogFormat::kNew;
  return head.type == 1 || head.type == 2 ? LogFormat::kOld : LogFormat::kNone;  // 2 up to Windows 2000
}

void ReadHiveLog(HiveLog *log) {
  log->entries.clear();
  log->pages.clear();
  log->latest.reset();
  log->head = log->bytes.size() >= kLogHeadSize ? ReadBaseBlock(log->bytes.data()) : BaseBlock();
  log->flaw = CheckLogHead(*log);
  log->format = FormatOf(log->head);
  if (log->format != LogFormat::kNone) {
    NoteNumber(&log->latest, log->head.primary);
    NoteNumber(&log->latest, log->head.secondary);
  }
  ReadEntries(log);
  if (log->format == LogFormat::kOld && log->flaw.empty()) log->flaw = ReadOldLog(log);
}

}  // namespace machine
