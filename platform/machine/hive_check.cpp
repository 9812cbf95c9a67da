#include "platform/machine/hive_check.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/machine/little_endian.h"

namespace machine {
namespace {

constexpr std::uint32_t kBinUnit = 4096;
constexpr std::uint32_t kBinHeader = 32;
constexpr std::uint32_t kKeyRecord = 76;  // without the name

[[gnu::format(printf, 1, 2)]] std::string Reason(const char *format, ...) {
  char text[256];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

std::string CheckBaseBlock(const std::uint8_t *block, HiveFacts *facts) {
  if (std::memcmp(block, "regf", 4) != 0)
    return "is not a registry hive (it does not begin with regf); name another file";
  const std::uint32_t type = ReadLe32(block + 28);
  if (type != 0) return Reason("is not a hive but another registry file (type %u, such as a log); name the hive", type);
  const std::uint32_t major = ReadLe32(block + 20), minor = ReadLe32(block + 24);
  if (major != 1 || minor < 3 || minor > 6) {
    return Reason("has the hive version %u.%u; only versions 1.3 to 1.6 can be changed", major, minor);
  }
  facts->minorVersion = minor;
  facts->plainXor = PlainXor(block);
  const std::uint32_t stored = ReadLe32(block + kChecksumOffset), right = HiveChecksum(facts->plainXor);
  facts->exceptional = right != facts->plainXor;
  if (stored != right) {
    return Reason("is damaged: its checksum is 0x%08X and should be 0x%08X; restore the file again", stored, right);
  }
  const std::uint32_t bins = ReadLe32(block + 40);
  if (bins == 0) return "is damaged: it has no bins; restore the file again";
  if (bins % kBinUnit != 0) {
    return Reason("is damaged: the size of its bins (%u) is no multiple of 4096; restore the file again", bins);
  }
  if (bins > facts->size - kBaseBlockSize) {
    return Reason("is cut off: its bins need %u bytes, the file has %llu; restore the file again", bins,
                  static_cast<unsigned long long>(facts->size - kBaseBlockSize));
  }
  facts->binsSize = bins;
  const std::uint32_t root = ReadLe32(block + 36);
  if (root < kBinHeader || root % 8 != 0 || root > bins - 4 - kKeyRecord) {
    return Reason("is damaged: its root key (at 0x%X) lies outside its bins; restore the file again", root);
  }
  return "";
}

std::string CheckRootCell(int file, std::uint32_t root) {
  std::uint8_t cell[6];
  if (std::string reason = ReadAt(file, kBaseBlockSize + root, cell, sizeof cell); !reason.empty()) return reason;
  const std::int64_t size = static_cast<std::int32_t>(ReadLe32(cell));
  if (-size < std::int64_t{4} + kKeyRecord || std::memcmp(cell + 4, "nk", 2) != 0) {
    return Reason("is damaged: there is no key where its root key should be (at 0x%X); restore the file again", root);
  }
  return "";
}

// A window on the file. Bins are mostly of 4096 bytes: reading many at once costs less than a call for each.
struct Window {
  int file = -1;
  std::uint64_t end = 0;  // of the file
  std::uint64_t start = 0;
  std::vector<std::uint8_t> bytes;
};

constexpr std::uint64_t kWindowSize = 256 << 10;

// The `size` bytes at `offset`, valid until the next call; null with the reason.
const std::uint8_t *Look(Window *window, std::uint64_t offset, std::size_t size, std::string *reason) {
  if (offset < window->start || offset + size > window->start + window->bytes.size()) {
    window->start = offset;
    window->bytes.resize(
        std::max<std::uint64_t>(size, std::min(kWindowSize, window->end - std::min(offset, window->end))));
    *reason = ReadAt(window->file, offset, window->bytes.data(), window->bytes.size());
    if (!reason->empty()) return nullptr;
  }
  return window->bytes.data() + (offset - window->start);
}

// Every bin says where it is and how long; together they fill the size that the base block gives.
std::string CheckBins(int file, std::uint64_t fileSize, std::uint32_t first, std::uint32_t bins) {
  Window window{file, fileSize, 0, {}};
  std::string reason;
  for (std::uint32_t at = first; at < bins;) {
    const std::uint8_t *header = Look(&window, kBaseBlockSize + std::uint64_t{at}, 12, &reason);
    if (header == nullptr) return reason;
    if (std::memcmp(header, "hbin", 4) != 0) {
      return Reason("is damaged: the bin at 0x%X has no signature; restore the file again", at);
    }
    const std::uint32_t own = ReadLe32(header + 4), size = ReadLe32(header + 8);
    if (own != at) {
      return Reason("is damaged: the bin at 0x%X says that it is at 0x%X; restore the file again", at, own);
    }
    if (size == 0 || size % kBinUnit != 0 || size > bins - at) {
      return Reason("is damaged: the bin at 0x%X has the impossible size %u; restore the file again", at, size);
    }
    at += size;
  }
  return "";
}

}  // namespace

std::string ReadAt(int file, std::uint64_t offset, void *buffer, std::size_t size) {
  auto *at = static_cast<char *>(buffer);
  while (size > 0) {
    const ssize_t got = pread(file, at, size, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return Reason("cannot be read: %s", std::strerror(errno));
    if (got == 0) return "became shorter while it was read; let nothing else change it";
    at += got;
    offset += static_cast<std::uint64_t>(got);
    size -= static_cast<std::size_t>(got);
  }
  return "";
}

std::uint32_t PlainXor(const void *baseBlock) {
  std::uint32_t sum = 0;
  for (std::size_t at = 0; at < kChecksumOffset; at += 4) sum ^= ReadLe32(static_cast<const char *>(baseBlock) + at);
  return sum;
}

std::uint32_t HiveChecksum(std::uint32_t plainXor) {
  if (plainXor == 0xFFFFFFFF) return 0xFFFFFFFE;
  return plainXor == 0 ? 1 : plainXor;
}

std::string CheckHive(int file, std::uint32_t firstBin, HiveFacts *facts) {
  struct stat status;
  if (fstat(file, &status) != 0) return Reason("cannot be read: %s", std::strerror(errno));
  if (!S_ISREG(status.st_mode)) return "is not a file; name the hive file itself";
  facts->size = static_cast<std::uint64_t>(status.st_size);
  if (facts->size < kBaseBlockSize + kBinUnit) {
    return Reason("is too short for a registry hive (%llu bytes); restore the file again",
                  static_cast<unsigned long long>(facts->size));
  }
  std::uint8_t block[kBaseBlockSize];
  std::string reason = ReadAt(file, 0, block, sizeof block);
  if (reason.empty()) reason = CheckBaseBlock(block, facts);
  if (reason.empty()) reason = CheckRootCell(file, ReadLe32(block + 36));
  if (reason.empty()) reason = CheckBins(file, facts->size, firstBin, facts->binsSize);
  if (!reason.empty()) return reason;
  const std::uint32_t primary = ReadLe32(block + 4), secondary = ReadLe32(block + 8);
  if (primary != secondary) {
    return Reason(
        "was not closed cleanly (sequence numbers %u and %u) and part of its data may be in its log files; "
        "load and unload it once on a running Windows, then run again",
        primary, secondary);
  }
  return "";
}

}  // namespace machine
