// The strict check that a hive file passes before anything reads it.
#pragma once

#include <cstdint>
#include <string>

#include "platform/machine/base_block.h"

namespace machine {

// Reads and checks what must be right before a hive's logs are looked at: that it is a file, that it is long enough.
// Stores its size and the base block as it is. Empty, or the reason in one line for people.
std::string ReadHead(int file, std::uint64_t *size, BaseBlock *head);

// Whether a base block is that of a hive that can be changed: signature, type, version, checksum. A reason as above.
std::string CheckHead(const BaseBlock &head);

enum class CellCheck { kNone, kAll };

// Checks base block, root cell and the chain of bins; with kAll also that cells fill each bin. Stores the base block.
// Empty when the file is a clean hive that may be changed, else the reason. Moves no file position.
// `firstBin` is where the chain of bins is taken up: 0 for a file from outside, the old size of the bins for one that
// was made from a checked one by adding bins.
std::string CheckHive(int file, std::uint32_t firstBin, CellCheck cells, BaseBlock *head);

}  // namespace machine
