#include "rescue/block_device.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "rescue/pci_tree.h"
#include "rescue/sysfs.h"

namespace rescue {
namespace {

namespace fs = std::filesystem;

// A disk while it is read.
struct Source {
  const fs::path &sysfs;
  std::string name, node;  // node: its own path
  DevicePlace place;       // of the disk, or of the first controller through which it can be reached

  std::string Above() const { return node.substr(0, node.rfind('/')); }
};

bool IsNvmeHead(const std::string &node) { return node.starts_with("devices/virtual/nvme-subsystem/"); }

bool IsNoDisk(const Source &source) {
  if (source.node.starts_with("devices/virtual/") && !IsNvmeHead(source.node)) return true;
  for (const char *form : {"nvme#c#n#", "sr#", "fd#", "mmcblk#boot#", "mmcblk#rpmb", "mmcblk#gp#"}) {
    if (HasForm(source.name, form)) return true;
  }
  return ReadNumber(source.sysfs, source.node + "/hidden").value_or(0) != 0;
}

std::uint64_t ReadSize(const Source &source) {
  constexpr std::uint64_t kUnit = 512;  // whatever the disk's sectors are
  const std::uint64_t units = ReadNumber(source.sysfs, source.node + "/size").value_or(0);
  return units > std::numeric_limits<std::uint64_t>::max() / kUnit ? 0 : units * kUnit;
}

std::uint32_t ReadSectorSize(const Source &source) {
  const std::uint64_t size = ReadNumber(source.sysfs, source.node + "/queue/logical_block_size").value_or(0);
  const bool possible = size >= 512 && size <= 65536 && (size & (size - 1)) == 0;
  return possible ? static_cast<std::uint32_t>(size) : 512;
}

// Where the disk hangs; of an NVMe disk with several paths each of its controllers, by the links in its subsystem.
std::vector<DevicePlace> FindPlaces(const Source &source) {
  if (!IsNvmeHead(source.node)) return {PlaceOf(source.node)};
  std::vector<DevicePlace> places;
  for (const std::string &name : ListNames(source.sysfs, source.Above())) {
    if (!HasForm(name, "nvme#")) continue;
    DevicePlace place = PlaceOf(ResolveNode(source.sysfs, source.Above() + '/' + name));
    if (!place.functions.empty()) places.push_back(std::move(place));
  }
  if (places.empty()) places.push_back(PlaceOf(source.node));
  return places;
}

bool IsBelow(const DevicePlace &place, const char *form) {
  return std::any_of(place.below.begin(), place.below.end(),
                     [form](const std::string &part) { return HasForm(part, form); });
}

// Where the disk hangs on its host, "0:2:1:0"; false when it is none of SCSI's.
bool ReadScsiAddress(const DevicePlace &place, Disk *disk) {
  for (std::string_view part : place.below) {
    std::uint64_t host = 0, channel = 0, target = 0, lun = 0;
    if (!TakeNumber(&part, 10, ':', &host) || !TakeNumber(&part, 10, ':', &channel) ||
        !TakeNumber(&part, 10, ':', &target) || !TakeNumber(&part, 10, 0, &lun)) {
      continue;
    }
    disk->channel = static_cast<unsigned>(channel);
    disk->target = static_cast<unsigned>(target);
    disk->lun = static_cast<unsigned>(lun);
    return true;
  }
  return false;
}

// Which of its controller's ports an ATA disk is on. Linux numbers those of all controllers in one row, and makes them
// all, used or not; a captured tree may hold no more than the links to their hosts.
unsigned PortIndex(const Source &source) {
  const std::string &function = source.place.functions.back();
  std::vector<std::string> ports = ListNames(source.sysfs, function);
  for (const std::string &host : ListNames(source.sysfs, "class/scsi_host")) {
    const DevicePlace place = PlaceOf(LinkText(source.sysfs, "class/scsi_host/" + host));
    if (place.functions.empty() || place.below.empty()) continue;
    if (place.functions.back() == function) ports.push_back(place.below.front());
  }
  std::erase_if(ports, [](const std::string &name) { return !HasForm(name, "ata#"); });
  std::sort(ports.begin(), ports.end(), InNaturalOrder);
  ports.erase(std::unique(ports.begin(), ports.end()), ports.end());
  return static_cast<unsigned>(std::find(ports.begin(), ports.end(), source.place.below.front()) - ports.begin());
}

// The bus by the controller as Windows sees it: what is behind one that is neither IDE nor AHCI nor NVMe is SCSI there,
// whatever Linux makes of it.
DiskBus BusOf(const Source &source, const Disk &disk, bool scsi) {
  const DevicePlace &place = source.place;
  if (IsBelow(place, "usb#")) return DiskBus::kUsb;
  if (IsBelow(place, "mmc_host")) return DiskBus::kSd;
  if (HidesBuses(place)) return DiskBus::kScsi;
  if (HasForm(source.name, "nvme#n#")) return DiskBus::kNvme;
  if (IsBelow(place, "virtio#") && !scsi) return DiskBus::kVirtio;
  if (disk.controller.nodes.empty()) return scsi ? DiskBus::kScsi : DiskBus::kOther;
  const unsigned kind = disk.controller.nodes.front().function.classCode.value_or(0) >> 8;
  if (IsBelow(place, "ata#") && kind == 0x0101) return DiskBus::kIde;
  if (IsBelow(place, "ata#") && kind == 0x0106) return DiskBus::kAta;
  return scsi || kind >> 8 == 0x01 ? DiskBus::kScsi : DiskBus::kOther;
}

void ReadAddress(const Source &source, Disk *disk) {
  if (disk->bus == DiskBus::kNvme) {
    const std::uint64_t number = ReadNumber(source.sysfs, source.node + "/nsid").value_or(1);
    disk->lun = static_cast<unsigned>(std::max<std::uint64_t>(number, 1) - 1);
  }
  const DevicePlace &place = source.place;
  if (place.functions.empty() || place.below.empty() || !HasForm(place.below.front(), "ata#")) return;
  disk->target += disk->channel;  // a port multiplier's ports are channels in Linux, targets in Windows
  disk->channel = PortIndex(source);
}

// The serial number of a SCSI disk, from the page of its answer that holds it: four bytes, the last its length, before.
std::string UnitSerial(const Source &source) {
  const std::string page = ReadBytes(source.sysfs, source.node + "/device/vpd_pg80");
  if (page.size() < 4 || page[1] != '\x80') return {};
  const std::string text = page.substr(4, static_cast<unsigned char>(page[3]));
  const std::size_t begin = text.find_first_not_of(std::string_view(" \0", 2));
  if (begin == std::string::npos) return {};
  return Showable(text.substr(begin, text.find_last_not_of(std::string_view(" \0", 2)) + 1 - begin));
}

void ReadIdentity(const Source &source, bool scsi, Disk *disk) {
  const std::string device = source.node + "/device/";
  if (HasForm(source.name, "nvme#n#")) {
    disk->model = ReadText(source.sysfs, source.Above() + "/model");
    disk->serial = ReadText(source.sysfs, source.Above() + "/serial");
    disk->revision = ReadText(source.sysfs, source.Above() + "/firmware_rev");
  } else if (scsi) {
    disk->vendor = ReadText(source.sysfs, device + "vendor");
    disk->model = ReadText(source.sysfs, device + "model");
    disk->revision = ReadText(source.sysfs, device + "rev");
    disk->serial = UnitSerial(source);
  } else if (disk->bus == DiskBus::kSd) {
    disk->model = ReadText(source.sysfs, device + "name");
    disk->serial = ReadText(source.sysfs, device + "serial");
  } else {
    disk->serial = ReadText(source.sysfs, source.node + "/serial");
  }
}

// Why nothing can be done for a system on the disk; empty: it can.
std::string WhyUnfit(const Source &source, const Disk &disk) {
  const std::string nowhere = ": Windows does not start from it here; restore onto a disk that Windows starts from";
  if (disk.bus == DiskBus::kUsb) return "a USB disk" + nowhere;
  if (disk.bus == DiskBus::kSd) return "an SD or MMC card" + nowhere;
  if (IsBelow(source.place, "fw#")) return "a FireWire disk" + nowhere;
  const std::string name = "; name the controller that Windows will have with --controller";
  const auto contains = [&source](const char *part) { return source.node.find(part) != std::string::npos; };
  if (contains("/VMBUS:") || contains("/vmbus_")) return "a disk on a bus of Hyper-V's own, not on PCI" + name;
  if (contains("/vbd-")) return "a disk on a bus of Xen's own, not on PCI" + name;
  if (disk.controller.nodes.empty()) return "no PCI controller is to be seen above the disk" + name;
  return {};
}

}  // namespace

bool ReadDisk(const fs::path &sysfs, const std::string &name, Disk *disk) {
  *disk = {};
  Source source = {sysfs, name, ResolveNode(sysfs, "block/" + name), {}};
  if (source.node.empty() || IsNoDisk(source)) return false;
  disk->size = ReadSize(source);
  if (disk->size == 0) return false;
  disk->sectorSize = ReadSectorSize(source);
  disk->name = name;
  std::replace(disk->name.begin(), disk->name.end(), '!', '/');  // which no name in sysfs can hold
  const std::vector<DevicePlace> places = FindPlaces(source);
  source.place = places.front();
  disk->controller = ReadControllerPath(sysfs, source.place);
  for (std::size_t other = 1; other < places.size(); ++other) {
    ControllerPath path = ReadControllerPath(sysfs, places[other]);
    if (!path.nodes.empty()) disk->otherControllers.push_back(std::move(path));
  }
  const bool scsi = ReadScsiAddress(source.place, disk);
  disk->bus = BusOf(source, *disk, scsi);
  ReadAddress(source, disk);
  ReadIdentity(source, scsi, disk);
  disk->unfit = WhyUnfit(source, *disk);
  return true;
}

}  // namespace rescue
