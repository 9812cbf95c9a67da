#include "platform/machine/hive/hive_check.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/machine/base/little_endian.h"
#include "platform/machine/host/file_bytes.h"

namespace machine {
namespace {

constexpr std::uint32_t kBinHeader = 32;
constexpr std::uint32_t kKeyRecord = 76;  // without the name

[[gnu::format(printf, 1, 2)]] Status Refusal(const char *format, ...) {
  char text[256];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return Status::Refused(text);
}

// Whether the file holds all bins, and the bins the root key.
Status CheckExtent(const BaseBlock &head, std::uint64_t size) {
  const std::uint32_t bins = head.binsSize, root = head.root;
  if (bins == 0) return Status::Refused("is damaged: it has no bins; restore the file again");
  if (bins > kLargestBins)
    return Refusal("is damaged: its bins have the impossible size %u; restore the file again", bins);
  if (bins % kBinUnit != 0) {
    return Refusal("is damaged: the size of its bins (%u) is no multiple of 4096; restore the file again", bins);
  }
  if (bins > size - kBaseBlockSize) {
    return Refusal("is cut off: its bins need %u bytes, the file has %llu; restore the file again", bins,
                   static_cast<unsigned long long>(size - kBaseBlockSize));
  }
  if (root < kBinHeader || root % 8 != 0 || root > bins - 4 - kKeyRecord) {
    return Refusal("is damaged: its root key (at 0x%X) lies outside its bins; restore the file again", root);
  }
  return {};
}

Status CheckRootCell(int file, std::uint32_t root) {
  std::uint8_t cell[6];
  if (Status read = ReadAt(file, kBaseBlockSize + root, cell, sizeof cell); !read) return read;
  const std::int64_t size = static_cast<std::int32_t>(ReadLe32(cell));
  if (-size < std::int64_t{4} + kKeyRecord || std::memcmp(cell + 4, "nk", 2) != 0) {
    return Refusal("is damaged: there is no key where its root key should be (at 0x%X); restore the file again", root);
  }
  return {};
}

Status CheckBin(const BinWalk &walk, const std::uint8_t *header) {
  const std::uint32_t at = walk.at, own = ReadLe32(header + 4), size = ReadLe32(header + 8);
  if (std::memcmp(header, "hbin", 4) != 0) {
    return Refusal("is damaged: the bin at 0x%X has no signature; restore the file again", at);
  }
  if (own != at) {
    return Refusal("is damaged: the bin at 0x%X says that it is at 0x%X; restore the file again", at, own);
  }
  if (size == 0 || size % kBinUnit != 0 || size > walk.bins - at) {
    return Refusal("is damaged: the bin at 0x%X has the impossible size %u; restore the file again", at, size);
  }
  return {};
}

}  // namespace

Status ReadHead(int file, std::uint64_t *size, BaseBlock *head) {
  if (const Status sized = RegularFileSize(file, size); !sized) {
    return Status::Refused(Words(sized) + "; name the hive file itself", sized.error);
  }
  if (*size < kBaseBlockSize + kBinUnit) {
    return Refusal("is too short for a registry hive (%llu bytes); restore the file again",
                   static_cast<unsigned long long>(*size));
  }
  std::uint8_t block[kLogHeadSize];
  if (Status read = ReadAt(file, 0, block, sizeof block); !read) return read;
  *head = ReadBaseBlock(block);
  return {};
}

Status CheckHead(const BaseBlock &head) {
  if (!head.hasSignature)
    return Status::Refused("is not a registry hive (it does not begin with regf); name another file");
  if (head.type != 0) {
    return Refusal("is not a hive but another registry file (type %u, such as a log); name the hive", head.type);
  }
  if (head.major != 1 || head.minor < 3 || head.minor > 6) {
    return Refusal("has the hive version %u.%u; only versions 1.3 to 1.6 can be changed", head.major, head.minor);
  }
  if (head.checksumRight) return {};
  return Refusal("is damaged: its checksum is 0x%08X and should be 0x%08X; restore the file again", head.storedChecksum,
                 HiveChecksum(head.plainXor));
}

Status WalkBins(BinWalk *walk, const std::uint8_t *bytes, std::uint32_t start, std::uint32_t size) {
  while (walk->at < start + size) {
    const std::uint8_t *header = bytes + (walk->at - start);
    if (walk->at == walk->end) {
      if (Status bin = CheckBin(*walk, header); !bin) return bin;
      walk->end = walk->at + ReadLe32(header + 8);
      walk->at = walk->cells == CellCheck::kAll ? walk->at + kBinHeader : walk->end;
      continue;
    }
    const std::int64_t length = static_cast<std::int32_t>(ReadLe32(header));
    const std::int64_t room = length < 0 ? -length : length;
    if (room < 8 || room % 8 != 0 || room > walk->end - walk->at) {
      return Refusal("is damaged: the cell at 0x%X has the impossible size %lld; restore the file again", walk->at,
                     static_cast<long long>(length));
    }
    walk->at += static_cast<std::uint32_t>(room);
  }
  return {};
}

Status CheckAllButBins(int file, BaseBlock *head) {
  std::uint64_t size = 0;
  if (Status read = ReadHead(file, &size, head); !read) return read;
  if (Status right = CheckHead(*head); !right) return right;
  if (Status whole = CheckExtent(*head, size); !whole) return whole;
  if (Status rooted = CheckRootCell(file, head->root); !rooted) return rooted;
  if (head->primary == head->secondary) return {};
  return Refusal("was not closed cleanly (sequence numbers %u and %u)", head->primary, head->secondary);
}

Status CheckHive(int file, std::uint32_t firstBin, CellCheck cells, BaseBlock *head) {
  if (Status right = CheckAllButBins(file, head); !right) return right;
  BinWalk walk = {cells, head->binsSize, firstBin, firstBin};
  std::vector<std::uint8_t> window(std::min(head->binsSize, kWindowSize));
  while (walk.at < walk.bins) {
    const std::uint32_t start = walk.at / kBinUnit * kBinUnit;  // large cells are passed over
    const std::uint32_t size = std::min(kWindowSize, walk.bins - start);
    if (Status read = ReadAt(file, kBaseBlockSize + std::uint64_t{start}, window.data(), size); !read) return read;
    if (Status sound = WalkBins(&walk, window.data(), start, size); !sound) return sound;
  }
  return {};
}

}  // namespace machine
