// Transaction logs of hives, for tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Bytes for a place in the bins.
struct LogWrite {
  uint32_t offset = 0;  // from the first bin
  std::vector<uint8_t> bytes;
};

struct LogEntrySpec {
  std::vector<LogWrite> pages;
  uint32_t binsSize = 0;  // 0: that of the hive given
  uint32_t flags = 0;
};

// A log of the new format that lies beside `hive`: entries numbered from `first`, each padded to 512 bytes.
std::vector<uint8_t> BuildNewLog(const std::vector<uint8_t> &hive, uint32_t first,
                                 const std::vector<LogEntrySpec> &entries);
// A log of the old format: pages at multiples of 512, of multiples of 512 bytes, in order.
std::vector<uint8_t> BuildOldLog(const std::vector<uint8_t> &hive, uint32_t number, const std::vector<LogWrite> &pages);

// Makes an entry's hashes right after a test has changed it.
void SealEntry(std::vector<uint8_t> *log, size_t offset);
// File offset of the entry of that index, counted from 0.
size_t EntryOffset(const std::vector<uint8_t> &log, size_t index);

// The 4,096-byte pages in which the bins of `after` differ from those of `before`, which may be shorter.
std::vector<LogWrite> ChangedPages(const std::vector<uint8_t> &before, const std::vector<uint8_t> &after);

// Sets the two sequence numbers of a hive or a log, with the checksum.
void SetSequence(std::vector<uint8_t> *file, uint32_t primary, uint32_t secondary);
