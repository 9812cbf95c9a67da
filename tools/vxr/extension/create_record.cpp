#include "tools/vxr/extension/create_record.h"

#include <algorithm>
#include <cstdint>

#include "platform/platform.h"
#include "tools/vxr/base/output.h"

namespace {

// What a failing step means, by the call that failed in it.
struct Meaning {
  std::string_view call;
  const char *text;
  std::uint32_t code = 0;  // with this error alone; 0: with any
};

constexpr std::string_view kAllocation = "AllocHeap";
constexpr std::string_view kCollecting = "VXRExt_CreateBMExtension";

constexpr Meaning kVolumeErrors[] = {
    {"GetVolumeInformation", "its label and file system cannot be read, or have more than 15 characters"},
    {"GetVolumeNameForVolumeMountPoint", "it has no GUID path"},
    {"CreateFile", "it cannot be opened by its GUID path"},
    {"IOCTL_MOUNTDEV_QUERY_UNIQUE_ID", "it has no unique id, or one of more than 258 bytes"},
    {"IOCTL_MOUNTDEV_QUERY_DEVICE_NAME", "it has no device name, or one of more than 129 characters"},
    {"IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS", "it has more than the two disk extents that fit the file",
     ERROR_MORE_DATA},
    {"IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS", "it has more than the two disk extents that fit the file",
     ERROR_INSUFFICIENT_BUFFER},
    {"IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS", "its disk extents are not known"},
    {kAllocation, "memory ran out; close other programs and record the machine again"},
};

constexpr Meaning kMachineErrors[] = {
    {"VXRExt_BuildVXRSysInfo",
     "the system directory lies on no fixed disk, CD-ROM, network drive or RAM disk; check it and its drive"},
    {"VXRDev_GetArchInfo",
     "the computer's kind is not known; it needs a device of the class Computer with hardware_ids"},
    {"VXRExt_BuildVXRVolumes", "its drives cannot be listed; it needs at least one"},
};

struct ErrorMeaning {
  std::uint32_t code;
  const char *text;
};

constexpr ErrorMeaning kFileErrors[] = {
    {ERROR_FILE_NOT_FOUND, "there is no such directory or drive; make it, or name another file"},
    {ERROR_PATH_NOT_FOUND, "there is no such directory or drive; make it, or name another file"},
    {ERROR_ACCESS_DENIED,
     "it is read-only, a directory, a device or FIFO, or in a directory that may not be written; name another file"},
    {ERROR_WRITE_PROTECT, "its file system is read-only; name a file elsewhere"},
    {ERROR_SHARING_VIOLATION, "another program uses it; close that program and record the machine again"},
    {ERROR_DISK_FULL, "the disk is full; make room and record the machine again"},
    {ERROR_INVALID_NAME, "that is no file name; name another file"},
    {ERROR_FILENAME_EXCED_RANGE, "the name is too long; name another file"},
};

std::string FileError(std::uint32_t code) {
  for (const ErrorMeaning &meaning : kFileErrors) {
    if (meaning.code == code) return meaning.text;
  }
  return "the system's error is " + std::to_string(code) + "; name another file";
}

std::string InLog(const LoggedError &error) { return "the log says: " + error.ForPeople(); }

template <std::size_t kCount>
std::string Explain(const Meaning (&meanings)[kCount], const LoggedError &error) {
  for (const Meaning &meaning : meanings) {
    if (meaning.call != error.call || (meaning.code != 0 && meaning.code != error.code)) continue;
    const bool telling = error.code != 0 && meaning.call != kAllocation;
    return meaning.text + (telling ? " (error " + std::to_string(error.code) + ")" : std::string());
  }
  return InLog(error);
}

// Two disks of a volume may lack the same controller's driver.
void AddIncomplete(CreateRecord *record, const std::string &reason) {
  const auto same = [&](const auto &known) { return known.root == record->root && known.reason == reason; };
  if (std::any_of(record->incomplete.begin(), record->incomplete.end(), same)) return;
  record->incomplete.push_back({record->root, reason});
}

// Of the errors of a volume, and of those that end the recording, the first tells why.
void AddError(CreateRecord *record, const LoggedError &error) {
  const bool volume = error.function == "VXRExt_BuildVXRVolumeHBM" || error.function == "VXRExt_BuildVXRVolDisksHBM";
  if (volume && record->error.empty()) record->error = error;
  const bool whole = error.function == kCollecting || error.function == "VXRExt_CreateBMExtFile";
  if (whole && record->failure.empty()) record->failure = error;
}

}  // namespace

void AddEvent(CreateRecord *record, const VXRMachine_Event &event) {
  switch (event.kind) {
    case VXRMACHINE_VOLUME_CHECKED:
      record->root = MachineText(event.subject);
      record->error = {};
      break;
    case VXRMACHINE_VOLUME_LEFT_OUT:
      record->leftOut.push_back({record->root, Explain(kVolumeErrors, record->error)});
      record->error = {};
      break;
    case VXRMACHINE_VOLUMES_FULL:
      record->full = true;
      break;
    case VXRMACHINE_DEVICE_WITHOUT_DRIVER:
      AddIncomplete(record, MachineText(event.subject) +
                                ": no such device, or it has no driver, service entry or parent; the log tells which");
      break;
    case VXRMACHINE_DISK_NOT_PRESENT:
      AddIncomplete(record, "one of its disks is not among the present devices");
      break;
    case VXRMACHINE_LOG_OPENED:
      record->logFile = MachineText(event.subject);
      break;
    case VXRMACHINE_ERROR_LOGGED:
      AddError(record, ReadError(event));
      break;
    default:
      break;
  }
}

std::string ExplainFailure(const CreateRecord &record, const std::string &file, const std::string &includes) {
  const LoggedError &failure = record.failure;
  const std::string &call = failure.call;
  if (failure.function == kCollecting) return "the machine cannot be recorded: " + Explain(kMachineErrors, failure);
  if (call == "VXRExt_UpdateBMIncludesFile") {
    return includes + ": not updated: " + FileError(failure.code) + "; " + file + " itself is complete";
  }
  if (call == "CreateFile") return file + ": not written: " + FileError(failure.code);
  if (call == "WriteFile" || call == "FlushFileBuffers") {
    return file + ": only a part is written and not to be used: " + FileError(failure.code);
  }
  return file + ": not written: " + (failure.empty() ? "the log does not say why" : InLog(failure));
}
