#include "tools/vxr/run/result_codes.h"

namespace {

constexpr ResultCode kCodes[] = {
    {VXR_RESULT_SUCCESS, "success", "", false},
    {kRehearsalCode, "the verification succeeds, but an injection would not",
     "Mend what stands under Problems, then verify again.", false},
    {VXR_RESULT_NO_DRIVER, "a device has no driver",
     "Put the driver's INF and files into the job's InfDir (for an IDE controller: into the running system's inf and "
     "drivers folders). The driver must list the device's ids for the restored Windows version.",
     false},
    {VXR_RESULT_NO_HIVE, "the restored system's SYSTEM hive was not mounted or not saved",
     "Check that RootPath names the restored system and that its SYSTEM hive is whole, can be written and has"
     " room beside it.",
     true},
    {VXR_RESULT_NO_ENGINE, "the engine did not start",
     "Check that HCDIR is set, and that the running system has a boot drive and a device of the class Computer with "
     "hardware_ids (or the value HardwareID of SYSTEM\\CurrentControlSet\\Enum\\Root\\ACPI_HAL\\0000).",
     true},
    {VXR_RESULT_NO_SETTINGS, "the job's settings are incomplete",
     "Check the job number; its key needs Disk, InfDir, BootPart and RootPath.", true},
    {VXR_RESULT_NO_EXTENSION, "the extension file cannot be used",
     "Check the job's BMEFile: a file of 80,332 bytes that was written at backup time.", true},
    {VXR_RESULT_FILE_MISSING, "a driver file is missing",
     "Put the file beside its INF file, or complete the driver package (for the running system's own INF files: into "
     "its "
     "System32\\drivers).",
     false},
    {VXR_RESULT_FILE_NOT_COPIED, "a driver file was not copied",
     "Check free space and write access on the restored volume, then run again.", false},
    {VXR_RESULT_NO_VOLUME, "the restored volume is not known", "Check the job's BootPart and RootPath.", true},
    {VXR_RESULT_CANCELLED, "the search for drivers was cancelled",
     "Run again and name a directory that holds the driver's INF file.", false},
    {VXR_RESULT_NO_NAMED_DRIVER, "no driver for the hardware id that the job names",
     "Check the job's HardwareID, and that InfDir is the path of one INF file that lists it for the restored Windows "
     "version.",
     false},
};

constexpr ResultCode kUnknown = {0, "unknown result", "See the log.", false};

}  // namespace

const ResultCode &FindResultCode(std::uint32_t code) {
  for (const ResultCode &entry : kCodes) {
    if (entry.code == code) return entry;
  }
  return kUnknown;
}
