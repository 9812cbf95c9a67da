#include "platform/machine/hive_check.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/machine/file_bytes.h"
#include "platform/machine/little_endian.h"

namespace machine {
namespace {

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

// Whether the file holds all bins, and the bins the root key.
std::string CheckExtent(const BaseBlock &head, std::uint64_t size) {
  const std::uint32_t bins = head.binsSize, root = head.root;
  if (bins == 0) return "is damaged: it has no bins; restore the file again";
  if (bins % kBinUnit != 0) {
    return Reason("is damaged: the size of its bins (%u) is no multiple of 4096; restore the file again", bins);
  }
  if (bins > size - kBaseBlockSize) {
    return Reason("is cut off: its bins need %u bytes, the file has %llu; restore the file again", bins,
                  static_cast<unsigned long long>(size - kBaseBlockSize));
  }
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

// The cells of a bin, each with its size in front (negative when it is in use), fill it.
std::string CheckCells(Window *window, std::uint32_t bin, std::uint32_t size) {
  std::string reason;
  for (std::uint32_t at = kBinHeader; at < size;) {
    const std::uint8_t *cell = Look(window, kBaseBlockSize + std::uint64_t{bin} + at, 4, &reason);
    if (cell == nullptr) return reason;
    const std::int64_t length = static_cast<std::int32_t>(ReadLe32(cell));
    const std::int64_t room = length < 0 ? -length : length;
    if (room < 8 || room % 8 != 0 || room > size - at) {
      return Reason("is damaged: the cell at 0x%X has the impossible size %lld; restore the file again", bin + at,
                    static_cast<long long>(length));
    }
    at += static_cast<std::uint32_t>(room);
  }
  return "";
}

// Every bin says where it is and how long; together they fill the size that the base block gives.
std::string CheckBins(int file, std::uint64_t fileSize, std::uint32_t first, std::uint32_t bins, CellCheck cells) {
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
    if (cells == CellCheck::kAll) reason = CheckCells(&window, at, size);
    if (!reason.empty()) return reason;
    at += size;
  }
  return "";
}

}  // namespace

std::string ReadHead(int file, std::uint64_t *size, BaseBlock *head) {
  std::string reason = RegularFileSize(file, size);
  if (!reason.empty()) return reason + "; name the hive file itself";
  if (*size < kBaseBlockSize + kBinUnit) {
    return Reason("is too short for a registry hive (%llu bytes); restore the file again",
                  static_cast<unsigned long long>(*size));
  }
  std::uint8_t block[kLogHeadSize];
  reason = ReadAt(file, 0, block, sizeof block);
  if (reason.empty()) *head = ReadBaseBlock(block);
  return reason;
}

std::string CheckHead(const BaseBlock &head) {
  if (!head.hasSignature) return "is not a registry hive (it does not begin with regf); name another file";
  if (head.type != 0) {
    return Reason("is not a hive but another registry file (type %u, such as a log); name the hive", head.type);
  }
  if (head.major != 1 || head.minor < 3 || head.minor > 6) {
    return Reason("has the hive version %u.%u; only versions 1.3 to 1.6 can be changed", head.major, head.minor);
  }
  if (head.checksumRight) return "";
  return Reason("is damaged: its checksum is 0x%08X and should be 0x%08X; restore the file again", head.storedChecksum,
                HiveChecksum(head.plainXor));
}

std::string CheckHive(int file, std::uint32_t firstBin, CellCheck cells, BaseBlock *head) {
  std::uint64_t size = 0;
  std::string reason = ReadHead(file, &size, head);
  if (reason.empty()) reason = CheckHead(*head);
  if (reason.empty()) reason = CheckExtent(*head, size);
  if (reason.empty()) reason = CheckRootCell(file, head->root);
  if (reason.empty()) reason = CheckBins(file, size, firstBin, head->binsSize, cells);
  if (!reason.empty() || head->primary == head->secondary) return reason;
  return Reason("was not closed cleanly (sequence numbers %u and %u)", head->primary, head->secondary);
}

}  // namespace machine
