#include "platform/machine/host/file_bytes.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/machine/base/file_kind.h"

namespace machine {

std::string ErrnoReason(const std::string &what) { return what + ": " + std::strerror(errno); }

std::string ReadAt(int file, std::uint64_t offset, void *buffer, std::size_t size) {
  auto *at = static_cast<char *>(buffer);
  while (size > 0) {
    const ssize_t got = pread(file, at, size, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return ErrnoReason("cannot be read");
    if (got == 0) return "became shorter while it was read; let nothing else change it";
    at += got;
    offset += static_cast<std::uint64_t>(got);
    size -= static_cast<std::size_t>(got);
  }
  return "";
}

std::string WriteAt(int file, std::uint64_t offset, const void *bytes, std::size_t size) {
  const auto *at = static_cast<const char *>(bytes);
  while (size > 0) {
    const ssize_t put = pwrite(file, at, size, static_cast<off_t>(offset));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return ErrnoReason("cannot be written");
    at += put;
    offset += static_cast<std::uint64_t>(put);
    size -= static_cast<std::size_t>(put);
  }
  return "";
}

std::string RegularFileSize(int file, std::uint64_t *size) {
  struct stat status;
  if (fstat(file, &status) != 0) return ErrnoReason("cannot be read");
  if (!S_ISREG(status.st_mode)) {
    std::error_code unknown;
    return FileKind(std::filesystem::status("/proc/self/fd/" + std::to_string(file), unknown).type());
  }
  *size = static_cast<std::uint64_t>(status.st_size);
  return "";
}

std::string CopyBytes(int file, std::uint64_t size, int to) {
  // Small enough to stay in the processor's cache between the two calls.
  std::vector<char> buffer(std::min<std::uint64_t>(size, 256 << 10));
  for (std::uint64_t at = 0; at < size;) {
    const std::size_t count = std::min<std::uint64_t>(buffer.size(), size - at);
    std::string reason = ReadAt(file, at, buffer.data(), count);
    if (reason.empty()) reason = WriteAt(to, at, buffer.data(), count);
    if (!reason.empty()) return reason;
    at += count;
  }
  return "";
}

std::string MakeMemoryFile(Descriptor *file) {
  *file = Descriptor(memfd_create("hive", MFD_CLOEXEC));
  return *file ? "" : ErrnoReason("cannot be copied into memory");
}

}  // namespace machine
