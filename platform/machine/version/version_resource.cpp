#include "platform/machine/version/version_resource.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/machine/base/little_endian.h"

namespace machine {
namespace {

constexpr std::size_t kDosHeaderSize = 64, kPeOffset = 60;
constexpr std::size_t kFileHeaderSize = 24;  // with the signature before it
constexpr std::size_t kSectionCount = 6, kOptionalHeaderSize = 20;
constexpr std::uint32_t kPe32 = 0x10B, kPe32Plus = 0x20B;
constexpr std::size_t kDirectories32 = 96, kDirectories64 = 112;  // in the optional header; their count stands before
constexpr std::size_t kResourceDirectory = 2, kDirectorySize = 8;
constexpr std::size_t kSectionSize = 40, kSectionAddress = 12, kSectionRawSize = 16, kSectionRawOffset = 20;
constexpr std::size_t kResourceHeaderSize = 16, kNamedCount = 12, kIdCount = 14, kEntrySize = 8;
constexpr std::uint32_t kVersionType = 16;
constexpr std::uint32_t kSubdirectory = 0x80000000;

struct Image {
  const ImageSource *source;
  std::vector<BYTE> sections;                          // the table as it stands in the file
  std::uint64_t resources = 0;                         // address of the resource directories, relative to the image
  VersionResource result = VersionResource::kDamaged;  // why a step failed
};

bool Stop(Image *image, VersionResource why) {
  image->result = why;
  return false;
}

bool ReadFile(Image *image, std::uint64_t offset, void *buffer, std::size_t size) {
  const std::uint64_t whole = image->source->size;
  if (offset > whole || size > whole - offset) return Stop(image, VersionResource::kDamaged);
  return size == 0 || image->source->read(offset, buffer, size) || Stop(image, VersionResource::kUnreadable);
}

// Reads bytes that the loader would put at an address; they must lie in one section's part of the file. Addresses have
// 32 bits, sums of them may have more.
bool ReadAddress(Image *image, std::uint64_t address, std::uint32_t size, void *buffer, std::size_t wanted) {
  for (std::size_t at = 0; at < image->sections.size(); at += kSectionSize) {
    const BYTE *section = &image->sections[at];
    const std::uint32_t start = ReadLe32(section + kSectionAddress);
    const std::uint32_t rawSize = ReadLe32(section + kSectionRawSize);
    if (address < start || address - start > rawSize || size > rawSize - (address - start)) continue;
    return ReadFile(image, ReadLe32(section + kSectionRawOffset) + (address - start), buffer, wanted);
  }
  return Stop(image, VersionResource::kDamaged);
}

// From the optional header the address of the resource directories.
bool ReadOptionalHeader(Image *image, std::uint64_t offset, std::size_t size) {
  std::array<BYTE, kDirectories64 + (kResourceDirectory + 1) *kDirectorySize> header = {};
  size = std::min(size, header.size());
  if (!ReadFile(image, offset, header.data(), size)) return false;
  const std::uint32_t magic = ReadLe16(header.data());
  const std::size_t directories = magic == kPe32 ? kDirectories32 : kDirectories64;
  if ((magic != kPe32 && magic != kPe32Plus) || size < directories) return Stop(image, VersionResource::kDamaged);
  const std::size_t resource = directories + kResourceDirectory * kDirectorySize;
  const bool has = ReadLe32(&header[directories - 4]) > kResourceDirectory && size >= resource + kDirectorySize;
  if (!has || ReadLe32(&header[resource + 4]) == 0) return Stop(image, VersionResource::kNone);
  image->resources = ReadLe32(&header[resource]);
  return image->resources != 0 || Stop(image, VersionResource::kNone);
}

bool ReadHeaders(Image *image) {
  std::array<BYTE, kDosHeaderSize> dos;
  if (image->source->size < dos.size()) return Stop(image, VersionResource::kNone);
  if (!ReadFile(image, 0, dos.data(), dos.size())) return false;
  const std::uint64_t offset = ReadLe32(&dos[kPeOffset]);
  // Where a program for DOS has something else, the offset means nothing.
  if (std::memcmp(dos.data(), "MZ", 2) != 0 || offset + 4 > image->source->size) {
    return Stop(image, VersionResource::kNone);
  }
  std::array<BYTE, kFileHeaderSize> header;
  if (!ReadFile(image, offset, header.data(), 4)) return false;
  if (std::memcmp(header.data(), "PE\0\0", 4) != 0) return Stop(image, VersionResource::kNone);
  if (!ReadFile(image, offset, header.data(), header.size())) return false;
  const std::size_t optionalSize = ReadLe16(&header[kOptionalHeaderSize]);
  if (!ReadOptionalHeader(image, offset + kFileHeaderSize, optionalSize)) return false;
  const std::uint64_t table = offset + kFileHeaderSize + optionalSize;
  const std::size_t tableSize = ReadLe16(&header[kSectionCount]) * kSectionSize;
  // Room for a table that the file does not hold is not even asked for.
  if (table + tableSize > image->source->size) return Stop(image, VersionResource::kDamaged);
  image->sections.resize(tableSize);
  return ReadFile(image, table, image->sections.data(), tableSize);
}

struct Directory {
  std::uint64_t entries;  // address
  std::uint32_t named, ids;
};

// `offset` counts from the first resource directory.
bool ReadDirectory(Image *image, std::uint32_t offset, Directory *directory) {
  std::array<BYTE, kResourceHeaderSize> header;
  const std::uint64_t address = image->resources + offset;
  if (!ReadAddress(image, address, header.size(), header.data(), header.size())) return false;
  *directory = {address + header.size(), ReadLe16(&header[kNamedCount]), ReadLe16(&header[kIdCount])};
  return true;
}

// The version type's own directory.
bool FindVersionType(Image *image, std::uint32_t *target) {
  Directory types;
  if (!ReadDirectory(image, 0, &types)) return false;
  std::vector<BYTE> entries(std::size_t{types.ids} * kEntrySize);
  const std::uint64_t address = types.entries + std::uint64_t{types.named} * kEntrySize;
  if (!ReadAddress(image, address, static_cast<std::uint32_t>(entries.size()), entries.data(), entries.size())) {
    return false;
  }
  for (std::size_t at = 0; at < entries.size(); at += kEntrySize) {
    if (ReadLe32(&entries[at]) != kVersionType) continue;
    *target = ReadLe32(&entries[at + 4]);
    return true;
  }
  return Stop(image, VersionResource::kNone);
}

// What the first entry of a directory leads to; `*target` is the entry that leads to the directory.
bool FollowFirst(Image *image, std::uint32_t *target) {
  Directory directory;
  std::array<BYTE, kEntrySize> entry;
  if ((*target & kSubdirectory) == 0) return Stop(image, VersionResource::kDamaged);
  if (!ReadDirectory(image, *target & ~kSubdirectory, &directory)) return false;
  if (directory.named + directory.ids == 0) return Stop(image, VersionResource::kDamaged);
  if (!ReadAddress(image, directory.entries, entry.size(), entry.data(), entry.size())) return false;
  *target = ReadLe32(&entry[4]);
  return true;
}

bool ReadResource(Image *image, std::vector<BYTE> *resource) {
  std::uint32_t target;
  // By type, then name, then language: what the language leads to is the data.
  if (!FindVersionType(image, &target) || !FollowFirst(image, &target) || !FollowFirst(image, &target)) return false;
  if ((target & kSubdirectory) != 0) return Stop(image, VersionResource::kDamaged);
  std::array<BYTE, 16> entry;
  if (!ReadAddress(image, image->resources + target, entry.size(), entry.data(), entry.size())) return false;
  const std::uint32_t size = ReadLe32(&entry[4]);
  resource->resize(std::min<std::size_t>(size, kLongestVersionResource));
  return ReadAddress(image, ReadLe32(entry.data()), size, resource->data(), resource->size());
}

}  // namespace

VersionResource ReadVersionResource(const ImageSource &source, std::vector<BYTE> *resource) {
  Image image = {&source, {}};
  resource->clear();
  if (ReadHeaders(&image) && ReadResource(&image, resource)) return VersionResource::kFound;
  resource->clear();
  return image.result;
}

}  // namespace machine
