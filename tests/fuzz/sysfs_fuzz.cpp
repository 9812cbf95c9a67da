// A sysfs and a table of mounts from outside: the disks and PCI functions of the one, the disks of the mounts of the
// other, and the machine that they make up, which must open. Links may lead anywhere; what lies outside of the tree
// must never be told.
//
// Input: lines, "F /sys/PATH TEXT" a file, "L /sys/PATH TARGET" a link, "M LINE" a line of the table of mounts.
#include <algorithm>
#include <vector>

#include "rescue/describe.h"
#include "rescue/disk_chain.h"
#include "rescue/pci_tree.h"
#include "rescue/sysfs.h"
#include "tests/fuzz/fuzz_folder.h"
#include "vxrcore/machine.h"

namespace {

namespace fs = std::filesystem;
using namespace rescue;

constexpr char kOutside[] = "of-the-outside";

// --- The tree -------------------------------------------------------------------------------------------------------

// Where a listing's path leads in the folder; empty when it is not below /sys.
fs::path PlaceBelow(const fs::path &folder, std::string_view path) {
  const std::string sys = "sys";
  const fs::path below = fs::path(path).relative_path().lexically_normal();
  return below.begin() != below.end() && *below.begin() == sys && below != sys ? folder / below : fs::path();
}

void AddLink(const fs::path &folder, const fs::path &place, std::string_view target) {
  std::error_code failed;
  fs::create_directories(place.parent_path(), failed);
  const fs::path parent = failed ? fs::path() : fs::canonical(place.parent_path(), failed);
  if (!failed && parent.native().starts_with(folder.native() + "/sys")) fs::create_symlink(target, place, failed);
}

// Files first, so that no link is there yet that leads one of them out.
void Build(const fs::path &folder, std::string_view input) {
  std::string mounts;
  for (const char kind : {'F', 'L', 'M'}) {
    for (std::string_view lines = input; !lines.empty();) {
      const std::string_view line = lines.substr(0, lines.find('\n'));
      lines.remove_prefix(std::min(line.size() + 1, lines.size()));
      if (line.size() < 3 || line[0] != kind) continue;
      if (kind == 'M') {
        mounts += std::string(line.substr(2)) + '\n';
        continue;
      }
      const std::size_t blank = std::min(line.find(' ', 2), line.size() - 1);
      const fs::path place = PlaceBelow(folder, line.substr(2, blank - 2));
      std::error_code failed;
      if (place.empty() || place.native().find('\0') != std::string::npos) continue;
      if (kind == 'L') {
        AddLink(folder, place, line.substr(blank + 1));
      } else if (fs::create_directories(place.parent_path(), failed), !failed) {
        std::ofstream(place, std::ios::binary) << line.substr(blank + 1) << '\n';
      }
    }
  }
  WriteWhole(folder / "mountinfo", mounts);
}

// --- Promises -------------------------------------------------------------------------------------------------------

void CheckText(const std::string &text) {
  Require(Showable(text) == text && text.size() <= 4096, "a text that cannot be shown", text);
  Require(text.find(kOutside) == std::string::npos, "a text from outside of the tree", text);
}

void CheckNode(const PciNode &node) {
  const PciFunction &function = node.function;
  Require(function.vendor <= 0xFFFF && function.device <= 0xFFFF && function.revision.value_or(0) <= 0xFF &&
              function.classCode.value_or(0) <= 0xFFFFFF,
          "numbers that no function has", node.address);
  CheckText(node.address);
  CheckText(node.driver);
}

void CheckController(const ControllerPath &path) {
  for (const PciNode &node : path.nodes) CheckNode(node);
  const bool named = path.rootBus == "PNP0A03" || path.rootBus == "PNP0A08";
  Require(path.nodes.empty() ? path.rootBus.empty() : named, "a root bus without a name", path.rootBus);
}

void CheckDisks(const std::vector<Disk> &disks) {
  for (const Disk &disk : disks) {
    for (const std::string &text : {disk.name, disk.vendor, disk.model, disk.revision, disk.serial, disk.unfit}) {
      CheckText(text);
    }
    const std::uint32_t sector = disk.sectorSize;
    Require(disk.size > 0 && sector >= 512 && sector <= 65536 && (sector & (sector - 1)) == 0, "sizes that no disk has",
            disk.name);
    CheckController(disk.controller);
    for (const ControllerPath &other : disk.otherControllers) CheckController(other);
  }
}

// As an injection has it, for a system in the folder.
void OpenMachine(const fs::path &folder, const std::vector<Disk> &disks) {
  Description description;
  description.system.volume = description.scratch = folder / "volume";
  description.system.windows = folder / "volume/Windows";
  description.system.major = 6;
  for (const Disk &disk : OneForEachController(disks)) {
    if (disk.unfit.empty() && description.disks.size() < kMostDisks) description.disks.push_back(disk);
  }
  if (description.disks.empty()) return;
  const std::string text = DescribeMachine(description);
  char message[512] = "";
  Require(VXRMachine_OpenText(text.c_str(), nullptr, message, sizeof message), "a machine that does not open",
          message + ("\n" + text));
  Require(VXRMachine_Close(), "a machine that does not close");
}

void FollowMounts(const fs::path &folder) {
  for (const char *directory : {"/usr", "/usr/lib"}) {
    Mount mount;
    if (!FindMount(directory, folder / "mountinfo", &mount)) continue;
    Require(std::string(directory).starts_with(mount.point.native()), "another mount", mount.point);
    std::vector<Disk> disks;
    const machine::Status found = DisksOf(mount, folder / "sys", &disks);
    Require(found ? !disks.empty() : !found.text.empty(), "no disk without a reason");
    CheckDisks(disks);
    if (!found) CheckText(found.text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string_view input(reinterpret_cast<const char *>(data), size);
  if (input.find(kOutside) != input.npos) return 0;  // it may tell what is its own
  const fs::path &folder = FuzzFolder();
  if (!fs::exists(folder / "outside")) {
    fs::create_directories(folder / "volume/Windows");
    for (const char *name : {"vendor", "model", "rev", "serial", "name", "driver"}) {
      WriteWhole(folder / "outside" / name, kOutside);
    }
  }
  fs::remove_all(folder / "sys");
  fs::create_directory(folder / "sys");
  Build(folder, input);

  std::vector<Disk> disks;
  (void)ListDisks(folder / "sys", &disks);
  CheckDisks(disks);
  OpenMachine(folder, disks);
  for (const PciNode &node : ListPciFunctions(folder / "sys")) CheckNode(node);
  FollowMounts(folder);
  return 0;
}
