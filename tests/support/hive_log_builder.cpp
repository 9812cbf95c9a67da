#include "tests/support/hive_log_builder.h"

#include <algorithm>
#include <cstring>

#include "platform/machine/base/little_endian.h"
#include "platform/machine/hive/marvin.h"
#include "tests/support/hive_builder.h"

namespace {

using machine::ReadLe32;
using machine::WriteLe32;
using machine::WriteLe64;

constexpr size_t kHead = 512;

std::vector<uint8_t> LogHead(const std::vector<uint8_t> &hive, uint32_t type, uint32_t number) {
  std::vector<uint8_t> log(hive.begin(), hive.begin() + kHead);
  WriteLe32(&log[28], type);
  SetSequence(&log, number, number);
  return log;
}

void Append(std::vector<uint8_t> *bytes, const std::vector<uint8_t> &more) {
  bytes->insert(bytes->end(), more.begin(), more.end());
}

}  // namespace

void SetSequence(std::vector<uint8_t> *file, uint32_t primary, uint32_t secondary) {
  WriteLe32(&(*file)[4], primary);
  WriteLe32(&(*file)[8], secondary);
  SetHiveChecksum(file);
}

void SealEntry(std::vector<uint8_t> *log, size_t offset) {
  uint8_t *at = log->data() + offset;
  const size_t size = std::clamp<size_t>(ReadLe32(at + 4), 40, log->size() - offset);
  WriteLe64(at + 24, machine::MarvinHash(machine::kLogSeed, at + 40, size - 40));
  WriteLe64(at + 32, machine::MarvinHash(machine::kLogSeed, at, 32));
}

size_t EntryOffset(const std::vector<uint8_t> &log, size_t index) {
  size_t at = kHead;
  while (index-- > 0) at += ReadLe32(&log[at + 4]);
  return at;
}

std::vector<uint8_t> BuildNewLog(const std::vector<uint8_t> &hive, uint32_t first,
                                 const std::vector<LogEntrySpec> &entries) {
  std::vector<uint8_t> log = LogHead(hive, 6, first);
  for (const LogEntrySpec &spec : entries) {
    const size_t start = log.size();
    std::vector<uint8_t> entry(40 + 8 * spec.pages.size());
    std::memcpy(entry.data(), "HvLE", 4);
    WriteLe32(&entry[8], spec.flags);
    WriteLe32(&entry[12], first++);
    WriteLe32(&entry[16], spec.binsSize != 0 ? spec.binsSize : ReadLe32(&hive[40]));
    WriteLe32(&entry[20], static_cast<uint32_t>(spec.pages.size()));
    for (size_t i = 0; i < spec.pages.size(); ++i) {
      WriteLe32(&entry[40 + 8 * i], spec.pages[i].offset);
      WriteLe32(&entry[44 + 8 * i], static_cast<uint32_t>(spec.pages[i].bytes.size()));
    }
    for (const LogWrite &page : spec.pages) Append(&entry, page.bytes);
    entry.resize((entry.size() + kHead - 1) / kHead * kHead);
    WriteLe32(&entry[4], static_cast<uint32_t>(entry.size()));
    Append(&log, entry);
    SealEntry(&log, start);
  }
  return log;
}

std::vector<uint8_t> BuildOldLog(const std::vector<uint8_t> &hive, uint32_t number,
                                 const std::vector<LogWrite> &pages) {
  std::vector<uint8_t> log = LogHead(hive, 1, number);
  std::vector<uint8_t> bitmap(4 + ReadLe32(&hive[40]) / 4096);
  std::memcpy(bitmap.data(), "DIRT", 4);
  std::vector<uint8_t> bytes;
  for (const LogWrite &page : pages) {
    for (size_t i = page.offset / 512; i < (page.offset + page.bytes.size()) / 512; ++i) {
      bitmap[4 + i / 8] |= static_cast<uint8_t>(1 << i % 8);
    }
    Append(&bytes, page.bytes);
  }
  Append(&log, bitmap);
  log.resize((log.size() + kHead - 1) / kHead * kHead);
  Append(&log, bytes);
  return log;
}

std::vector<LogWrite> ChangedPages(const std::vector<uint8_t> &before, const std::vector<uint8_t> &after) {
  constexpr size_t kPage = 4096;
  std::vector<LogWrite> pages;
  for (size_t at = kPage; at < after.size(); at += kPage) {
    const auto page = after.begin() + static_cast<std::ptrdiff_t>(at);
    const bool same =
        at + kPage <= before.size() && std::equal(page, page + kPage, before.begin() + static_cast<std::ptrdiff_t>(at));
    if (!same) pages.push_back({static_cast<uint32_t>(at - kPage), std::vector<uint8_t>(page, page + kPage)});
  }
  return pages;
}
