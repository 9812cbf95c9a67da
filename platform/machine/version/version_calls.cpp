// The calls on version resources.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <span>
#include <vector>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/errors.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/description/current.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/version/version_block.h"
#include "platform/machine/version/version_resource.h"
#include "platform/machine/version/version_tree.h"

namespace {

using machine::FailWith;

bool ReadFully(int file, std::uint64_t offset, void *buffer, std::size_t size) {
  auto *at = static_cast<char *>(buffer);
  while (size != 0) {
    const ssize_t count = pread(file, at, size, static_cast<off_t>(offset));
    if (count < 0 && errno == EINTR) continue;
    // A file that shrinks while it is read has no end of its own to reach.
    if (count == 0) errno = EIO;
    if (count <= 0) return false;
    at += count;
    offset += static_cast<std::uint64_t>(count);
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

// The version resource of the file. False with the last error set.
bool LoadResource(const char *file, std::vector<BYTE> *resource) {
  if (machine::CurrentOrNotReady() == nullptr) return false;
  if (file == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  const machine::Descriptor descriptor(machine::OpenHostFile(file, O_RDONLY | O_NONBLOCK));
  if (!descriptor) return false;
  struct stat status;
  if (fstat(descriptor.fd, &status) != 0) return machine::FailHost();
  if (!S_ISREG(status.st_mode)) return FailWith(ERROR_ACCESS_DENIED);
  DWORD readError = NO_ERROR;
  const machine::ImageSource source = {static_cast<std::uint64_t>(status.st_size),
                                       [&](std::uint64_t offset, void *buffer, std::size_t size) {
                                         if (ReadFully(descriptor.fd, offset, buffer, size)) return true;
                                         readError = machine::ErrorFromErrno(errno);
                                         return false;
                                       }};
  switch (machine::ReadVersionResource(source, resource)) {
    case machine::VersionResource::kFound:
      return machine::IsVersionTree(*resource) || FailWith(ERROR_INVALID_DATA);
    case machine::VersionResource::kNone:
      return FailWith(ERROR_RESOURCE_DATA_NOT_FOUND);
    case machine::VersionResource::kUnreadable:
      return FailWith(readError);
    case machine::VersionResource::kDamaged:
      break;
  }
  return FailWith(ERROR_INVALID_DATA);
}

}  // namespace

namespace platform {

DWORD GetFileVersionInfoSizeA(const char *file, DWORD *handle) {
  VXR_FAULT(0, ERROR_FILE_NOT_FOUND);
  if (handle != nullptr) *handle = 0;
  std::vector<BYTE> resource;
  return LoadResource(file, &resource) ? static_cast<DWORD>(machine::VersionBlockSize(resource.size())) : 0;
}

BOOL GetFileVersionInfoA(const char *file, DWORD, DWORD size, void *block) {
  VXR_FAULT(FALSE, ERROR_INVALID_DATA);
  if (block == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  if (size < machine::kSmallestVersionBlock) return FailWith(ERROR_INSUFFICIENT_BUFFER);
  std::vector<BYTE> resource;
  if (!LoadResource(file, &resource)) return FALSE;
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
  const DWORD error = machine::QueryVersionBlock(static_cast<const BYTE *>(block), subBlock, &found);
  if (error != NO_ERROR) return FailWith(error);
  // As on Windows the caller gets a pointer that may be written through; nothing here does.
  *value = const_cast<BYTE *>(found.data());
  *length = static_cast<UINT>(found.size());
  return TRUE;
}

}  // namespace platform
