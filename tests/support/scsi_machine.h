// A disk behind a SCSI adapter, as machine files describe them.
#pragma once

#include <string>

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
  return R"(
[[disk]]
number = 0
geometry = { cylinders = 7832, heads = 255, sectors = 63, bytes = 512 }
interface = '\\?\)" +
         std::string(kScsiDiskInterface) + R"(#{53f56307-b6bf-11d0-94f2-00a0c91efb8b}'

[[device]]
instance = 'ROOT\ACPI_HAL\0000'
class = 'Computer'
hardware_ids = ['acpiapic_mp']

[[device]]
instance = ')" +
         kScsiDiskInstance + R"('
class = 'DiskDrive'
hardware_ids = ['SCSI\DiskACME____FAST_DISK']
parent = ')" +
         ScsiAdapterInstance(id) + R"('

[[device]]
instance = ')" +
         ScsiAdapterInstance(id) + R"('
class = 'SCSIAdapter'
hardware_ids = [')" +
         id + R"(&SUBSYS_00000000&REV_01', ')" + id + R"(']
compatible_ids = [')" +
         vendor + R"(&CC_0100', 'PCI\CC_0100']
)";
}
