#include "tools/vxr/extension/create_record.h"

#include <algorithm>
#include <cstdint>

#include "platform/platform.h"
#include "tools/vxr/base/output.h"

namespace {

// What a failing step means, by the text that its line holds.
struct Meaning {
  std::string_view mark;
  const char *text;
};

constexpr Meaning kVolumeErrors[] = {
    {":GetVolumeInformation()", "its label and file system cannot be read, or have more than 15 characters"},
    {":GetVolumeNameForVolumeMountPoint()", "it has no GUID path"},
    {":CreateFile()", "it cannot be opened by its GUID path"},
    {":IOCTL_MOUNTDEV_QUERY_UNIQUE_ID()", "it has no unique id, or one of more than 258 bytes"},
    {":IOCTL_MOUNTDEV_QUERY_DEVICE_NAME()", "it has no device name, or one of more than 129 characters"},
    {":IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS():failed!ec=234:",
     "it has more than the two disk extents that fit the file"},
    {":IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS():failed!ec=122:",
     "it has more than the two disk extents that fit the file"},
    {":IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS()", "its disk extents are not known"},
    {":AllocHeap(", "memory ran out; close other programs and record the machine again"},
};

constexpr Meaning kMachineErrors[] = {
    {":VXRExt_BuildVXRSysInfo()",
     "the system directory lies on no fixed disk, CD-ROM, network drive or RAM disk; check it and its drive"},
    {":VXRDev_GetArchInfo()",
     "the computer's kind is not known; it needs a device of the class Computer with hardware_ids"},
    {":VXRExt_BuildVXRVolumes()", "its drives cannot be listed; it needs at least one"},
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

bool Holds(std::string_view line, std::string_view mark) { return line.find(mark) != std::string_view::npos; }

std::string FileError(std::string_view line) {
  const std::uint32_t code = ReadFailedCall(line).code;
  for (const ErrorMeaning &meaning : kFileErrors) {
    if (meaning.code == code) return meaning.text;
  }
  return "the system's error is " + std::to_string(code) + "; name another file";
}

template <std::size_t kCount>
std::string Explain(const Meaning (&meanings)[kCount], std::string_view line) {
  for (const Meaning &meaning : meanings) {
    if (!Holds(line, meaning.mark)) continue;
    const std::uint32_t code = ReadFailedCall(line).code;
    return meaning.text + (code != 0 ? " (error " + std::to_string(code) + ")" : std::string());
  }
  return "the log says: " + std::string(line);
}

std::string_view Behind(std::string_view line, std::string_view mark) {
  const std::size_t at = line.find(mark);
  return at == std::string_view::npos ? line : line.substr(at + mark.size());
}

bool Begins(std::string_view line, std::string_view prefix) { return line.substr(0, prefix.size()) == prefix; }

// Two disks of a volume may lack the same controller's driver.
void AddIncomplete(CreateRecord *record, const std::string &reason) {
  const auto same = [&](const auto &known) { return known.root == record->root && known.reason == reason; };
  if (std::any_of(record->incomplete.begin(), record->incomplete.end(), same)) return;
  record->incomplete.push_back({record->root, reason});
}

// The log's file, from the line that says where it goes; the address of its stream stands before the path.
std::string LogFile(std::string_view line, std::string_view mark) {
  const std::string_view path = Behind(Behind(line, mark), ":");
  return std::string(path.substr(0, path.rfind("...")));
}

}  // namespace

void AddLogLine(CreateRecord *record, std::string_view line) {
  constexpr std::string_view kChecking = "CHECK:VXRExt_BuildVXRVolumesHBM:checking mnpnt = ";
  constexpr std::string_view kLogging = ":VXRDbg_Initialize:start logging to ";
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  if (Begins(line, kChecking)) {
    record->root = line.substr(kChecking.size(), line.size() - kChecking.size() - std::string_view("...").size());
    record->error.clear();
  } else if (Begins(line, "ERROR:VXRExt_BuildVXRVolumesHBM:VXRExt_BuildVXRVolumeHBM()")) {
    record->leftOut.push_back({record->root, Explain(kVolumeErrors, record->error)});
    record->error.clear();
  } else if (Begins(line, "ERROR:VXRExt_BuildVXRVolumesHBM:max ")) {
    record->full = true;
  } else if (Begins(line, "ERROR:VXRExt_BuildVXRVolumeHBM:") || Begins(line, "ERROR:VXRExt_BuildVXRVolDisksHBM:")) {
    if (record->error.empty()) record->error = line;
  } else if (Begins(line, "ERROR:VXRExt_BuildVXRVolDisk:VXRDev_GetVXRDevDriver()")) {
    const std::string device(Behind(line, ":msg="));
    AddIncomplete(record,
                  device + ": no such device, or it has no driver, service entry or parent; the log tells which");
  } else if (Begins(line, "ERROR:VXRExt_BuildVXRVolDisk:")) {
    AddIncomplete(record, "one of its disks is not among the present devices");
  } else if (Begins(line, "ERROR:VXRExt_CreateBMExtension:") || Begins(line, "ERROR:VXRExt_CreateBMExtFile:")) {
    if (record->failure.empty()) record->failure = line;
  } else if (Holds(line, kLogging)) {
    record->logFile = LogFile(line, kLogging);
  }
}

std::string ExplainFailure(const CreateRecord &record, const std::string &file, const std::string &includes) {
  const std::string &line = record.failure;
  if (Begins(line, "ERROR:VXRExt_CreateBMExtension:")) {
    return "the machine cannot be recorded: " + Explain(kMachineErrors, line);
  }
  if (Holds(line, ":VXRExt_UpdateBMIncludesFile()")) {
    return includes + ": not updated: " + FileError(line) + "; " + file + " itself is complete";
  }
  if (Holds(line, ":CreateFile()")) return file + ": not written: " + FileError(line);
  if (Holds(line, ":WriteFile()") || Holds(line, ":FlushFileBuffers()")) {
    return file + ": only a part is written and not to be used: " + FileError(line);
  }
  return file + ": not written: " + (line.empty() ? "the log does not say why" : "the log says: " + line);
}
