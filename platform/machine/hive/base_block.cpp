#include "platform/machine/hive/base_block.h"

#include <cstring>

#include "platform/machine/base/little_endian.h"

namespace machine {

BaseBlock ReadBaseBlock(const void *bytes) {
  const auto *at = static_cast<const std::uint8_t *>(bytes);
  BaseBlock block;
  block.hasSignature = std::memcmp(at, "regf", 4) == 0;
  block.primary = ReadLe32(at + kPrimaryOffset);
  block.secondary = ReadLe32(at + kSecondaryOffset);
  block.time = ReadLe64(at + kTimeOffset);
  block.major = ReadLe32(at + 20);
  block.minor = ReadLe32(at + 24);
  block.type = ReadLe32(at + kTypeOffset);
  block.root = ReadLe32(at + 36);
  block.binsSize = ReadLe32(at + kBinsSizeOffset);
  block.flags = ReadLe32(at + kFlagsOffset);
  block.storedChecksum = ReadLe32(at + kChecksumOffset);
  block.plainXor = PlainXor(at);
  block.checksumRight = block.storedChecksum == HiveChecksum(block.plainXor);
  return block;
}

void SealBaseBlock(void *bytes) {
  WriteLe32(static_cast<std::uint8_t *>(bytes) + kChecksumOffset, HiveChecksum(PlainXor(bytes)));
}

std::uint32_t PlainXor(const void *bytes) {
  std::uint32_t sum = 0;
  for (std::size_t at = 0; at < kChecksumOffset; at += 4) sum ^= ReadLe32(static_cast<const char *>(bytes) + at);
  return sum;
}

std::uint32_t HiveChecksum(std::uint32_t plainXor) {
  if (plainXor == 0xFFFFFFFF) return 0xFFFFFFFE;
  return plainXor == 0 ? 1 : plainXor;
}

}  // namespace machine
