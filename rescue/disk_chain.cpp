#include "rescue/disk_chain.h"

#include <algorithm>

#include "rescue/block_device.h"
#include "rescue/sysfs.h"

namespace rescue {
namespace {

namespace fs = std::filesystem;
using machine::Status;

const char *const kNameController = "name the controller that Windows will have with --controller";

// The whole device of the first block device that `is` accepts by its name and its path, a whole one or a partition;
// empty when there is none. A partition's name begins with that of its device, nothing else in there has a name so.
template <typename Is>
std::string FindWhole(const fs::path &sysfs, Is is) {
  for (const std::string &whole : ListNames(sysfs, "block")) {
    const std::string path = "block/" + whole;
    if (is(whole, path)) return whole;
    for (const std::string &part : ListNames(sysfs, path)) {
      if (part.starts_with(whole) && is(part, path + '/' + part)) return whole;
    }
  }
  return {};
}

std::string WholeOfNumber(const fs::path &sysfs, const Mount &mount) {
  const std::string number = std::to_string(mount.major) + ':' + std::to_string(mount.minor);
  return FindWhole(
      sysfs, [&](const std::string &, const std::string &path) { return ReadText(sysfs, path + "/dev") == number; });
}

std::string WholeOfName(const fs::path &sysfs, const std::string &name) {
  return FindWhole(sysfs, [&name](const std::string &known, const std::string &) { return known == name; });
}

// The whole device behind a node such as "/dev/sda2", "/dev/cciss/c0d0p1", "/dev/mapper/group-volume"; empty: no node.
std::string WholeOfFile(const fs::path &sysfs, const std::string &file) {
  const std::string folder = "/dev/", mapper = folder + "mapper/";
  if (!file.starts_with(folder)) return {};
  if (file.starts_with(mapper)) {
    return FindWhole(sysfs, [&](const std::string &, const std::string &path) {
      return ReadText(sysfs, path + "/dm/name") == file.substr(mapper.size());
    });
  }
  std::string name = file.substr(folder.size());
  std::replace(name.begin(), name.end(), '/', '!');
  return WholeOfName(sysfs, name);
}

// The whole devices right below one: of device-mapper and md its slaves, of a loop device what its file is.
Status FindWholesBelow(const fs::path &sysfs, const std::string &whole, std::vector<std::string> *below) {
  const std::string file = ReadText(sysfs, "block/" + whole + "/loop/backing_file");
  if (!file.empty()) {
    below->push_back(WholeOfFile(sysfs, file));
    if (below->back().empty()) {
      return Status::Refused("/dev/" + whole + " is the image " + file + ", not a disk: " + kNameController);
    }
  }
  for (const std::string &name : ListNames(sysfs, "block/" + whole + "/slaves")) {
    below->push_back(WholeOfName(sysfs, name));
  }
  return {};
}

// Adds every whole device that is below the first to the list, each once.
Status FollowDown(const fs::path &sysfs, std::vector<std::string> *wholes) {
  for (std::size_t at = 0; at < wholes->size(); ++at) {
    std::vector<std::string> below;
    if (Status found = FindWholesBelow(sysfs, (*wholes)[at], &below); !found) return found;
    for (const std::string &name : below) {
      const bool known = std::find(wholes->begin(), wholes->end(), name) != wholes->end();
      if (!name.empty() && !known) wholes->push_back(name);
    }
  }
  return {};
}

}  // namespace

Status ListDisks(const fs::path &sysfs, std::vector<Disk> *disks) {
  disks->clear();
  if (ResolveNode(sysfs, "block").empty()) {
    return Status::Refused(sysfs.native() +
                           " is no sysfs: it has no folder \"block\"; mount one there, or name another");
  }
  for (const std::string &name : ListNames(sysfs, "block")) {
    Disk disk;
    if (ReadDisk(sysfs, name, &disk)) disks->push_back(std::move(disk));
  }
  return {};
}

Status DisksOf(const Mount &mount, const fs::path &sysfs, std::vector<Disk> *disks) {
  disks->clear();
  const std::string subject = mount.point.native() + Showable(" (" + mount.type + " from " + mount.source + ')');
  if (mount.major == 0) return Status::Refused(subject + " has no disk of its own: " + kNameController);
  std::vector<std::string> wholes = {WholeOfNumber(sysfs, mount)};
  if (wholes[0].empty()) {
    return Status::Refused(subject + " is on no block device that " + sysfs.native() + " shows: " + kNameController);
  }
  if (Status followed = FollowDown(sysfs, &wholes); !followed) return followed;
  std::sort(wholes.begin(), wholes.end(), InNaturalOrder);
  for (const std::string &name : wholes) {
    Disk disk;
    if (ReadDisk(sysfs, name, &disk)) disks->push_back(std::move(disk));
  }
  if (disks->empty()) return Status::Refused(subject + " is on no disk: " + kNameController);
  return {};
}

}  // namespace rescue
