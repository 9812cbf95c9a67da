// The disks of the machine that a rescue system runs on, and what stands between each and the processor.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rescue/windows_ids.h"

namespace rescue {

// A PCI function as Linux shows it.
struct PciNode {
  PciFunction function;
  std::string address;  // "0000:02:01.0"
  std::string driver;   // bound by Linux; empty: none
};

// A disk's controller and the bridges above it: the controller first, then upwards to the root bus. Empty: no PCI
// function is above the disk.
//
// A controller that hides PCI buses of its own behind it, such as one that manages volumes, is the controller itself:
// Windows leaves what is behind it to its driver.
struct ControllerPath {
  std::vector<PciNode> nodes;
  std::string otherId;  // the id of a controller of another bus, which the user named; `nodes` is then empty
  std::string rootBus;  // ACPI's name of the root bus: "PNP0A08" or "PNP0A03"
};

enum class DiskBus : std::uint8_t {
  kIde,   // a channel of an IDE controller
  kAta,   // a port of an AHCI controller
  kScsi,  // SAS, RAID and parallel SCSI too; whatever is behind a controller of that kind
  kNvme,
  kVirtio,  // virtio-blk; virtio-scsi is kScsi
  kUsb,
  kSd,
  kOther,
};

struct Disk {
  std::string name;  // "sda", "cciss/c0d0"
  std::string vendor, model, revision, serial;
  std::uint64_t size = 0;  // bytes
  std::uint32_t sectorSize = 512;
  DiskBus bus = DiskBus::kOther;
  // On its controller: of IDE `target` is 0 master, 1 slave; of AHCI `channel` is the port, of NVMe `lun` the namespace
  // less one.
  unsigned channel = 0, target = 0, lun = 0;
  ControllerPath controller;
  std::vector<ControllerPath> otherControllers;  // through which the same NVMe disk can be reached too
  std::string unfit;  // why nothing can be done for a system on it, a sentence for people; empty: it can
};

}  // namespace rescue
