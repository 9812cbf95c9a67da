#include "platform/machine/files/copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/errors.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/report.h"
#include "platform/machine/description/current.h"
#include "platform/machine/files/path_syntax.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/host/attributes.h"
#include "platform/machine/host/rehearsal.h"
#include "platform/machine/host/replace_file.h"

namespace machine {
namespace {

// One copy under way; what goes wrong is noted for the observer.
struct Copy {
  const char *source, *target;
  Descriptor from;
  struct stat sourceStatus = {};
  HostPlace place;
  struct stat targetStatus = {};  // of an old target
  bool inPlace = false;
  DWORD error = NO_ERROR;
  std::string reason;
};

bool FailCopy(Copy *copy, DWORD error, std::string reason) {
  copy->error = error;
  copy->reason = std::move(reason);
  return false;
}

bool FailCopy(Copy *copy, const Status &failure) { return FailCopy(copy, WindowsError(failure), Words(failure)); }

bool FailCopyOnHost(Copy *copy, const char *what) { return FailCopy(copy, Status::System(what)); }

std::string Describe(DWORD error) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
      return "there is no such file";
    case ERROR_PATH_NOT_FOUND:
      return "there is no such directory";
    case ERROR_INVALID_NAME:
      return "the name is not one that Windows allows";
    case ERROR_ACCESS_DENIED:
      return "access is denied";
    default:
      return "error " + std::to_string(error);
  }
}

bool OpenSource(Copy *copy) {
  // Not waiting, should a pipe be there.
  copy->from = Descriptor(OpenHostFile(copy->source, O_RDONLY | O_NONBLOCK));
  if (!copy->from) {
    const DWORD error = platform::GetLastError();
    return FailCopy(copy, error, "cannot open the source: " + Describe(error));
  }
  if (fstat(copy->from.fd, &copy->sourceStatus) != 0) return FailCopyOnHost(copy, "cannot open the source");
  if (S_ISREG(copy->sourceStatus.st_mode)) return true;
  return FailCopy(copy, ERROR_ACCESS_DENIED, "the source is no file");
}

// Whether an old target may be replaced.
bool CheckOldTarget(Copy *copy, bool failIfExists) {
  if (failIfExists) return FailCopy(copy, ERROR_FILE_EXISTS, "the target exists");
  if (fstatat(copy->place.directory, copy->place.name.c_str(), &copy->targetStatus, AT_SYMLINK_NOFOLLOW) != 0) {
    return FailCopyOnHost(copy, "cannot examine the target");
  }
  const struct stat &old = copy->targetStatus;
  if (!S_ISREG(old.st_mode)) return FailCopy(copy, ERROR_ACCESS_DENIED, "the target is no file");
  if (old.st_dev == copy->sourceStatus.st_dev && old.st_ino == copy->sourceStatus.st_ino) {
    return FailCopy(copy, ERROR_SHARING_VIOLATION, "source and target are the same file");
  }
  const DWORD attributes = WouldHaveAttributes(old, ReadAttributes(PlaceName(copy->place), old));
  if ((attributes & kProtectingAttributes) == 0) return true;
  return FailCopy(copy, ERROR_ACCESS_DENIED, "the target is read-only, hidden or a system file");
}

bool FindTarget(Copy *copy, bool failIfExists) {
  if (!LocatePlace(copy->target, &copy->place)) {
    const DWORD error = platform::GetLastError();
    return FailCopy(copy, error, "cannot reach the target: " + Describe(error));
  }
  if (copy->place.throughLink) {
    // Replacing the link and writing to where it leads would both surprise.
    RefusePath(copy->target, "the target of a copy is a symbolic link");
    return FailCopy(copy, ERROR_ACCESS_DENIED, "the target is a symbolic link");
  }
  return !copy->place.exists || CheckOldTarget(copy, failIfExists);
}

