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

// One copy under way. The text of what goes wrong is for the observer.
struct Copy {
  const char *source, *target;
  Descriptor from;
  struct stat sourceStatus = {};
  HostPlace place;
  struct stat targetStatus = {};  // of an old target
  bool inPlace = false;
};

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

// A path could not be followed.
Status NotReached(const char *what, const Status &failure) {
  const DWORD error = WindowsError(failure);
  return Status::Windows(error, what + (": " + Describe(error)));
}

Status OpenSource(Copy *copy) {
  // Not waiting, should a pipe be there.
  const Status opened = OpenHostFile(copy->source, O_RDONLY | O_NONBLOCK, &copy->from);
  if (!opened) return NotReached("cannot open the source", opened);
  if (fstat(copy->from.fd, &copy->sourceStatus) != 0) return Status::System("cannot open the source");
  if (S_ISREG(copy->sourceStatus.st_mode)) return {};
  return Status::Windows(ERROR_ACCESS_DENIED, "the source is no file");
}

// Whether an old target may be replaced.
Status CheckOldTarget(Copy *copy, bool failIfExists) {
  if (failIfExists) return Status::Windows(ERROR_FILE_EXISTS, "the target exists");
  if (fstatat(copy->place.directory, copy->place.name.c_str(), &copy->targetStatus, AT_SYMLINK_NOFOLLOW) != 0) {
    return Status::System("cannot examine the target");
  }
  const struct stat &old = copy->targetStatus;
  if (!S_ISREG(old.st_mode)) return Status::Windows(ERROR_ACCESS_DENIED, "the target is no file");
  if (SameInode(old, copy->sourceStatus)) {
    return Status::Windows(ERROR_SHARING_VIOLATION, "source and target are the same file");
  }
  const DWORD attributes = WouldHaveAttributes(old, ReadAttributes(PlaceName(copy->place), old));
  if ((attributes & kProtectingAttributes) == 0) return {};
  return Status::Windows(ERROR_ACCESS_DENIED, "the target is read-only, hidden or a system file");
}

Status FindTarget(Copy *copy, bool failIfExists) {
  const Status located = LocatePlace(copy->target, &copy->place);
  if (!located) return NotReached("cannot reach the target", located);
  if (copy->place.throughLink) {
    // Replacing the link and writing to where it leads would both surprise.
    return SaidAs("the target is a symbolic link", RefusePath(copy->target, "the target of a copy is a symbolic link"));
  }
  return copy->place.exists ? CheckOldTarget(copy, failIfExists) : Status();
}

Status CopyContents(const Copy &copy, int to) {
  constexpr std::size_t kChunk = std::size_t{1} << 30;
  // Inside the kernel as far as that goes; what it does not do is left to the loop, which begins where this ended.
  while (copy_file_range(copy.from.fd, nullptr, to, nullptr, kChunk, 0) > 0) {
  }
  std::array<char, 65536> buffer;
  for (;;) {
    const ssize_t count = read(copy.from.fd, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return Status::System("cannot read the source");
    if (count == 0) return {};
    const Status written = WriteAll(to, buffer.data(), static_cast<std::size_t>(count));
    if (!written) return SaidAs("cannot write the copy", written);
  }
}

// Permissions, attributes and time.
Status FinishNewFile(const Copy &copy, const NewFile &created) {
  const timespec times[2] = {{0, UTIME_NOW}, copy.sourceStatus.st_mtim};
  const std::string sourceName = "/proc/self/fd/" + std::to_string(copy.from.fd);
  const DWORD attributes = ReadAttributes(sourceName, copy.sourceStatus) | FILE_ATTRIBUTE_ARCHIVE;
  const Status taken = copy.place.exists ? TakeOver(created) : Status();
  if (!taken) return SaidAs("cannot give the copy the owner, mode and attributes of the old file", taken);
  const char *const failed = "cannot give the copy its attributes";
  struct stat status = {};
  if (fstat(created.file.fd, &status) != 0) return Status::System(failed);
  const Status written = WriteAttributes(created.HostName(), status, attributes);
  if (!written) return SaidAs(failed, written);
  return futimens(created.file.fd, times) == 0 ? Status() : Status::System(failed);
}

Status Rehearse(const Copy &copy) {
  const auto size = static_cast<std::uint64_t>(copy.sourceStatus.st_size);
  return RehearseNewFile(copy.place.directory, copy.place.name, size);
}

Status Run(Copy *copy, bool failIfExists) {
  if (Status opened = OpenSource(copy); !opened) return opened;
  if (Status found = FindTarget(copy, failIfExists); !found) return found;
  if (Rehearsing()) return Rehearse(*copy);
  NewFile created(copy->place.directory, copy->place.name);
  const Status opened = OpenNewFile(&created, copy->place.exists);
  if (!opened) return SaidAs("cannot write to the target's directory", opened);
  if (Status copied = CopyContents(*copy, created.file.fd); !copied) return copied;
  if (Status finished = FinishNewFile(*copy, created); !finished) return finished;
  Status put = PutInPlace(&created, copy->place.exists);
  copy->inPlace = created.inPlace;
  return put;
}

// The failure that CopyFileA told last, in case the command interpreter meets it again.
std::string g_toldFailure;

void ReportCopy(const Copy &copy, const Status &copied, CopyCaller caller) {
  const std::string reason = Words(copied);
  const std::string failure = copied ? "" : std::string(copy.source) + '\n' + copy.target + '\n' + reason;
  const bool told = !copied && caller == CopyCaller::kCommand && failure == g_toldFailure;
  g_toldFailure = caller == CopyCaller::kCall ? failure : "";
  if (told) return;
  VXRMachine_Event event = {};
  event.kind = copied ? VXRMACHINE_FILE_COPIED : VXRMACHINE_FILE_NOT_COPIED;
  event.subject = copy.target;
  event.detail = copied ? copy.source : reason.c_str();
  event.size =
      copied ? static_cast<std::uint64_t>(copy.sourceStatus.st_size) : (copy.place.exists && !copy.inPlace ? 1 : 0);
  Report(event);
}

}  // namespace

Status CopyWindowsFile(const char *source, const char *target, bool failIfExists, CopyCaller caller) {
  if (Current() == nullptr) return Status::Windows(ERROR_NOT_READY);
  if (source == nullptr || target == nullptr) return Status::Windows(ERROR_INVALID_PARAMETER);
  Copy copy = {};
  copy.source = source;
  copy.target = target;
  Status copied = Run(&copy, failIfExists);
  ReportCopy(copy, copied, caller);
  return copied;
}

}  // namespace machine

namespace platform {

BOOL CopyFileA(const char *source, const char *target, BOOL failIfExists) {
  VXR_FAULT(FALSE, ERROR_ACCESS_DENIED);
  return machine::Finish(machine::CopyWindowsFile(source, target, failIfExists != FALSE, machine::CopyCaller::kCall));
}

}  // namespace platform
