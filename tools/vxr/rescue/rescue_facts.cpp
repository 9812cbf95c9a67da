#include "tools/vxr/rescue/rescue_facts.h"

#include <algorithm>
#include <ctime>
#include <filesystem>

#include "rescue/controller_argument.h"
#include "rescue/describe.h"
#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"

namespace {

constexpr char kSysfs[] = "/sys";
constexpr char kMountInfo[] = "/proc/self/mountinfo";

int Refuse(const machine::Status &status, int exitStatus) {
  PrintError(Words(status));
  return exitStatus;
}

bool IsDirectory(const std::string &name) {
  std::error_code error;
  return std::filesystem::is_directory(name, error);
}

// Those that the user named; empty, with a message, when there is no such disk.
std::vector<rescue::Disk> NamedDisks(const RescueOptions &options, const std::vector<rescue::Disk> &all) {
  std::vector<rescue::Disk> named;
  for (std::string name : options.disks) {
    if (name.starts_with("/dev/")) name.erase(0, 5);
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const rescue::Disk &disk) { return disk.name == name; });
    if (found == all.end()) {
      PrintError("there is no disk \"" + name + "\"; vxr inject --list shows all");
      return {};
    }
    named.push_back(*found);
  }
  return named;
}

// Where the root does not tell, since the tree of devices is another machine's: its one disk.
void TakeOnlyDisk(RescueFacts *facts) {
  const auto fits = [](const rescue::Disk &disk) { return disk.unfit.empty(); };
  if (std::count_if(facts->all.begin(), facts->all.end(), fits) == 1) {
    std::copy_if(facts->all.begin(), facts->all.end(), std::back_inserter(facts->disks), fits);
  } else {
    facts->diskProblem =
        "a captured tree does not say which disk holds the root; name it with --disk (vxr inject "
        "--list --sysfs DIR shows all)";
  }
}

int ReadDisks(const RescueOptions &options, RescueFacts *facts) {
  if (!options.controllers.empty()) {
    facts->toCome = true;
    const machine::Status read = rescue::DisksToCome(options.controllers, &facts->disks);
    return read ? 0 : Refuse(read, kExitUsage);
  }
  const std::string sysfs = options.sysfs.empty() ? kSysfs : options.sysfs;
  if (machine::Status read = rescue::ListDisks(sysfs, &facts->all); !read) {
    return Refuse(read, options.sysfs.empty() ? 1 : kExitUsage);
  }
  if (!options.disks.empty()) {
    facts->disks = NamedDisks(options, facts->all);
    return facts->disks.empty() ? kExitUsage : 0;
  }
  if (options.root.empty()) return 0;
  if (!options.sysfs.empty()) {
    TakeOnlyDisk(facts);
  } else if (facts->mount) {
    const machine::Status found = rescue::DisksOf(*facts->mount, sysfs, &facts->disks);
    if (!found) facts->diskProblem = Words(found);
  } else {
    facts->diskProblem = "no mount is known for " + options.root + "; name the controller with --controller";
  }
  return 0;
}

// Of disks that Windows cannot start from on this hardware the others must do; the first is told.
void LeaveOutUnfit(RescueFacts *facts) {
  const auto unfit = [](const rescue::Disk &disk) { return !disk.unfit.empty(); };
  const auto first = std::find_if(facts->disks.begin(), facts->disks.end(), unfit);
  if (first == facts->disks.end()) return;
  facts->diskProblem = first->name + ": " + first->unfit;
  facts->disks.erase(std::remove_if(facts->disks.begin(), facts->disks.end(), unfit), facts->disks.end());
}

// What explains files that cannot be read comes first.
int RefuseUnread(const std::vector<rescue::Obstacle> &obstacles, const machine::Status &read) {
  for (const rescue::Obstacle &obstacle : obstacles) {
    const bool explains =
        obstacle.word == "hibernated" || obstacle.word == "dirty-volume" || obstacle.word == "double-name";
    if (explains) PrintError(obstacle.text);
  }
  return Refuse(read, 1);
}

}  // namespace

bool CheckProc() {
  if (IsDirectory("/proc/self/fd")) return true;
  PrintError(
      "/proc is not mounted, by which the restored system's files are opened; mount it: mount -t proc proc /proc");
  return false;
}

bool CheckCount(const RescueFacts &facts) {
  const std::size_t count = rescue::OneForEachController(facts.disks).size();
  if (count <= rescue::kMostDisks) return true;
  PrintError(std::to_string(count) + " controllers are too many for one run; name at most " +
             std::to_string(rescue::kMostDisks) + " of them with --controller, and run again for the others");
  return false;
}

int GatherSystem(const std::string &root, RescueFacts *facts) {
  if (!CheckProc()) return 1;
  rescue::RestoredSystem system;
  if (machine::Status found = rescue::FindWindows(root, &system); !found) {
    return Refuse(found, IsDirectory(root) ? 1 : kExitUsage);
  }
  const machine::Status read = rescue::ReadRestoredSystem(&system);
  rescue::Mount mount;
  if (rescue::FindMount(system.volume, kMountInfo, &mount)) facts->mount = std::move(mount);
  facts->obstacles = rescue::FindObstacles(system, facts->mount ? &*facts->mount : nullptr);
  if (!read) return RefuseUnread(facts->obstacles, read);
  facts->system = std::move(system);
  return 0;
}

int GatherFacts(const RescueOptions &options, RescueFacts *facts) {
  facts->drivers.names = options.drivers;
  if (!options.root.empty()) {
    if (const int failed = GatherSystem(options.root, facts); failed != 0) return failed;
    if (!IsUtf8(HostName(facts->system->windows))) {
      PrintError(options.root + ": the path of the restored Windows is not UTF-8; mount its volume at another place");
      return kExitUsage;
    }
    std::erase(facts->drivers.letters, facts->system->drive);
    std::erase(facts->drivers.letters, rescue::RunningDrive(*facts->system));
  }
  if (!CheckDirectories(&facts->drivers, true)) return kExitUsage;
  if (const int failed = ReadDisks(options, facts); failed != 0) return failed;
  LeaveOutUnfit(facts);
  return 0;
}

std::string MachineFile(const RescueFacts &facts, const std::string &scratch) {
  rescue::Description description;
  description.system = *facts.system;
  description.disks = rescue::OneForEachController(facts.disks);
  description.drives = DrivesToml(facts.drivers);
  description.driverDirectories = MachineDirectories(facts.drivers);
  description.scratch = scratch;
  description.time = std::time(nullptr);
  return rescue::DescribeMachine(description);
}
