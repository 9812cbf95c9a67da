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

#include "platform/machine/base/descriptor.h"
#include "platform/machine/description/records.h"
#include "platform/machine/files/path_syntax.h"
#include "platform/machine/files/storage.h"
#include "platform/machine/host/listing.h"
#include "platform/machine/host/rehearsal.h"
#include "vxrcore/machine.h"

namespace machine {
namespace {

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

// Why a directory on the way could not be opened, by errno.
Status NoDirectory() { return errno == ENOENT ? Status::Windows(ERROR_PATH_NOT_FOUND) : Status::System(); }

// The drive's directory, opened once.
Status DriveDirectory(char letter, int *root) {
  const Drive *drive = FindDrive(letter);
  if (drive == nullptr || drive->path.empty()) return Status::Windows(ERROR_PATH_NOT_FOUND);
  OpenDrive &open = g_drives[letter];
  if (!open.directory || open.path != drive->path) {
    g_recent = {};
    open.directory = Descriptor(::open(drive->path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    open.path = drive->path;
    if (!open.directory) return NoDirectory();
  }
  *root = open.directory.fd;
  return {};
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
// not followed.
Status StatName(int directory, std::string *name, struct stat *status) {
  if (fstatat(directory, name->c_str(), status, AT_SYMLINK_NOFOLLOW) == 0) return {};
  if (errno != ENOENT) return Status::System();
  const std::string spelled = FindNameNoCase(directory, *name);
  if (spelled.empty()) return Status::System({}, ENOENT);
  *name = spelled;
  return fstatat(directory, name->c_str(), status, AT_SYMLINK_NOFOLLOW) == 0 ? Status() : Status::System();
}

// Puts what was found into the place, which takes the directory over; `status` is null when nothing exists there.
void FillPlace(std::shared_ptr<const Descriptor> directory, std::string name, const struct stat *status,
               HostPlace *place) {
  place->directory = directory->fd;
  place->owner = std::move(directory);
  place->name = std::move(name);
  place->exists = status != nullptr;
  if (status != nullptr) place->status = *status;
}

// The same for a directory that is needed further on.
Status FillPlaceKeeping(int directory, std::string name, const struct stat *status, HostPlace *place) {
  Descriptor own(fcntl(directory, F_DUPFD_CLOEXEC, 0));
  if (!own) return Status::System();
  FillPlace(std::make_shared<const Descriptor>(std::move(own)), std::move(name), status, place);
  return {};
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
Status FollowLink(Walk *walk, int directory, const std::string &name) {
  std::array<char, 4096> target;
  const ssize_t length = readlinkat(directory, name.c_str(), target.data(), target.size());
  if (length < 0) return Status::System();
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
  return {};
}

Status EnterDirectory(Walk *walk, int directory, const std::string &name) {
  Descriptor next(openat(directory, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!next) return NoDirectory();
  walk->below.push_back(std::move(next));
  return {};
}

Status WalkToPlace(Walk *walk, HostPlace *place) {
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
    if (Status found = StatName(current, &name, &status); !found) {
      if (found.error != ENOENT) return found;
      if (!last && walk->names.front() != ".." && WouldBeDirectory(current, name)) {
        walk->names.front().insert(0, name + '/');
        continue;
      }
      return last ? FillPlaceKeeping(current, std::move(name), nullptr, place) : Status::Windows(ERROR_PATH_NOT_FOUND);
    }
    if (S_ISLNK(status.st_mode)) {
      if (Status followed = FollowLink(walk, current, name); !followed) return followed;
      if (last) place->throughLink = true;
    } else if (last) {
      if (walk->directory && !S_ISDIR(status.st_mode)) return Status::Windows(ERROR_INVALID_NAME);
      return FillPlaceKeeping(current, std::move(name), &status, place);
    } else if (Status entered = EnterDirectory(walk, current, name); !entered) {
      return entered;
    }
  }
  const int current = walk->below.empty() ? walk->root : walk->below.back().fd;
  struct stat status = {};
  if (fstat(current, &status) != 0) return Status::System();
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
  if (S_ISLNK(status.st_mode)) return false;
  FillPlace(g_recent.directory, path.names.back(), &status, place);
  return true;
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
  const Status found = StatName(directory->fd, &name, &status);
  if (found ? S_ISLNK(status.st_mode) : found.error != ENOENT) return false;
  g_recent = {root, {path.names.begin(), path.names.end() - 1}, directory, Now()};
  FillPlace(directory, std::move(name), found ? &status : nullptr, place);
  return true;
}

Status LocateOnDrive(const char *windowsPath, const WindowsPath &path, HostPlace *place) {
  int root = -1;
  if (Status opened = DriveDirectory(path.drive, &root); !opened) return opened;
  if (LocateAtOnce(root, path, place)) return {};
  Walk walk = {windowsPath, root, path.directory, {path.names.begin(), path.names.end()}, {}, 0};
  return WalkToPlace(&walk, place);
}

Status LocateOnHost(const std::string &path, HostPlace *place) {
  std::error_code failure;
  std::filesystem::path resolved = std::filesystem::weakly_canonical(path, failure);
  if (failure) return Status::System({}, failure.value());
  if (!resolved.has_filename() && resolved.has_relative_path()) resolved = resolved.parent_path();
  const auto directory =
      std::make_shared<const Descriptor>(open(resolved.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!*directory) return NoDirectory();
  const std::string name = resolved.has_filename() ? resolved.filename().string() : ".";
  struct stat status = {};
  const bool exists = fstatat(directory->fd, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  if (!exists && errno != ENOENT) return Status::System();
  FillPlace(directory, name, exists ? &status : nullptr, place);
  return {};
}

Status Locate(const char *windowsPath, const WindowsPath &path, HostPlace *place) {
  *place = {};
  if (!path.pattern.empty()) return Status::Windows(ERROR_INVALID_NAME);
  return path.host.empty() ? LocateOnDrive(windowsPath, path, place) : LocateOnHost(path.host, place);
}

// As Locate and open(2), by one call where that is enough.
Descriptor OpenExact(const WindowsPath &path, int flags) {
  if ((flags & O_CREAT) != 0 || !path.pattern.empty() || path.directory) return {};
  if (!path.host.empty()) return Descriptor(open(path.host.c_str(), flags | O_CLOEXEC));
  int root = -1;
  if (!DriveDirectory(path.drive, &root)) return {};
  return OpenBelow(root, JoinNames(path.names, path.names.size()), flags);
}

}  // namespace

Status LocatePlace(const char *windowsPath, HostPlace *place) {
  WindowsPath path;
  *place = {};
  Status parsed = ParseWindowsPath(windowsPath, &path);
  return parsed ? Locate(windowsPath, path, place) : parsed;
}

Status OpenHostFile(const char *windowsPath, int flags, Descriptor *file) {
  WindowsPath path;
  if (Status parsed = ParseWindowsPath(windowsPath, &path); !parsed) return parsed;
  *file = OpenExact(path, flags);
  if (*file) return {};
  HostPlace place;
  if (Status located = Locate(windowsPath, path, &place); !located) return located;
  // The place has all links behind it. A link under its name now was put there since, and could lead anywhere: it is
  // refused.
  *file = Descriptor(openat(place.directory, place.name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, 0644));
  return *file ? Status() : Status::System();
}

Status OpenHostDirectory(const char *windowsPath, Descriptor *directory) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY;
  WindowsPath path;
  if (Status parsed = ParseWindowsPath(windowsPath, &path); !parsed) return parsed;
  path.directory = false;
  *directory = OpenExact(path, kFlags);
  if (*directory) return {};
  HostPlace place;
  if (Status located = Locate(windowsPath, path, &place); !located) return located;
  *directory = Descriptor(openat(place.directory, place.name.c_str(), kFlags | O_NOFOLLOW | O_CLOEXEC));
  if (*directory) return {};
  if (!place.exists) return Status::Windows(ERROR_PATH_NOT_FOUND);
  return errno == ENOTDIR ? Status::Windows(ERROR_DIRECTORY) : Status::System();
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
