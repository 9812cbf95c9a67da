#include "platform/machine/host/file_bytes.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "platform/machine/base/file_kind.h"

namespace machine {

Status ReadAt(int file, std::uint64_t offset, void *buffer, std::size_t size) {
  auto *at = static_cast<char *>(buffer);
  while (size > 0) {
    const ssize_t got = pread(file, at, size, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return Status::System("cannot be read");
    if (got == 0) return Status::Refused("became shorter while it was read; let nothing else change it");
    at += got;
    offset += static_cast<std::uint64_t>(got);
    size -= static_cast<std::size_t>(got);
  }
  return {};
}

Status WriteAt(int file, std::uint64_t offset, const void *bytes, std::size_t size) {
  const auto *at = static_cast<const char *>(bytes);
  while (size > 0) {
    const ssize_t put = pwrite(file, at, size, static_cast<off_t>(offset));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return Status::System("cannot be written");
    at += put;
    offset += static_cast<std::uint64_t>(put);
    size -= static_cast<std::size_t>(put);
  }
  return {};
}

Status RegularFileSize(int file, std::uint64_t *size) {
  struct stat status;
  if (fstat(file, &status) != 0) return Status::System("cannot be read");
  if (!S_ISREG(status.st_mode)) {
    std::error_code unknown;
    return Status::Refused(FileKind(std::filesystem::status("/proc/self/fd/" + std::to_string(file), unknown).type()));
  }
  *size = static_cast<std::uint64_t>(status.st_size);
  return {};
}

Status CopyBytes(int file, std::uint64_t size, int to) {
  // Small enough to stay in the processor's cache between the two calls.
  std::vector<char> buffer(std::min<std::uint64_t>(size, 256 << 10));
  for (std::uint64_t at = 0; at < size;) {
    const std::size_t count = std::min<std::uint64_t>(buffer.size(), size - at);
    if (Status read = ReadAt(file, at, buffer.data(), count); !read) return read;
    if (Status written = WriteAt(to, at, buffer.data(), count); !written) return written;
    at += count;
  }
  return {};
}

Status MakeMemoryFile(Descriptor *file) {
  *file = Descriptor(memfd_create("hive", MFD_CLOEXEC));
  return *file ? Status() : Status::System("cannot be copied into memory");
}

}  // namespace machine
