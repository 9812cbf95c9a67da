// Where Windows is below a directory that somebody named, or why it is not there.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/file_kind.h"
#include "platform/text/ansi_case.h"
#include "platform/text/shell_word.h"
#include "rescue/disk_names.h"
#include "rescue/ntfs_volume.h"
#include "rescue/restored_system.h"

namespace rescue {
namespace {

namespace fs = std::filesystem;
using machine::Status;

bool IsWindows(const fs::path &directory) { return !FindBelow(directory, {"system32", "config", "SYSTEM"}).empty(); }

// "Windows.old", "Windows.old.000": where setup puts away the system that was there before.
bool HoldsOldWindows(const fs::path &directory) {
  constexpr std::string_view kOld = "windows.old";
  return machine::SameUtf8(directory.filename().string().substr(0, kOld.size()), kOld);
}

// --- The directory that was named ------------------------------------------------------------------------------------

std::string NotMounted(const fs::path &root, fs::file_type type) {
  const std::string name = root.string(), word = machine::ShellWord(name);
  VolumeHead head;
  const Status read = ReadVolumeHead(root, &head);
  if (head.kind == VolumeKind::kEncrypted) {
    return name + " is an encrypted volume; unlock it first (cryptsetup open --type bitlk " + word +
           " NAME), mount what that gives, then name the directory where it is mounted";
  }
  if (type == fs::file_type::block) {
    return name + " is a block device; mount it (mount " + word + " /mnt), then name the directory: /mnt";
  }
  if (type == fs::file_type::regular && (head.bootable || head.kind == VolumeKind::kNtfs)) {
    return name + " is the image of a disk or volume; attach it (losetup -P -f --show " + word +
           "), mount the partition that holds Windows, then name the directory where it is mounted";
  }
  return name + " " + machine::FileKind(type) + "; name the directory where the restored Windows is mounted";
}

// The directory by its full name without links.
Status ResolveRoot(const fs::path &root, fs::path *place) {
  std::error_code error;
  *place = fs::canonical(root, error);
  const fs::file_type type = error ? fs::file_type::none : fs::status(*place, error).type();
  if (error == std::errc::no_such_file_or_directory) {
    return Status::Refused(root.string() + " does not exist; correct the path");
  }
  if (!error && type != fs::file_type::directory) return Status::Refused(NotMounted(root, type));
  if (!error && access(place->c_str(), R_OK | X_OK) == 0) return {};
  const int cause = error ? error.value() : errno;
  const std::string remedy = cause == EACCES ? "; run as root" : "";
  return Status::Refused(root.string() + " cannot be read: " + std::strerror(cause) + remedy, cause);
}

// --- No Windows ------------------------------------------------------------------------------------------------------

// Why a directory may hold none, and what to name instead; empty when nothing tells.
std::string WhyNone(const fs::path &place) {
  std::vector<std::string> names = ListNames(place);
  std::erase_if(names, [](const std::string &name) { return name == "lost+found"; });
  const auto has = [&](std::string_view name) {
    return std::any_of(names.begin(), names.end(), [&](const auto &each) { return machine::SameUtf8(each, name); });
  };
  constexpr char kOther[] = "; mount the volume that holds Windows and name that";
  if (names.empty()) return std::string("It is empty: nothing is mounted there, or nothing was restored");
  for (fs::path above = place; above.has_relative_path(); above = above.parent_path()) {
    if (IsWindows(above.parent_path()))
      return "It lies inside a Windows directory: name " + machine::ShellWord(above.parent_path().string());
  }
  if (has("etc") && has("usr")) return std::string("It is the root of another system, such as Linux") + kOther;
  for (const std::string &name : names) {
    if (FindBelow(place, {name.c_str(), "system32"}).empty()) continue;
    return name + " has a system32 directory but no config/SYSTEM in it: restore the registry hives too";
  }
  for (const char *windows : {"Windows", "WINNT"}) {
    struct stat status;
    if (lstat((place / windows).c_str(), &status) != 0) continue;
    if (S_ISLNK(status.st_mode)) return std::string(windows) + " is a link, which is not followed: name where it leads";
    if (access((place / windows).c_str(), R_OK | X_OK) != 0) {
      return std::string(windows) + " cannot be read: " + std::strerror(errno) + "; run as root";
    }
  }
  if (has("EFI")) return std::string("It is an EFI system partition") + kOther;
  if (has("bootmgr") || has("ntldr")) return std::string("It is the partition that Windows is started from") + kOther;
  if (has("Recovery")) return std::string("It is a recovery partition") + kOther;
  return "";
}

// --- What was found --------------------------------------------------------------------------------------------------

struct Candidates {
  std::vector<fs::path> current, old;
};

// Directories of the same file system only: another volume that is mounted inside is not what was named.
bool IsCandidate(const fs::path &directory, dev_t device) {
  struct stat status;
  return lstat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_dev == device &&
         IsWindows(directory);
}

Candidates ListCandidates(const fs::path &place) {
  Candidates found;
  struct stat status;
  if (stat(place.c_str(), &status) != 0) return found;
  for (const std::string &name : ListNames(place)) {
    const fs::path directory = place / name;
    if (IsCandidate(directory, status.st_dev)) found.current.push_back(directory);
    if (!HoldsOldWindows(directory) || fs::is_symlink(directory)) continue;
    for (const std::string &below : ListNames(directory)) {
      if (IsCandidate(directory / below, status.st_dev)) found.old.push_back(directory / below);
    }
  }
  return found;
}

Status RefuseSeveral(const fs::path &root, const std::vector<fs::path> &found) {
  std::string names;
  for (const fs::path &each : found) names += (names.empty() ? "" : ", ") + each.filename().string();
  return Status::Refused(root.string() + " holds more than one Windows (" + names +
                         "); name one of them: " + machine::ShellWord(found.front().string()));
}

Status TakeWindows(const fs::path &volume, const fs::path &windows, RestoredSystem *system) {
  system->volume = volume;
  system->windows = windows;
  system->system32 = FindBelow(windows, {"system32"});
  system->systemHive = FindBelow(windows, {"system32", "config", "SYSTEM"});
  system->softwareHive = FindBelow(windows, {"system32", "config", "SOFTWARE"});
  if (system->softwareHive.empty()) system->softwareHive = system->systemHive.parent_path() / "SOFTWARE";
  return {};
}

// The root is a Windows directory itself. What else matters, such as the hibernation file, lies in its volume's root.
Status TakeNamed(const fs::path &windows, RestoredSystem *system) {
  const bool old = HoldsOldWindows(windows.parent_path());
  const fs::path volume = old ? windows.parent_path().parent_path() : windows.parent_path();
  struct stat inside, outside;
  if (stat(windows.c_str(), &inside) != 0 || stat(volume.c_str(), &outside) != 0) {
    return Status::System(windows.string() + " cannot be read");
  }
  if (inside.st_dev != outside.st_dev || machine::SameInode(inside, outside)) {
    return Status::Refused(windows.string() +
                           " is a Windows directory that is mounted alone, without the rest of its volume; mount the "
                           "whole volume and name that");
  }
  if (old) system->doubts.push_back(windows.string() + " is an earlier installation, which does not start from there");
  return TakeWindows(volume, windows, system);
}

}  // namespace

Status FindWindows(const fs::path &root, RestoredSystem *system) {
  *system = {};
  fs::path place;
  if (Status resolved = ResolveRoot(root, &place); !resolved) return resolved;
  if (IsWindows(place)) return TakeNamed(place, system);
  const Candidates found = ListCandidates(place);
  if (found.current.size() > 1) return RefuseSeveral(root, found.current);
  if (!found.current.empty() && HoldsOldWindows(place)) return TakeNamed(found.current.front(), system);
  if (!found.current.empty()) {
    for (const fs::path &old : found.old) {
      system->doubts.push_back(old.string() + " is an earlier installation, and stays as it is");
    }
    return TakeWindows(place, found.current.front(), system);
  }
  if (!found.old.empty()) {
    return Status::Refused(root.string() + " holds no Windows but an earlier installation, which does not start from " +
                           "there; move it back, or name it: " + machine::ShellWord(found.old.front().string()));
  }
  const std::string why = WhyNone(place);
  return Status::Refused(root.string() + " holds no Windows: no directory in it has system32/config/SYSTEM" +
                         (why.empty() ? "; name the directory where the restored Windows is mounted" : ". " + why));
}

}  // namespace rescue
