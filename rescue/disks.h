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
struct ControllerPath {
  std::vector<PciNode> nodes;
  std::string otherId;  // the id of a controller of another bus, which the user named; `nodes` is then empty
  std::string rootBus;  // ACPI's name of the root bus: "PNP0A08" or "PNP0A03"
};

enum class DiskBus : std::uint8_t {
  kIde,   // a channel of an IDE controller
  kAta,   // a port of an AHCI controller
  kScsi,  // SAS, RAID and parallel SCSI too
  kNvme,
  kVirtio,  // virtio-blk; virtio-scsi is kScsi
  kUsb,
  kSd,
  kOther,
};

struct Disk {
  std::string name;  // "sda"
  std::string vendor, model, revision, serial;
  std::uint64_t size = 0;  // bytes
  std::uint32_t sectorSize = 512;
  DiskBus bus = DiskBus::kOther;
  unsigned channel = 0, target = 0, lun = 0;  // on its controller; of IDE `target` is 0 master, 1 slave
  ControllerPath controller;
  std::string unfit;  // why nothing can be done for a system on it, a sentence for people; empty: it can
};

}  // namespace rescue
