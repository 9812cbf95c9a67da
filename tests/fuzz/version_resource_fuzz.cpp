// The reader of version resources: the input as an executable, as a version resource, and as a block to be asked.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/machine/version/version_block.h"
#include "platform/machine/version/version_resource.h"
#include "platform/machine/version/version_tree.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

constexpr std::string_view kPaths[] = {"\\", "\\VarFileInfo\\Translation", "\\StringFileInfo\\040904b0\\FileVersion",
                                       "\\StringFileInfo\\\\a\\b"};

// Whatever part of the block is stored, an answer lies inside of it.
void AskBlock(std::span<const BYTE> resource, std::size_t room) {
  const std::vector<BYTE> block = machine::MakeVersionBlock(resource, room);
  for (const std::string_view path : kPaths) {
    std::span<const BYTE> value;
    if (!machine::QueryVersionBlock(block.data(), path, &value)) continue;
    Require(value.data() >= block.data() && value.data() + value.size() <= block.data() + block.size());
  }
}

void ReadResource(std::span<const BYTE> resource) {
  if (!machine::IsVersionTree(resource)) return;
  std::size_t free = 0;
  machine::ForEachVersionText(resource, [&](const machine::VersionValue &value) {
    Require(value.offset >= free && value.size <= resource.size() - value.offset);
    Require(machine::VersionText(resource, value).size() <= value.size);
    free = value.offset + value.size + 8;
  });
  const std::size_t whole = machine::VersionBlockSize(resource.size());
  AskBlock(resource, whole);
  AskBlock(resource, machine::kSmallestVersionBlock + (whole - machine::kSmallestVersionBlock) * 3 / 4);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const machine::ImageSource image = {size, [&](std::uint64_t offset, void *buffer, std::size_t wanted) {
                                        Require(offset <= size && wanted <= size - offset);
                                        std::memcpy(buffer, data + offset, wanted);
                                        return true;
                                      }};
  std::vector<BYTE> resource;
  if (machine::ReadVersionResource(image, &resource) == machine::VersionResource::kFound) ReadResource(resource);
  ReadResource({data, std::min(size, machine::kLongestVersionResource)});
  return 0;
}
