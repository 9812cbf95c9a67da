#include "tools/vxr/base/host_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "platform/machine/base/file_kind.h"

namespace {

namespace fs = std::filesystem;

std::FILE *OpenForReading(const std::string &name) {
#ifdef _WIN32
  return ::_wfopen(HostFile(name).c_str(), L"rb");  // the narrow call would not take UTF-8
#else
  const int file = ::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  return file < 0 ? nullptr : ::fdopen(file, "rb");
#endif
}

}  // namespace

OpenedFile OpenRegularFile(const std::string &name, std::uint64_t *size, std::string *reason) {
  OpenedFile file(OpenForReading(name));
  const int error = errno;
#ifdef _WIN32
  struct _stat64 status = {};
  const bool known = file != nullptr && ::_fstat64(::_fileno(file.get()), &status) == 0;
#else
  struct stat status = {};
  const bool known = file != nullptr && ::fstat(::fileno(file.get()), &status) == 0;
#endif
  if (known && (status.st_mode & S_IFMT) == S_IFREG) {
    *size = static_cast<std::uint64_t>(status.st_size);
    return file;
  }
  std::error_code unknown;
  const fs::file_type type = fs::status(HostFile(name), unknown).type();
  const bool other = type != fs::file_type::regular && type != fs::file_type::none;
  *reason = other ? machine::FileKind(type) : std::string("cannot be read: ") + std::strerror(error);
  return nullptr;
}
