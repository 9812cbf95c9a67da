#include "platform/machine/files/paths.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <deque>
#include <filesystem>
#include <map>
#include <vector>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/errors.h"
#include "platform/machine/description/records.h"
#include "platform/machine/files/path_syntax.h"
#include "platform/machine/files/storage.h"
#include "platform/machine/host/listing.h"
#include "platform/machine/host/rehearsal.h"
#include "vxrcore/machine.h"

namespace machine {
namespace {

constexpr unsigned kLongestLinkChain = 40;  // the kernel's own limit

struct OpenDrive {
  std::filesystem::path path;
  Descriptor directory;
};

std::map<char, OpenDrive> g_drives;

// The directory that was located last. A search goes through the files of one directory: each is then found by one
// system call. Its path is trusted for a moment only, since a directory may be renamed and another take its place.
struct RecentDirectory {
  int root = -1;
  std::vector<std::string> names;  // from the drive's root
  std::shared_ptr<const Descriptor> directory;
  std::int64_t since = 0;  // milliseconds
};

constexpr std::int64_t kTrustedFor = 500;  // milliseconds

RecentDirectory g_recent;

std::int64_t Now() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// The drive's directory, opened once; -1 with the last error set.
int DriveDirectory(char letter) {
  const Drive *drive = FindDrive(letter);
  if (drive == nullptr || drive->path.empty()) return FailWith(ERROR_PATH_NOT_FOUND, -1);
  OpenDrive &open = g_drives[letter];
  if (open.directory && open.path == drive->path) return open.directory.fd;
  g_recent = {};
  open.directory = Descriptor(::open(drive->path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  open.path = drive->path;
  if (!open.directory) platform::SetLastError(errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno));
  return open.directory.fd;
}

// One call that follows `relative` exactly and cannot leave `root`. Fails where the system has no such call, too:
// whoever calls this goes on by hand then.
Descriptor OpenBelow(int root, const std::string &relative, int flags) {
  open_how how = {};
  how.flags = static_cast<unsigned>(flags | O_CLOEXEC);
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
  return Descriptor(static_cast<int>(syscall(SYS_openat2, root, relative.c_str(), &how, sizeof how)));
}

std::string JoinNames(const std::vector<std::string> &names, std::size_t count) {
  std::string joined;
  for (std::size_t i = 0; i < count; ++i) {
    if (i != 0) joined += '/';
    joined += names[i];
  }
  return joined.empty() ? "." : joined;
}

// Looks `name` up in an open directory, first exactly, then without regard to case, and spells it as on disk. A link is
// not followed. False with errno set.
bool StatName(int directory, std::string *name, struct stat *status) {
  if (fstatat(directory, name->c_str(), status, AT_SYMLINK_NOFOLLOW) == 0) return true;
  if (errno != ENOENT) return false;
  const std::string spelled = FindNameNoCase(directory, *name);
  if (spelled.empty()) {
    errno = ENOENT;
    return false;
  }
  *name = spelled;
  return fstatat(directory, name->c_str(), status, AT_SYMLINK_NOFOLLOW) == 0;
}

// Puts what was found into the place, which takes the directory over; `status` is null when nothing exists there.
bool FillPlace(std::shared_ptr<const Descriptor> directory, std::string name, const struct stat *status,
               HostPlace *place) {
  place->directory = directory->fd;
  place->owner = std::move(directory);
  place->name = std::move(name);
  place->exists = status != nullptr;
  if (status != nullptr) place->status = *status;
  return true;
}

// The same for a directory that is needed further on.
bool FillPlaceKeeping(int directory, std::string name, const struct stat *status, HostPlace *place) {
  Descriptor own(fcntl(directory, F_DUPFD_CLOEXEC, 0));
  if (!own) return FailHost();
  return FillPlace(std::make_shared<const Descriptor>(std::move(own)), std::move(name), status, place);
}

// The walk from a drive's root, name by name, that follows links itself.
struct Walk {
  const char *path;  // the Windows path, for the observer
  int root;
  bool directory;  // the path ends in a separator
  std::deque<std::string> names;
  std::vector<Descriptor> below;  // the directories from the root to the current one
  unsigned links = 0;
};

// Puts what a link holds in front of the names to come.
bool FollowLink(Walk *walk, int directory, const std::string &name) {
  std::array<char, 4096> target;
  const ssize_t length = readlinkat(directory, name.c_str(), target.data(), target.size());
  if (length < 0) return FailHost();
  std::string_view rest(target.data(), static_cast<std::size_t>(length));
  if (rest.starts_with('/')) return RefusePath(walk->path, "the symbolic link \"" + name + "\" leads out of the drive");
  if (++walk->links > kLongestLinkChain || rest.size() == target.size()) {
    return RefusePath(walk->path, "the symbolic link \"" + name + "\" leads in a circle or too far");
  }
  std::vector<std::string> names;
  while (!rest.empty()) {
    const std::string_view one = rest.substr(0, rest.find('/'));
    rest.remove_prefix(std::min(rest.size(), one.size() + 1));
    if (!one.empty() && one != ".") names.emplace_back(one);
  }
  walk->names.insert(walk->names.begin(), names.begin(), names.end());
  return true;
}

bool EnterDirectory(Walk *walk, int directory, const std::string &name) {
  Descriptor next(openat(directory, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!next) return FailWith(errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno));
  walk->below.push_back(std::move(next));
  return true;
}

bool WalkToPlace(Walk *walk, HostPlace *place) {
  while (!walk->names.empty()) {
    std::string name = std::move(walk->names.front());
    walk->names.pop_front();
    if (name == "..") {  // out of a link: the path's own are gone
      if (walk->below.empty()) return RefusePath(walk->path, "a symbolic link leads out of the drive");
      walk->below.pop_back();
      continue;
    }
    const int current = walk->below.empty() ? walk->root : walk->below.back().fd;
    const bool last = walk->names.empty();
    struct stat status = {};
    if (!StatName(current, &name, &status)) {
      if (errno != ENOENT) return FailHost();
      if (!last && walk->names.front() != ".." && WouldBeDirectory(current, name)) {
        walk->names.front().insert(0, name + '/');
        continue;
      }
      return last ? FillPlaceKeeping(current, std::move(name), nullptr, place) : FailWith(ERROR_PATH_NOT_FOUND);
    }
    if (S_ISLNK(status.st_mode)) {
      if (!FollowLink(walk, current, name)) return false;
      if (last) place->throughLink = true;
    } else if (last) {
      if (walk->directory && !S_ISDIR(status.st_mode)) return FailWith(ERROR_INVALID_NAME);
      return FillPlaceKeeping(current, std::move(name), &status, place);
    } else if (!EnterDirectory(walk, current, name)) {
      return false;
    }
  }
  const int current = walk->below.empty() ? walk->root : walk->below.back().fd;
  struct stat status = {};
  if (fstat(current, &status) != 0) return FailHost();
  return FillPlaceKeeping(current, ".", &status, place);
}

// A name that exists as spelled, and is no link, in the directory that was located last.
bool LocateInRecent(int root, const WindowsPath &path, HostPlace *place) {
  if (g_recent.root != root || g_recent.names.size() + 1 != path.names.size() || Now() - g_recent.since > kTrustedFor ||
      !std::equal(g_recent.names.begin(), g_recent.names.end(), path.names.begin())) {
    return false;
  }
  struct stat status = {};
  if (fstatat(g_recent.directory->fd, path.names.back().c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
  return !S_ISLNK(status.st_mode) && FillPlace(g_recent.directory, path.names.back(), &status, place);
}

// The usual case without a walk: the directory exists as spelled, and the last name is no link. False, with nothing
// filled in, in any other.
bool LocateAtOnce(int root, const WindowsPath &path, HostPlace *place) {
  if (path.names.empty() || path.directory) return false;
  if (LocateInRecent(root, path, place)) return true;
  Descriptor opened = OpenBelow(root, JoinNames(path.names, path.names.size() - 1), O_PATH | O_DIRECTORY);
  if (!opened) return false;
  const auto directory = std::make_shared<const Descriptor>(std::move(opened));
  std::string name = path.names.back();
  struct stat status = {};
  const bool exists = StatName(directory->fd, &name, &status);
  if (exists ? S_ISLNK(status.st_mode) : errno != ENOENT) return false;
  g_recent = {root, {path.names.begin(), path.names.end() - 1}, directory, Now()};
  return FillPlace(directory, std::move(name), exists ? &status : nullptr, place);
}

bool LocateOnDrive(const char *windowsPath, const WindowsPath &path, HostPlace *place) {
  const int root = DriveDirectory(path.drive);
  if (root < 0) return false;
  if (LocateAtOnce(root, path, place)) return true;
  Walk walk = {windowsPath, root, path.directory, {path.names.begin(), path.names.end()}, {}, 0};
  return WalkToPlace(&walk, place);
}

bool LocateOnHost(const std::string &path, HostPlace *place) {
  std::error_code failure;
  std::filesystem::path resolved = std::filesystem::weakly_canonical(path, failure);
  if (failure) return FailWith(ErrorFromErrno(failure.value()));
  if (!resolved.has_filename() && resolved.has_relative_path()) resolved = resolved.parent_path();
  const auto directory =
      std::make_shared<const Descriptor>(open(resolved.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!*directory) return FailWith(errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno));
  const std::string name = resolved.has_filename() ? resolved.filename().string() : ".";
  struct stat status = {};
  const bool exists = fstatat(directory->fd, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  if (!exists && errno != ENOENT) return FailHost();
  return FillPlace(directory, name, exists ? &status : nullptr, place);
}

bool Locate(const char *windowsPath, const WindowsPath &path, HostPlace *place) {
  *place = {};
  if (!path.pattern.empty()) return FailWith(ERROR_INVALID_NAME);
  return path.host.empty() ? LocateOnDrive(windowsPath, path, place) : LocateOnHost(path.host, place);
}

// As Locate and open(2), by one call where that is enough.
Descriptor OpenExact(const WindowsPath &path, int flags) {
  if ((flags & O_CREAT) != 0 || !path.pattern.empty() || path.directory) return {};
  if (!path.host.empty()) return Descriptor(open(path.host.c_str(), flags | O_CLOEXEC));
  const int root = DriveDirectory(path.drive);
  return root < 0 ? Descriptor() : OpenBelow(root, JoinNames(path.names, path.names.size()), flags);
}

}  // namespace

bool LocatePlace(const char *windowsPath, HostPlace *place) {
  WindowsPath path;
  *place = {};
  return ParseWindowsPath(windowsPath, &path) && Locate(windowsPath, path, place);
}

int OpenHostFile(const char *windowsPath, int flags, mode_t mode) {
  WindowsPath path;
  if (!ParseWindowsPath(windowsPath, &path)) return -1;
  Descriptor file = OpenExact(path, flags);
  if (file) return file.Release();
  HostPlace place;
  if (!Locate(windowsPath, path, &place)) return -1;
  // The place has all links behind it. A link under its name now was put there since, and could lead anywhere: it is
  // refused.
  const int opened = openat(place.directory, place.name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, mode);
  if (opened < 0) platform::SetLastError(ErrorFromErrno(errno));
  return opened;
}

int OpenHostDirectory(const char *windowsPath) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY;
  WindowsPath path;
  if (!ParseWindowsPath(windowsPath, &path)) return -1;
  path.directory = false;
  Descriptor directory = OpenExact(path, kFlags);
  if (directory) return directory.Release();
  HostPlace place;
  if (!Locate(windowsPath, path, &place)) return -1;
  const int opened = openat(place.directory, place.name.c_str(), kFlags | O_NOFOLLOW | O_CLOEXEC);
  if (opened >= 0) return opened;
  const DWORD error = errno == ENOTDIR ? ERROR_DIRECTORY : ErrorFromErrno(errno);
  platform::SetLastError(place.exists ? error : ERROR_PATH_NOT_FOUND);
  return -1;
}

std::string PlaceName(int directory, const std::string &name) {
  return "/proc/self/fd/" + std::to_string(directory) + "/" + name;
}

void ClosePaths() {
  g_recent = {};
  g_drives.clear();
  ForgetListings();
}

}  // namespace machine

int32_t VXRMachine_HostPath(const char *path, char *hostPath, uint32_t hostPathSize) {
  if (hostPathSize == 0) return FALSE;
  hostPath[0] = '\0';
  machine::HostPlace place;
  if (!machine::LocatePlace(path, &place)) return FALSE;
  std::error_code failure;
  const std::filesystem::path directory =
      std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(place.directory), failure);
  const std::string found = (directory / place.name).string();
  if (failure || found.size() >= hostPathSize) return FALSE;
  std::copy_n(found.c_str(), found.size() + 1, hostPath);
  return TRUE;
}
