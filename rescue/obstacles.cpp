#include "rescue/obstacles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>

#include "platform/machine/hive/hive.h"
#include "platform/text/ansi_case.h"
#include "platform/text/shell_word.h"
#include "rescue/disk_names.h"
#include "rescue/hibernation.h"
#include "rescue/ntfs_volume.h"
#include "rescue/system_files.h"
#include "rescue/undo.h"

namespace rescue {

std::string StoppedInjection(const RestoredSystem &system) {
  const std::filesystem::path folder = FindStopped(system.windows);
  if (folder.empty()) return "";
  return "An earlier injection was stopped half-way; take it back first: vxr undo " +
         machine::ShellWord(folder.string());
}

namespace {

namespace fs = std::filesystem;
using Obstacles = std::vector<Obstacle>;

// --- What the system says of itself ----------------------------------------------------------------------------------

void CheckHibernation(const RestoredSystem &system, Obstacles *obstacles) {
  bool kept = false;
  if (const machine::Status found = FindHibernation(system, &kept); !found) {
    obstacles->push_back(
        {"hibernated", Words(found) + "; it may hold a hibernated system: make it readable first", false, ""});
  }
  if (!kept) return;
  obstacles->push_back(
      {"hibernated",
       "This Windows is hibernated, or was shut down with fast startup (hiberfil.sys says so), and would write what it "
       "remembers over the change; start it and shut it down fully (shutdown /s /f /t 0, or hold Shift while choosing "
       "Shut down), or remove the file (mount with ntfs-3g -o remove_hiberfile)",
       true, "Memory that was saved with the session, and what was not yet written to the disk,"});
}

void CheckHive(const RestoredSystem &system, Obstacles *obstacles) {
  machine::Hive hive;
  const machine::Status opened = OpenHiveFile(&hive, system.systemHive, machine::HiveUse::kLook);
  if (opened) return;
  const bool dirty = hive.head.checksumRight && hive.head.primary != hive.head.secondary;
  obstacles->push_back({dirty ? "dirty-hive" : "unusable-hive",
                        system.systemHive.string() + " " + RestoredHiveWords(opened), false, ""});
}

// Not looked for while a run is at work.
void CheckStopped(const RestoredSystem &system, Obstacles *obstacles) {
  machine::Descriptor lock;
  if (!LockWindows(system.windows, &lock, true)) return;
  if (const std::string stopped = StoppedInjection(system); !stopped.empty()) {
    obstacles->push_back({"stopped-injection", stopped, false, ""});
  }
}

// Windows sees one of two names that differ in case alone, and nobody can tell which.
void CheckNames(const fs::path &directory, std::initializer_list<std::string_view> used, Obstacles *obstacles) {
  if (directory.empty()) return;
  const std::vector<std::string> names = ListNames(directory);
  for (const std::string_view name : used) {
    std::string spellings;
    unsigned count = 0;
    for (const std::string &each : names) {
      if (!machine::SameUtf8(each, name)) continue;
      spellings += (count++ == 0 ? "" : " and ") + each;
    }
    if (count < 2) continue;
    obstacles->push_back(
        {"double-name",
         directory.string() + " has " + spellings + ", which are one name to Windows; move all but the right one away",
         false, ""});
  }
}

void CheckAllNames(const RestoredSystem &system, Obstacles *obstacles) {
  const std::string windows = system.windows.filename().string();
  CheckNames(system.windows.parent_path(), {windows}, obstacles);
  CheckNames(system.windows, {"System32", "INF", "vxr-undo"}, obstacles);
  CheckNames(system.system32, {"config", "drivers", "DriverStore", "ntoskrnl.exe"}, obstacles);
  CheckNames(system.systemHive.parent_path(),
             {"SYSTEM", "SYSTEM.LOG", "SYSTEM.LOG1", "SYSTEM.LOG2", "SOFTWARE", "SOFTWARE.LOG", "SOFTWARE.LOG1",
              "SOFTWARE.LOG2"},
             obstacles);
  CheckNames(FindBelow(system.system32, {"DriverStore"}), {"FileRepository"}, obstacles);
}

// --- What this machine lets be done ----------------------------------------------------------------------------------

bool IsReadOnly(const RestoredSystem &system, const Mount *mount) {
  struct statvfs volume;
  return (mount != nullptr && mount->readOnly) ||
         (statvfs(system.windows.c_str(), &volume) == 0 && (volume.f_flag & ST_RDONLY) != 0);
}

void CheckWritable(const RestoredSystem &system, const Mount *mount, Obstacles *obstacles) {
  bool readOnly = IsReadOnly(system, mount);
  // A new hive takes the old one's place in its directory.
  const fs::path touched[] = {system.windows, system.systemHive.parent_path(), system.systemHive,
                              FindBelow(system.system32, {"drivers"})};
  for (const fs::path &each : touched) {
    if (each.empty() || faccessat(AT_FDCWD, each.c_str(), W_OK, AT_EACCESS) == 0) continue;
    readOnly = readOnly || errno == EROFS;
    if (readOnly) break;
    obstacles->push_back(
        {"no-rights", each.string() + " cannot be changed: " + std::strerror(errno) + "; run as root", false, ""});
    return;
  }
  if (!readOnly) return;
  const std::string where = (mount != nullptr ? mount->point : system.volume).string();
  obstacles->push_back({"read-only",
                        where + " is mounted read-only; mount it anew for writing (mount -o remount,rw " +
                            machine::ShellWord(where) +
                            "); NTFS stays read-only while it is hibernated or has to be checked",
                        false, ""});
}

// --- The volume below ------------------------------------------------------------------------------------------------

// The device or image that a mount's file system is on; empty when it cannot be told or is not that of the mount.
fs::path DeviceOf(const Mount &mount) {
  const std::string number = std::to_string(mount.major) + ":" + std::to_string(mount.minor);
  for (const fs::path &device : {fs::path(mount.source), fs::path("/dev/block/" + number)}) {
    struct stat status;
    if (!device.is_absolute() || stat(device.c_str(), &status) != 0) continue;
    // A file system in a program has no device of its own, and names what that reads.
    if (mount.major == 0 && (S_ISBLK(status.st_mode) || S_ISREG(status.st_mode))) return device;
    if (S_ISBLK(status.st_mode) && status.st_rdev == makedev(mount.major, mount.minor)) return device;
  }
  return {};
}

bool IsEncrypted(const fs::path &device) {
  VolumeHead head;
  const machine::Status read = ReadVolumeHead(device, &head);
  return head.kind == VolumeKind::kEncrypted;
}

// Whether a device as sysfs has it, or one that it is made from, is an encrypted volume's.
bool LiesOnEncrypted(const fs::path &node, unsigned depth = 0) {
  constexpr unsigned kDeepest = 8;
  std::string mapping;
  std::ifstream(node / "dm" / "uuid") >> mapping;
  if (mapping.starts_with("CRYPT-BITLK-")) return true;
  const std::vector<std::string> below = depth < kDeepest ? ListNames(node / "slaves") : std::vector<std::string>();
  return std::any_of(below.begin(), below.end(), [&](const std::string &name) {
    return IsEncrypted("/dev/" + name) || LiesOnEncrypted(node / "slaves" / name, depth + 1);
  });
}

void CheckEncryption(const Mount &mount, const fs::path &device, const fs::path &sysfs, Obstacles *obstacles) {
  const std::string number = std::to_string(mount.major) + ":" + std::to_string(mount.minor);
  if (!IsEncrypted(device) && !LiesOnEncrypted(sysfs / "dev" / "block" / number)) return;
  obstacles->push_back(
      {"encrypted",
       "The volume at " + mount.point.string() +
           " is encrypted, and only unlocked for now; decrypt it with Windows first (manage-bde -off), "
           "then run again",
       false, ""});
}

// The kernel's driver sets the mark itself on every volume that it mounts for writing, so it tells something only of
// one that is mounted read-only, which is what drivers do with a volume that was dirty before.
void CheckDirty(const RestoredSystem &system, const Mount &mount, const fs::path &device, Obstacles *obstacles) {
  VolumeHead head;
  if (!IsReadOnly(system, &mount) || !ReadVolumeHead(device, &head) || !head.dirty) return;
  obstacles->push_back({"dirty-volume",
                        "The NTFS volume at " + mount.point.string() +
                            " has to be checked first; run chkdsk /f on Windows, or unmount it and run ntfsfix -d " +
                            machine::ShellWord(device.string()) + ", then mount it anew",
                        false, ""});
}

void CheckFileSystem(const RestoredSystem &system, const Mount &mount, Obstacles *obstacles) {
  constexpr std::uint32_t kFirstOnlyOnNtfs = 6;
  const bool fat = mount.type == "vfat" || mount.type == "msdos";
  if (mount.type != "exfat" && !(fat && system.major >= kFirstOnlyOnNtfs)) return;
  obstacles->push_back({"not-ntfs",
                        mount.point.string() + " is a " + mount.type +
                            " file system, from which this Windows does not start; restore it to NTFS",
                        false, ""});
}

}  // namespace

Obstacles FindObstacles(const RestoredSystem &system, const Mount *mount, const fs::path &sysfs) {
  Obstacles obstacles;
  CheckHibernation(system, &obstacles);
  if (mount != nullptr) {
    const fs::path device = DeviceOf(*mount);
    CheckEncryption(*mount, device, sysfs, &obstacles);
    CheckDirty(system, *mount, device, &obstacles);
    CheckFileSystem(system, *mount, &obstacles);
  }
  CheckWritable(system, mount, &obstacles);
  CheckAllNames(system, &obstacles);
  CheckHive(system, &obstacles);
  CheckStopped(system, &obstacles);
  return obstacles;
}

}  // namespace rescue
