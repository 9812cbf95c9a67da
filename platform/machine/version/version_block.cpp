#include "platform/machine/version/version_block.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>

#include "platform/machine/version/version_resource.h"
#include "platform/machine/version/version_tree.h"

namespace machine {
namespace {

constexpr DWORD kMagic = 0x56525856;

struct Header {
  DWORD magic;
  DWORD stored;     // bytes of the block that the caller took, this header among them
  DWORD notStored;  // its complement: a query is not told the size, and must be able to trust it
  DWORD resourceSize;
};
static_assert(sizeof(Header) == kSmallestVersionBlock);

std::size_t MirrorOffset(std::size_t resourceSize) { return sizeof(Header) + ((resourceSize + 3) & ~std::size_t{3}); }

bool IsWhole(const Header &header) {
  return header.magic == kMagic && header.stored == ~header.notStored &&
         header.resourceSize <= kLongestVersionResource && header.stored >= MirrorOffset(header.resourceSize);
}

}  // namespace

// The byte more is the terminator of a text that ends with the resource.
std::size_t VersionBlockSize(std::size_t resourceSize) { return MirrorOffset(resourceSize) + resourceSize + 1; }

std::vector<BYTE> MakeVersionBlock(std::span<const BYTE> resource, std::size_t room) {
  std::vector<BYTE> block(VersionBlockSize(resource.size()));
  const auto stored = static_cast<DWORD>(std::min(block.size(), room));
  const Header header = {kMagic, stored, ~stored, static_cast<DWORD>(resource.size())};
  std::memcpy(block.data(), &header, sizeof header);
  std::copy(resource.begin(), resource.end(), block.begin() + sizeof header);
  const auto mirror = block.begin() + static_cast<std::ptrdiff_t>(MirrorOffset(resource.size()));
  ForEachVersionText(resource, [&](const VersionValue &value) {
    const std::string text = VersionText(resource, value);
    std::copy(text.begin(), text.end(), mirror + static_cast<std::ptrdiff_t>(value.offset));
  });
  block.resize(stored);
  return block;
}

Status QueryVersionBlock(const BYTE *block, std::string_view path, std::span<const BYTE> *value) {
  Header header;
  std::memcpy(&header, block, sizeof header);
  if (!IsWhole(header)) return Status::Windows(ERROR_INVALID_DATA);
  const std::span<const BYTE> resource(block + sizeof header, header.resourceSize);
  const std::optional<VersionValue> found = FindVersionValue(resource, path);
  if (!found) return Status::Windows(ERROR_RESOURCE_TYPE_NOT_FOUND);
  *value = resource.subspan(found->offset, found->size);
  if (!found->text) return {};
  const std::size_t offset = MirrorOffset(header.resourceSize) + found->offset;
  const void *end = offset < header.stored ? std::memchr(block + offset, 0, header.stored - offset) : nullptr;
  if (end == nullptr) return Status::Windows(ERROR_INVALID_DATA);
  const std::size_t length = static_cast<std::size_t>(static_cast<const BYTE *>(end) - (block + offset));
  *value = {block + offset, found->size == 0 ? 0 : length + 1};
  return {};
}

}  // namespace machine
