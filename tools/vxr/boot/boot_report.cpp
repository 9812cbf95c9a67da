#include "tools/vxr/boot/boot_report.h"

#include <algorithm>
#include <cstdio>

#include "platform/platform.h"
#include "tools/vxr/base/output.h"

namespace {

constexpr unsigned kNtfs = 0x07;

// --- What the repair tells ------------------------------------------------------------------------------------------

template <typename T>
T &Made(std::optional<T> *record) {
  return *record ? **record : record->emplace(T());
}

void AddFact(BootReport *report, std::uint32_t fact, std::uint64_t value) {
  const auto number = static_cast<std::uint32_t>(value);
  switch (fact) {
    case VXRMACHINE_BOOT_CYLINDERS:
      Made(&report->geometry).cylinders = value;
      break;
    case VXRMACHINE_BOOT_HEADS:
      Made(&report->geometry).heads = number;
      break;
    case VXRMACHINE_BOOT_SECTORS:
      Made(&report->geometry).sectors = number;
      break;
    case VXRMACHINE_BOOT_BYTES:
      Made(&report->geometry).bytes = number;
      break;
    case VXRMACHINE_BOOT_ENTRY:
      Made(&report->partition).index = static_cast<int>(number);
      break;
    case VXRMACHINE_BOOT_TYPE:
      Made(&report->partition).type = number;
      break;
    case VXRMACHINE_BOOT_LENGTH:
      Made(&report->partition).sectors = number;
      break;
    case VXRMACHINE_BOOT_FIRST:
      Made(&report->partition).first = number;
      break;
    case VXRMACHINE_BOOT_FIELD_SECTORS:
      Made(&report->fields).sectors = number;
      break;
    case VXRMACHINE_BOOT_FIELD_HEADS:
      Made(&report->fields).heads = number;
      break;
    case VXRMACHINE_BOOT_FIELD_HIDDEN:
      Made(&report->fields).hidden = number;
      break;
    case VXRMACHINE_BOOT_FIELD_TOTAL:
      Made(&report->fields).total = number;
      break;
    default:
      break;
  }
}

void AddSetField(BootReport *report, std::uint32_t field) {
  if (field == VXRMACHINE_BOOT_FIELD_SECTORS) report->sectorsSet = true;
  if (field == VXRMACHINE_BOOT_FIELD_HEADS) report->headsSet = true;
  if (field == VXRMACHINE_BOOT_FIELD_HIDDEN) report->hiddenSet = true;
  if (field == VXRMACHINE_BOOT_FIELD_TOTAL) report->totalSet = true;
}

// --- What succeeded -------------------------------------------------------------------------------------------------

const char *TypeName(unsigned type) {
  switch (type) {
    case kNtfs:
      return "NTFS";
    case 0x0B:
    case 0x0C:
      return "FAT32";
    case 0x0E:
      return "FAT16";
    case 0x0F:
      return "extended";
    default:
      return "unknown";
  }
}

std::string TypeText(unsigned type) {
  char text[8];
  std::snprintf(text, sizeof text, "0x%02X", type & 0xFF);
  return text;
}

std::string BootSectorPlace(const BootReport &report) {
  if (!report.geometry || !report.partition) return "boot sector";
  return "boot sector " + Bytes(std::uint64_t{report.partition->first} * report.geometry->bytes) + " into the disk";
}

std::string FieldLine(std::string name, const std::string &value) {
  name.resize(17, ' ');
  return name + " " + value;
}

std::string FieldLine(const std::string &name, std::uint32_t found, bool set, std::uint32_t wanted) {
  const std::string value = std::to_string(found);
  return FieldLine(name, set ? value + " -> " + std::to_string(wanted) + "  set" : value + "  agrees");
}

void DescribeFields(const BootReport &report, std::vector<std::string> *lines) {
  const auto &[sectors, heads, hidden, total] = *report.fields;
  lines->push_back(FieldLine("Sectors a track", sectors, report.sectorsSet, report.geometry->sectors & 0xFFFF));
  lines->push_back(FieldLine("Heads", heads, report.headsSet, report.geometry->heads & 0xFFFF));
  lines->push_back(FieldLine("Hidden sectors", hidden, report.hiddenSet, report.partition->first));
  if (report.partition->type == kNtfs) {
    lines->push_back(FieldLine("Total sectors", total, report.totalSet, report.partition->sectors - 1));
  } else {
    lines->push_back(FieldLine("Total sectors", "not kept there by this file system"));
  }
}

// --- What failed ----------------------------------------------------------------------------------------------------

std::string Reason(DWORD code) {
  switch (code) {
    case ERROR_ACCESS_DENIED:
      return " (access is denied)";
    case ERROR_WRITE_PROTECT:
      return " (it is write-protected)";
    case ERROR_SECTOR_NOT_FOUND:
      return " (the disk is too short)";
    case ERROR_SHARING_VIOLATION:
      return " (it is in use)";
    default:
      return " (system error " + std::to_string(code) + ")";
  }
}

std::string ExplainOpenFailure(DWORD code) {
  switch (code) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
      return R"(there is no such disk; give the device name of a disk of the machine, such as \\.\PhysicalDrive0)";
    case ERROR_NOT_READY:
      return "the machine has no image for it; add \"image\" to its [[disk]]";
    default:
      return "cannot be opened for reading and writing" + Reason(code) + "; give a disk that you may read and write";
  }
}

