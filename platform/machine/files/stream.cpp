// Buffered standard streams on files that are named by Windows paths.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/errors.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/host/rehearsal.h"
#include "platform/platform.h"

namespace {

// The open(2) flags of a stream mode, or -1 for one that is none.
int OpenFlags(const char *mode) {
  const int access = std::strchr(mode, '+') != nullptr ? O_RDWR : (mode[0] == 'r' ? O_RDONLY : O_WRONLY);
  switch (mode[0]) {
    case 'r':
      return access;
    case 'w':
      return access | O_CREAT | O_TRUNC;
    case 'a':
      return access | O_CREAT | O_APPEND;
    default:
      return -1;
  }
}

}  // namespace

namespace platform {

std::FILE *OpenStream(const char *name, const char *mode) {
  VXR_FAULT(nullptr, ERROR_ACCESS_DENIED);
  const int flags = OpenFlags(mode);
  if (flags < 0) return machine::FailWith(ERROR_INVALID_PARAMETER, nullptr);
  // In a rehearsal what is written goes nowhere.
  const bool lost = machine::Rehearsing() && (flags & O_ACCMODE) != O_RDONLY;
  const int descriptor = machine::OpenHostFile(lost ? "/dev/null" : name, flags | O_NONBLOCK);
  if (descriptor < 0) return nullptr;
  struct stat status = {};
  if (fstat(descriptor, &status) != 0 || !(lost || S_ISREG(status.st_mode))) {
    SetLastError(ERROR_ACCESS_DENIED);
    ::close(descriptor);
    return nullptr;
  }
  std::FILE *stream = ::fdopen(descriptor, mode);
  if (stream == nullptr) {
    SetLastError(machine::ErrorFromErrno(errno));
    ::close(descriptor);
  }
  return stream;
}

}  // namespace platform
