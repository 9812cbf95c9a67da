// The strict check that a hive file passes before anything reads it, and the base block's checksum.
#pragma once

#include <cstdint>
#include <string>

namespace machine {

inline constexpr std::size_t kBaseBlockSize = 4096;
inline constexpr std::size_t kFirstBinTime = kBaseBlockSize + 20;  // file offset of the first bin's FILETIME
inline constexpr std::size_t kTimeOffset = 12;
inline constexpr std::size_t kChecksumOffset = 508;

struct HiveFacts {
  std::uint32_t minorVersion = 0;
  std::uint64_t size = 0;      // of the file, bytes
  std::uint32_t binsSize = 0;  // bytes
  std::uint32_t plainXor = 0;  // of the base block's first 508 bytes
  bool exceptional = false;    // the checksum is one of the two that differ from the plain XOR
};

// Reads exactly `size` bytes at a file offset. Empty, or the reason in one line for people.
std::string ReadAt(int file, std::uint64_t offset, void *buffer, std::size_t size);

// XOR of the 127 words before the checksum.
std::uint32_t PlainXor(const void *baseBlock);
// The checksum that Windows stores for it: the XOR, but 0xFFFFFFFE for 0xFFFFFFFF and 1 for 0.
std::uint32_t HiveChecksum(std::uint32_t plainXor);

// Checks base block, root cell, the chain of bins, and that the hive was closed cleanly. Empty when the file is one
// that may be changed, else the reason in one line for people. Moves no file position.
// `firstBin` is where the chain of bins is taken up: 0 for a file from outside, the old size of the bins for one that
// was made from a checked one by adding bins.
std::string CheckHive(int file, std::uint32_t firstBin, HiveFacts *facts);

}  // namespace machine
