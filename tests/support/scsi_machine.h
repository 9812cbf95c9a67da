// A disk behind a SCSI adapter, as machine files describe them.
#pragma once

#include <string>

#include "tests/support/standard_machine.h"

inline constexpr char kScsiDiskInstance[] = R"(SCSI\Disk&Ven_ACME&Prod_FAST_DISK&Rev_1.0\4&1A2B3C&0&000000)";
// The disk's interface path without its prefix and class.
inline constexpr char kScsiDiskInterface[] = "scsi#disk&ven_acme&prod_fast_disk&rev_1.0#4&1a2b3c&0&000000";

// Hardware id and instance id of an adapter.
inline constexpr char kScsiAdapterId[] = R"(PCI\VEN_1000&DEV_0030)";
inline std::string ScsiAdapterInstance(const std::string &id) {
  return id + R"(&SUBSYS_00000000&REV_01\3&61AAA01&0&80)";
}

// Disk 0, its device, the adapter above it, and the device that names the HAL.
inline std::string ScsiMachine(const std::string &id = kScsiAdapterId) {
  const std::string vendor = id.substr(0, id.find('&'));
  return DiskToml(0, kScsiDiskInterface) + ComputerToml() +
         DeviceToml(kScsiDiskInstance, "DiskDrive", R"(SCSI\DiskACME____FAST_DISK)", ScsiAdapterInstance(id)) +
         DeviceToml(ScsiAdapterInstance(id), "SCSIAdapter", id + "&SUBSYS_00000000&REV_01', '" + id, "",
                    "compatible_ids = ['" + vendor + "&CC_0100', 'PCI\\CC_0100']\n");
}
