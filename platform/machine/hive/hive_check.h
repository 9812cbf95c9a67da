// The strict check that a hive file passes before anything reads it.
#pragma once

#include <cstdint>

#include "platform/machine/base/status.h"
#include "platform/machine/hive/base_block.h"

namespace machine {

// Reads and checks what must be right before a hive's logs are looked at: that it is a file, that it is long enough.
// Stores its size and the base block as it is. A failure's words follow the file's name.
Status ReadHead(int file, std::uint64_t *size, BaseBlock *head);

// Whether a base block is that of a hive that can be changed: signature, type, version, checksum.
Status CheckHead(const BaseBlock &head);

// Whether cells are looked at too. A hive that libhivex reads as it is needs only its bins: it looks at the cells.
enum class CellCheck { kNone, kAll };

// A walk from header to header through bins and cells, window by window.
struct BinWalk {
  CellCheck cells = CellCheck::kAll;
  std::uint32_t bins = 0;         // bytes of all bins
  std::uint32_t at = 0, end = 0;  // the next header, and the end of its bin; both where a bin begins
};
// How much of the bins is worth looking at at once: it stays in the processor's cache.
inline constexpr std::uint32_t kWindowSize = 256 << 10;

// Goes on through the bins' bytes from offset `start` to `start + size`, both multiples of 4096; the next header must
// not lie before them. Every bin says where it is and how long, the bins fill their size, cells fill each bin.
Status WalkBins(BinWalk *walk, const std::uint8_t *bytes, std::uint32_t start, std::uint32_t size);

// Checks base block, root cell, and that the hive was closed cleanly, and stores the base block.
Status CheckAllButBins(int file, BaseBlock *head);
// The same and all bins: succeeds when the file is a hive that may be changed. Moves no file position.
// `firstBin` is where the bins are taken up: 0 for a file from outside, the old size of the bins for one that was made
// from a checked one by adding bins.
Status CheckHive(int file, std::uint32_t firstBin, CellCheck cells, BaseBlock *head);

}  // namespace machine
