// One transaction log of a hive, as read into memory: what it holds, and how much of that can be trusted.
//
// Both formats begin with a base block of 512 bytes. The old one then has a bitmap of 512-byte pages and the pages. The
// new one has entries, each with hashes, a sequence number and runs of pages; it is written from its beginning again
// and again without being cut, so that entries of earlier rounds lie behind the valid ones.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/hive/base_block.h"

namespace machine {

enum class LogFormat { kNone, kOld, kNew };

// Bytes of the log that belong into the hive.
struct LogPage {
  std::uint32_t hiveOffset = 0;  // from the first bin
  std::uint32_t size = 0;        // bytes
  std::size_t logOffset = 0;
};

// What is written to the hive as one. A log of the old format is one entry.
struct LogEntry {
  std::uint32_t number = 0;
  std::uint32_t flags = 0;
  std::uint32_t binsSize = 0;  // of the hive at that time, bytes
  std::size_t firstPage = 0, pageCount = 0;
};

struct HiveLog {
  std::string name;  // on disk
  Descriptor file;   // open for reading until the log has been read
  std::uint64_t size = 0;
  BaseBlock head;  // all zero when the file is too short for one
  LogFormat format = LogFormat::kNone;
  std::vector<std::uint8_t> bytes;

  // What the bytes hold:
  std::string flaw;               // why it cannot be used, for people, such as "is empty"; empty when it can be
  std::vector<LogEntry> entries;  // the valid ones, in order
  std::vector<LogPage> pages;     // of all valid entries
  // The latest sequence number of a sound base block or a whole entry, old rounds too; none without either.
  std::optional<std::uint32_t> latest;
};

// The format of a log with that base block; none when the block is not sound.
LogFormat FormatOf(const BaseBlock &head);

// Takes apart `bytes`, which hold the whole log; any bytes do.
void ReadHiveLog(HiveLog *log);

}  // namespace machine
