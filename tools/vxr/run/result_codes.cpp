#include "tools/vxr/run/result_codes.h"

namespace {

constexpr ResultCode kCodes[] = {
    {VXR_RESULT_SUCCESS, nullptr, "success", "", false},
    {kRehearsalCode, nullptr, "the verification succeeds, but an injection would not",
     "Mend what stands under Problems, then verify again.", false},
    {VXR_RESULT_NO_DRIVER, "Failed to locate driver files for device ", "a device has no driver",
     "Put the driver's INF and files into the job's InfDir (for an IDE controller: into the running system's inf and "
     "drivers folders). The driver must list the device's ids for the restored Windows version.",
     false},
    {VXR_RESULT_NO_HIVE, "Failed to load the original registry hive file ",
     "the restored system's SYSTEM hive was not mounted or not saved",
     "Check that RootPath names the restored system and that its SYSTEM hive is whole, can be written and has"
     " room beside it.",
     true},
    {VXR_RESULT_NO_ENGINE, "Failed to initialize Vexmorph engine", "the engine did not start",
     "Check that HCDIR is set, and that the running system has a boot drive and a device of the class Computer with "
     "hardware_ids (or the value HardwareID of SYSTEM\\CurrentControlSet\\Enum\\Root\\ACPI_HAL\\0000).",
     true},
    {VXR_RESULT_NO_SETTINGS, "Failed to initialize the Bare Metal restore information",
     "the job's settings are incomplete", "Check the job number; its key needs Disk, InfDir, BootPart and RootPath.",
     true},
    {VXR_RESULT_NO_EXTENSION, "Failed to initialize the Bare Metal extension information",
     "the extension file cannot be used",
     "Check the job's BMEFile: a file of 80,332 bytes that was written at backup time.", true},
    {VXR_RESULT_FILE_MISSING, "Failed to locate file ", "a driver file is missing",
     "Put the file beside its INF file, or complete the driver package (for the running system's own INF files: into "
     "its "
     "System32\\drivers).",
     false},
    {VXR_RESULT_FILE_NOT_COPIED, "Failed to copy ", "a driver file was not copied",
     "Check free space and write access on the restored volume, then run again.", false},
    {VXR_RESULT_NO_VOLUME, "Failed to locate the restored system volume", "the restored volume is not known",
     "Check the job's BootPart and RootPath.", true},
    {VXR_RESULT_CANCELLED, "User cancelled searching for driver files", "the search for drivers was cancelled",
     "Run again and name a directory that holds the driver's INF file.", false},
    {VXR_RESULT_NO_NAMED_DRIVER, nullptr, "no driver for the hardware id that the job names",
     "Check the job's HardwareID, and that InfDir is the path of one INF file that lists it for the restored Windows "
     "version.",
     false},
};

constexpr ResultCode kUnknown = {0, nullptr, "unknown result", "See the log.", false};

}  // namespace

const ResultCode &FindResultCode(std::uint32_t code) {
  for (const ResultCode &entry : kCodes) {
    if (entry.code == code) return entry;
  }
  return kUnknown;
}

const ResultCode *FailureOfStatusLine(std::string_view line) {
  for (const ResultCode &entry : kCodes) {
    if (entry.statusLine != nullptr && line.substr(0, std::string_view(entry.statusLine).size()) == entry.statusLine) {
      return &entry;
    }
  }
  return nullptr;
}
