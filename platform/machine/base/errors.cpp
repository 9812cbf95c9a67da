// The last error, and the one table from errno values to Windows' codes.
#include "platform/machine/base/errors.h"

#include <cerrno>

namespace {

thread_local DWORD lastError = NO_ERROR;

struct ErrorPair {
  int error;
  DWORD code;
};

constexpr ErrorPair kErrors[] = {
    {ENOENT, ERROR_FILE_NOT_FOUND},
    {ENOTDIR, ERROR_PATH_NOT_FOUND},
    {EMFILE, ERROR_TOO_MANY_OPEN_FILES},
    {ENFILE, ERROR_TOO_MANY_OPEN_FILES},
    {EACCES, ERROR_ACCESS_DENIED},
    {EPERM, ERROR_ACCESS_DENIED},
    {EISDIR, ERROR_ACCESS_DENIED},  // Windows denies opening a directory as a file
    {ELOOP, ERROR_ACCESS_DENIED},   // what a path that leaves its drive meets, as does the next
    {EXDEV, ERROR_ACCESS_DENIED},
    {EBADF, ERROR_INVALID_HANDLE},
    {ENOMEM, ERROR_NOT_ENOUGH_MEMORY},
    {EROFS, ERROR_WRITE_PROTECT},
    {ENODEV, ERROR_NOT_READY},
    {ENXIO, ERROR_NOT_READY},
    {ENOMEDIUM, ERROR_NOT_READY},
    {EBUSY, ERROR_SHARING_VIOLATION},
    {ETXTBSY, ERROR_SHARING_VIOLATION},
    {EAGAIN, ERROR_SHARING_VIOLATION},
    {EOPNOTSUPP, ERROR_NOT_SUPPORTED},
    {ENOSYS, ERROR_NOT_SUPPORTED},
    {ENOTTY, ERROR_INVALID_FUNCTION},
    {EINVAL, ERROR_INVALID_PARAMETER},
    {ENOSPC, ERROR_DISK_FULL},
    {EDQUOT, ERROR_DISK_FULL},
    {EILSEQ, ERROR_INVALID_NAME},
    {ENOTEMPTY, ERROR_DIR_NOT_EMPTY},
    {EEXIST, ERROR_ALREADY_EXISTS},
    {ENAMETOOLONG, ERROR_INVALID_NAME},
    {EFBIG, ERROR_FILE_TOO_LARGE},
    {EOVERFLOW, ERROR_FILE_TOO_LARGE},
    {EIO, ERROR_IO_DEVICE},
};

}  // namespace

namespace platform {

DWORD GetLastError() { return lastError; }

void SetLastError(DWORD code) { lastError = code; }

}  // namespace platform

namespace machine {

DWORD ErrorFromErrno(int error) {
  for (const ErrorPair &pair : kErrors) {
    if (pair.error == error) return pair.code;
  }
  return ERROR_GEN_FAILURE;
}

DWORD WindowsError(const Status &status) {
  if (status.error != 0) return ErrorFromErrno(status.error);
  switch (status.kind) {
    case StatusKind::kGood:
      return NO_ERROR;
    case StatusKind::kNotFound:
      return ERROR_FILE_NOT_FOUND;
    case StatusKind::kDamaged:
      return ERROR_BADDB;
    case StatusKind::kUnsupported:
      return ERROR_NOT_SUPPORTED;
    case StatusKind::kInvalid:
      return ERROR_INVALID_PARAMETER;
    case StatusKind::kWindows:
      return status.code;
    default:
      return ERROR_GEN_FAILURE;
  }
}

}  // namespace machine
