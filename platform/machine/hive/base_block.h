// The block at the beginning of a hive and, cut to 512 bytes, of each of its logs: what a file is and how far it got.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace machine {

inline constexpr std::size_t kBaseBlockSize = 4096;  // of a hive; the bins follow
inline constexpr std::size_t kLogHeadSize = 512;     // the part that a log has, and all that is used
inline constexpr std::uint32_t kBinUnit = 4096;      // bins are multiples of it
// The format's own limit: a cell's offset is a positive 32-bit number.
inline constexpr std::uint32_t kLargestBins = 0x7FFFF000;

// File offsets of fields that are written.
inline constexpr std::size_t kPrimaryOffset = 4;
inline constexpr std::size_t kSecondaryOffset = 8;
inline constexpr std::size_t kTimeOffset = 12;
inline constexpr std::size_t kTypeOffset = 28;
inline constexpr std::size_t kBinsSizeOffset = 40;
inline constexpr std::size_t kFlagsOffset = 144;
inline constexpr std::size_t kChecksumOffset = 508;
inline constexpr std::size_t kFirstBinTime = kBaseBlockSize + 20;

struct BaseBlock {
  bool hasSignature = false, checksumRight = false;
  std::uint32_t primary = 0, secondary = 0;  // sequence numbers, which wrap; equal in a clean hive and a usable log
  std::uint64_t time = 0;                    // of the last write, FILETIME
  std::uint32_t major = 0, minor = 0;
  std::uint32_t type = 0;  // 0 hive, 1 and 2 old log, 6 new log
  std::uint32_t root = 0;  // offset of the root key's cell in the bins
  std::uint32_t binsSize = 0;
  std::uint32_t flags = 0;  // 1: held by the transaction manager
  std::uint32_t storedChecksum = 0, plainXor = 0;
};

// `bytes`: at least kLogHeadSize of them.
BaseBlock ReadBaseBlock(const void *bytes);
// Sets the checksum of a block whose other fields are done.
void SealBaseBlock(void *bytes);

// XOR of the 127 words before the checksum, and the checksum that Windows stores for it: the XOR, but 0xFFFFFFFE for
// 0xFFFFFFFF and 1 for 0.
std::uint32_t PlainXor(const void *bytes);
std::uint32_t HiveChecksum(std::uint32_t plainXor);

// Whether sequence number `a` comes before `b`. They wrap: what is less than half the circle behind is before.
inline bool IsBefore(std::uint32_t a, std::uint32_t b) { return a != b && b - a < 0x80000000; }
// Keeps the later of the two.
inline void NoteNumber(std::optional<std::uint32_t> *latest, std::uint32_t number) {
  if (!*latest || IsBefore(**latest, number)) *latest = number;
}

}  // namespace machine
