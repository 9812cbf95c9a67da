// Which paths lead to one file, and which to the files that the machine itself is made of.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <string>
#include <utility>

#include "platform/machine/description/current.h"
#include "platform/machine/description/records.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/hive/hive_logs.h"
#include "platform/text/ansi_case.h"
#include "vxrcore/machine.h"

namespace machine {
namespace {

bool SameStatus(const struct stat &a, const struct stat &b) {
  if (S_ISBLK(a.st_mode) && S_ISBLK(b.st_mode)) return a.st_rdev == b.st_rdev;
  return SameInode(a, b);
}

// A link whose target does not exist yet leads to what the next file of that name will be.
Status LocateFinalPlace(const char *path, HostPlace *place) {
  if (Status located = LocatePlace(path, place); !located) return located;
  for (unsigned links = 0; links < kLongestLinkChain; ++links) {
    char target[PATH_MAX];
    const ssize_t length = readlinkat(place->directory, place->name.c_str(), target, sizeof target);
    if (length <= 0) return {};
    const std::string named(target, static_cast<std::size_t>(length));
    HostPlace next;
    const std::string whole = named[0] == '/' ? named : PlaceName(place->directory, named);
    if (Status located = LocatePlace(whole.c_str(), &next); !located) return located;
    *place = std::move(next);
  }
  return {};
}

bool IsHostPath(const char *path) { return *path == '/'; }

// Where neither exists yet, a path of the machine will find the file that the other makes, however that is spelled.
bool SamePlace(const char *path, const HostPlace &a, const char *other, const HostPlace &b) {
  if (a.exists || b.exists) return a.exists && b.exists && SameStatus(a.status, b.status);
  struct stat above = {}, otherAbove = {};
  if (fstat(a.directory, &above) != 0 || fstat(b.directory, &otherAbove) != 0) return false;
  if (!SameStatus(above, otherAbove)) return false;
  return IsHostPath(path) && IsHostPath(other) ? a.name == b.name : FoldName(a.name) == FoldName(b.name);
}

bool IsFile(const HostPlace &place, const std::filesystem::path &file) {
  struct stat status = {};
  return !file.empty() && stat(file.c_str(), &status) == 0 && SameStatus(place.status, status);
}

bool IsLog(const HostPlace &place, const std::filesystem::path &hive) {
  struct stat above = {}, beside = {};
  return IsHiveLogName(hive.filename().string(), place.name) && fstat(place.directory, &above) == 0 &&
         stat(hive.parent_path().c_str(), &beside) == 0 && SameStatus(above, beside);
}

// Empty for a file that is none of the machine's own.
std::string OwnFile(const HostPlace &place, const Description &description) {
  if (IsFile(place, description.file)) return "the machine file";
  for (const HiveFile &hive : description.hives) {
    if (IsFile(place, hive.file)) return "the hive of " + hive.key;
    if (IsLog(place, hive.file)) return "a log of the hive of " + hive.key;
  }
  for (const Disk &disk : description.disks) {
    if (disk.image && IsFile(place, *disk.image)) return "the image of disk " + std::to_string(disk.number);
  }
  return "";
}

}  // namespace
}  // namespace machine

int32_t VXRMachine_SameFile(const char *path, const char *other) {
  machine::HostPlace a, b;
  return machine::LocateFinalPlace(path, &a) && machine::LocateFinalPlace(other, &b) &&
         machine::SamePlace(path, a, other, b);
}

int32_t VXRMachine_OwnFile(const char *path, char *what, uint32_t whatSize) {
  if (whatSize != 0) what[0] = '\0';
  machine::HostPlace place;
  const machine::Description *description = machine::Current();
  if (description == nullptr || !machine::LocatePlace(path, &place) || !place.exists) return 0;
  const std::string found = machine::OwnFile(place, *description);
  if (found.empty()) return 0;
  if (whatSize != 0) what[found.copy(what, whatSize - 1)] = '\0';
  return 1;
}
