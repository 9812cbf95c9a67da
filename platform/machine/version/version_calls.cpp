// The calls on version resources.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <span>
#include <vector>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/description/current.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/version/version_block.h"
#include "platform/machine/version/version_resource.h"
#include "platform/machine/version/version_tree.h"

namespace {

using machine::FailWith;
using machine::Status;

Status ReadFully(int file, std::uint64_t offset, void *buffer, std::size_t size) {
  auto *at = static_cast<char *>(buffer);
  while (size != 0) {
    const ssize_t count = pread(file, at, size, static_cast<off_t>(offset));
    if (count < 0 && errno == EINTR) continue;
    // A file that shrinks while it is read has no end of its own to reach.
    if (count <= 0) return Status::System({}, count == 0 ? EIO : errno);
    at += count;
    offset += static_cast<std::uint64_t>(count);
    size -= static_cast<std::size_t>(count);
  }
  return {};
}

// The version resource of the file.
Status LoadResource(const char *file, std::vector<BYTE> *resource) {
  if (machine::Current() == nullptr) return Status::Windows(ERROR_NOT_READY);
  if (file == nullptr) return Status::Windows(ERROR_INVALID_PARAMETER);
  machine::Descriptor descriptor;
  if (Status opened = machine::OpenHostFile(file, O_RDONLY | O_NONBLOCK, &descriptor); !opened) return opened;
  struct stat status;
  if (fstat(descriptor.fd, &status) != 0) return Status::System();
  if (!S_ISREG(status.st_mode)) return Status::Windows(ERROR_ACCESS_DENIED);
  Status read;
  const machine::ImageSource source = {static_cast<std::uint64_t>(status.st_size),
                                       [&](std::uint64_t offset, void *buffer, std::size_t size) {
                                         read = ReadFully(descriptor.fd, offset, buffer, size);
                                         return static_cast<bool>(read);
                                       }};
  switch (machine::ReadVersionResource(source, resource)) {
    case machine::VersionResource::kFound:
      return machine::IsVersionTree(*resource) ? Status() : Status::Windows(ERROR_INVALID_DATA);
    case machine::VersionResource::kNone:
      return Status::Windows(ERROR_RESOURCE_DATA_NOT_FOUND);
    case machine::VersionResource::kUnreadable:
      return read;
    case machine::VersionResource::kDamaged:
      break;
  }
  return Status::Windows(ERROR_INVALID_DATA);
}

}  // namespace

namespace platform {

DWORD GetFileVersionInfoSizeA(const char *file, DWORD *handle) {
  VXR_FAULT(0, ERROR_FILE_NOT_FOUND);
  if (handle != nullptr) *handle = 0;
  std::vector<BYTE> resource;
  const Status loaded = LoadResource(file, &resource);
  return loaded ? static_cast<DWORD>(machine::VersionBlockSize(resource.size())) : FailWith(loaded, 0u);
}

BOOL GetFileVersionInfoA(const char *file, DWORD, DWORD size, void *block) {
  VXR_FAULT(FALSE, ERROR_INVALID_DATA);
  if (block == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  if (size < machine::kSmallestVersionBlock) return FailWith(ERROR_INSUFFICIENT_BUFFER);
  std::vector<BYTE> resource;
  if (const Status loaded = LoadResource(file, &resource); !loaded) return FailWith(loaded);
  const std::vector<BYTE> made = machine::MakeVersionBlock(resource, size);
  std::memcpy(block, made.data(), made.size());
  return TRUE;
}

BOOL VerQueryValueA(const void *block, const char *subBlock, void **value, UINT *length) {
  VXR_FAULT(FALSE, ERROR_RESOURCE_TYPE_NOT_FOUND);
  if (block == nullptr || subBlock == nullptr || value == nullptr || length == nullptr) {
    return FailWith(ERROR_INVALID_PARAMETER);
  }
  *value = nullptr;
  *length = 0;
  std::span<const BYTE> found;
  const Status queried = machine::QueryVersionBlock(static_cast<const BYTE *>(block), subBlock, &found);
  if (!queried) return FailWith(queried);
  // As on Windows the caller gets a pointer that may be written through; nothing here does.
  *value = const_cast<BYTE *>(found.data());
  *length = static_cast<UINT>(found.size());
  return TRUE;
}

}  // namespace platform
