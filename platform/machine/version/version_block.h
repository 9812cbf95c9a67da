// The version block that GetFileVersionInfoA hands out and VerQueryValueA asks: a header, the resource as it stands in
// the file, and behind it the mirror, as long as the resource, in which every text stands in the ANSI code page at the
// offset that it has in the resource. So a query only points, and the block's size is known from the resource's.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "platform/machine/base/status.h"
#include "platform/platform.h"

namespace machine {

// The header: less of a block cannot tell how much of it there is.
inline constexpr std::size_t kSmallestVersionBlock = 16;

// Bytes of the block of a version resource of so many bytes.
std::size_t VersionBlockSize(std::size_t resourceSize);

// The block of a version resource, at most kLongestVersionResource bytes, cut to `room`, which is at least
// kSmallestVersionBlock.
std::vector<BYTE> MakeVersionBlock(std::span<const BYTE> resource, std::size_t room);

// Stores where in the block a value stands, a text with its terminator. Fails with ERROR_RESOURCE_TYPE_NOT_FOUND when
// the block has no such value; ERROR_INVALID_DATA when it is cut before the value's end, or is no such block.
Status QueryVersionBlock(const BYTE *block, std::string_view path, std::span<const BYTE> *value);

}  // namespace machine
