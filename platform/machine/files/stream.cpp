// Buffered standard streams on files that are named by Windows paths.
#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>

#include "platform/machine/base/answer.h"
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
  machine::Descriptor file;
  const machine::Status opened = machine::OpenHostFile(lost ? "/dev/null" : name, flags | O_NONBLOCK, &file);
  if (!opened) return machine::FailWith(opened, nullptr);
  struct stat status = {};
  if (fstat(file.fd, &status) != 0 || !(lost || S_ISREG(status.st_mode))) {
    return machine::FailWith(ERROR_ACCESS_DENIED, nullptr);
  }
  std::FILE *stream = ::fdopen(file.fd, mode);
  if (stream == nullptr) return machine::FailWith(machine::Status::System(), nullptr);
  file.Release();  // the stream's now
  return stream;
}

}  // namespace platform