bool CopyContents(Copy *copy, int to) {
  constexpr std::size_t kChunk = std::size_t{1} << 30;
  // Inside the kernel as far as that goes; what it does not do is left to the loop, which begins where this ended.
  while (copy_file_range(copy->from.fd, nullptr, to, nullptr, kChunk, 0) > 0) {
  }
  std::array<char, 65536> buffer;
  for (;;) {
    const ssize_t count = read(copy->from.fd, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return FailCopyOnHost(copy, "cannot read the source");
    if (count == 0) return true;
    const Status written = WriteAll(to, buffer.data(), static_cast<std::size_t>(count));
    if (!written) return FailCopy(copy, SaidAs("cannot write the copy", written));
  }
}

// Permissions, attributes and time.
bool FinishNewFile(Copy *copy, const NewFile &created) {
  const timespec times[2] = {{0, UTIME_NOW}, copy->sourceStatus.st_mtim};
  const std::string sourceName = "/proc/self/fd/" + std::to_string(copy->from.fd);
  const DWORD attributes = ReadAttributes(sourceName, copy->sourceStatus) | FILE_ATTRIBUTE_ARCHIVE;
  const Status taken = copy->place.exists ? TakeOver(created) : Status();
  if (!taken)
    return FailCopy(copy, SaidAs("cannot give the copy the owner, mode and attributes of the old file", taken));
  const char *const failed = "cannot give the copy its attributes";
  struct stat status = {};
  if (fstat(created.file.fd, &status) != 0) return FailCopyOnHost(copy, failed);
  const Status written = WriteAttributes(created.HostName(), status, attributes);
  if (!written) return FailCopy(copy, SaidAs(failed, written));
  return futimens(created.file.fd, times) == 0 || FailCopyOnHost(copy, failed);
}

// Puts the new file in the target's place.
bool ReplaceTarget(Copy *copy, NewFile *created) {
  const Status put = PutInPlace(created, copy->place.exists);
  copy->inPlace = created->inPlace;
  return put || FailCopy(copy, put);
}

bool Rehearse(Copy *copy) {
  const auto size = static_cast<std::uint64_t>(copy->sourceStatus.st_size);
  const Status would = RehearseNewFile(copy->place.directory, copy->place.name, size);
  return would || FailCopy(copy, would);
}

bool Run(Copy *copy, bool failIfExists) {
  if (!OpenSource(copy) || !FindTarget(copy, failIfExists)) return false;
  if (Rehearsing()) return Rehearse(copy);
  NewFile created(copy->place.directory, copy->place.name);
  const Status opened = OpenNewFile(&created, copy->place.exists);
  if (!opened) return FailCopy(copy, SaidAs("cannot write to the target's directory", opened));
  return CopyContents(copy, created.file.fd) && FinishNewFile(copy, created) && ReplaceTarget(copy, &created);
}

// The failure that CopyFileA told last, in case the command interpreter meets it again.
std::string g_toldFailure;

void ReportCopy(const Copy &copy, bool copied, CopyCaller caller) {
  const std::string failure = copied ? "" : std::string(copy.source) + '\n' + copy.target + '\n' + copy.reason;
  const bool told = !copied && caller == CopyCaller::kCommand && failure == g_toldFailure;
  g_toldFailure = caller == CopyCaller::kCall ? failure : "";
  if (told) return;
  VXRMachine_Event event = {};
  event.kind = copied ? VXRMACHINE_FILE_COPIED : VXRMACHINE_FILE_NOT_COPIED;
  event.subject = copy.target;
  event.detail = copied ? copy.source : copy.reason.c_str();
  event.size =
      copied ? static_cast<std::uint64_t>(copy.sourceStatus.st_size) : (copy.place.exists && !copy.inPlace ? 1 : 0);
  Report(event);
}

}  // namespace

bool CopyWindowsFile(const char *source, const char *target, bool failIfExists, CopyCaller caller) {
  if (CurrentOrNotReady() == nullptr) return false;
  if (source == nullptr || target == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  Copy copy = {};
  copy.source = source;
  copy.target = target;
  const bool copied = Run(&copy, failIfExists);
  ReportCopy(copy, copied, caller);
  if (!copied) platform::SetLastError(copy.error);
  return copied;
}

}  // namespace machine

namespace platform {

BOOL CopyFileA(const char *source, const char *target, BOOL failIfExists) {
  VXR_FAULT(FALSE, ERROR_ACCESS_DENIED);
  return machine::CopyWindowsFile(source, target, failIfExists != FALSE, machine::CopyCaller::kCall);
}

}  // namespace platform