// What went wrong before the active partition was known.
std::string ExplainDiskFailure(const LoggedError &failure) {
  if (failure.call == "CreateFile") return ExplainOpenFailure(failure.code);
  if (failure.call == "DeviceIoControl" && failure.code == ERROR_INVALID_FUNCTION) {
    return "it is no disk, or one without a geometry; give the device name of a disk of the machine, and add "
           "\"geometry\" to its [[disk]]";
  }
  if (failure.call == "DeviceIoControl")
    return "its geometry cannot be read" + Reason(failure.code) + "; check the disk";
  if (failure.call == "ReadFile") {
    return "its first sector cannot be read" + Reason(failure.code) + "; check that this is the right disk";
  }
  if (failure.call == "IS_MAGICOK") {
    return "its first sector is no master boot record (55 AA is missing at byte 510); check that this is the right "
           "disk, or restore its partition table first";
  }
  if (failure.call == "IS_ACTIVE") {
    return "no partition is active (on a GPT disk none is); mark the one that Windows starts from as active";
  }
  return "";
}

std::string ExplainPartitionFailure(const BootReport &report, const LoggedError &failure) {
  const std::string active = "the active partition (entry " + std::to_string(report.partition->index + 1) + ")";
  const std::string place = BootSectorPlace(report);
  if (failure.call == "IS_WINPART") {
    return active + " has type " + TypeText(report.partition->type) +
           ", which is not Windows' own (07, 0B, 0C, 0E or 0F); mark the one that Windows starts from as active";
  }
  if (failure.call == "SetFilePointer" || failure.call == "ReadFile") {
    return "the " + place + " cannot be read" + Reason(failure.code) +
           "; check that the disk is as large as its partition table says, and that its bytes a sector are right";
  }
  if (failure.call == "IS_MAGICOK") {
    return "there is no " + place + " (55 AA is missing at byte 510 of the sector); restore the partition first, or " +
           "correct the disk's bytes a sector";
  }
  if (failure.call == "WriteFile") {
    return "the " + place + " could not be written" + Reason(failure.code) +
           "; it is as the disk left it, old or new: run again once the disk can be written";
  }
  if (report.refused == VXRMACHINE_BOOT_FIRST) {
    return active + " begins at the master boot record, which is never changed; correct the partition table";
  }
  return "";
}

}  // namespace

void AddEvent(BootReport *report, const VXRMachine_Event &event) {
  switch (event.kind) {
    case VXRMACHINE_BOOT_FACT:
      AddFact(report, event.type, event.size);
      break;
    case VXRMACHINE_BOOT_FIELD_SET:
      AddSetField(report, event.type);
      break;
    case VXRMACHINE_BOOT_REFUSED:
      report->refused = event.type;
      break;
    case VXRMACHINE_ERROR_LOGGED:
      if (report->error.empty()) report->error = ReadError(event);
      break;
    default:
      break;
  }
}

std::vector<std::string> DescribeRepair(const BootReport &report, const std::string &disk) {
  std::vector<std::string> lines;
  if (!report.geometry || !report.partition || !report.fields) return {"Disk " + disk + ": the boot sector agrees."};
  const BootReport::Geometry &geometry = *report.geometry;
  const BootReport::Partition &partition = *report.partition;
  lines.push_back("Disk " + disk + ": " + std::to_string(geometry.cylinders) + " cylinders, " +
                  std::to_string(geometry.heads) + " heads, " + std::to_string(geometry.sectors) +
                  " sectors a track, " + std::to_string(geometry.bytes) + " bytes a sector");
  lines.push_back("Active partition: entry " + std::to_string(partition.index + 1) + ", type " +
                  TypeText(partition.type) + " (" + TypeName(partition.type) + "), " +
                  std::to_string(partition.sectors) + " sectors from sector " + std::to_string(partition.first) + ", " +
                  BootSectorPlace(report));
  DescribeFields(report, &lines);
  const bool written = report.sectorsSet || report.headsSet || report.hiddenSet || report.totalSet;
  lines.emplace_back(written ? "The boot sector was written." : "Nothing had to be changed.");
  return lines;
}

std::string ExplainFailure(const BootReport &report, const std::string &disk) {
  const LoggedError &failure = report.error;
  std::string text = report.partition ? ExplainPartitionFailure(report, failure) : ExplainDiskFailure(failure);
  if (report.refused == VXRMACHINE_BOOT_BYTES) {
    text = "its sectors cannot have " + std::to_string(report.geometry ? report.geometry->bytes : 0) +
           " bytes; correct its description";
  }
  if (text.empty()) text = "the boot sector was not repaired: " + report.error.line;
  return disk + ": " + text;
}
