#include <algorithm>

#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/run/record_events.h"
#include "vxrcore/bmext.h"

namespace {

DeviceRecord *FindDevice(RunRecord *record, std::string_view instance) {
  for (DeviceRecord &device : record->devices) {
    if (device.instance == instance) return &device;
  }
  return nullptr;
}

// Where nobody tells which file a device's driver came from, it is the one that the platform found it by.
void TakeDriver(RunRecord *record, const VXRMachine_Event &event) {
  DeviceRecord *device = FindDevice(record, MachineText(event.detail));
  if (device != nullptr && device->infFile.empty()) device->infFile = MachineText(event.subject);
}

DeviceRecord *CurrentDevice(RunRecord *record) { return record->devices.empty() ? nullptr : &record->devices.back(); }

// The attempt at the INF file that was tried is over: of all attempts at it the one that got furthest is kept.
void EndAttempt(RunRecord *record) {
  DeviceRecord *device = CurrentDevice(record);
  if (device != nullptr && !record->triedInf.empty()) {
    Refusal &kept = device->refusals[record->triedInf];
    if (record->tried.reason > kept.reason) kept = std::move(record->tried);
  }
  record->triedInf.clear();
  record->tried = {};
}

void AddDevice(RunRecord *record, const std::string &instance, bool named) {
  EndAttempt(record);
  record->devices.emplace_back();
  record->devices.back().instance = instance;
  record->devices.back().named = named;
}

void AddRefusal(RunRecord *record, const VXRMachine_Event &event) {
  Refusal &tried = record->tried;
  if (event.type == VXRMACHINE_REFUSED_RESTORED_SYSTEM && tried.reason > event.type) return;
  tried.reason = event.type;
  tried.detail = MachineText(event.detail);
}

// The driver is that of the file that was tried last, whatever file its list of drivers was built from.
void AddDriver(RunRecord *record, const VXRMachine_Event &event) {
  record->tried.reason = 0;  // the attempt goes on: the driver may yet fail to be registered
  record->tried.detail.clear();
  DeviceRecord *device = CurrentDevice(record);
  if (device == nullptr) return;
  device->infFile = record->triedInf;
  device->driver = MachineText(event.subject);
  device->hardwareId = MachineText(event.detail);
}

void FailDevice(RunRecord *record, const char *rawInstance) {
  EndAttempt(record);
  const bool known = rawInstance != nullptr;
  DeviceRecord *device = known ? FindDevice(record, MachineText(rawInstance)) : CurrentDevice(record);
  if (device == nullptr) return;
  if (!known) {
    record->noController = true;
    record->problems.push_back(device->instance +
                               ": no controller stands above it in the device tree (it has no parent), and none got a "
                               "driver: give the device its parent");
    return;
  }
  device->failed = true;
  // By Windows' rules one index serves all devices.
  device->unsearched = device->directories.empty() && device->refusals.empty() && record->infFiles == 0;
  device->infFile.clear();
}

void AddOnce(std::vector<std::string> *list, const std::string &text) {
  if (std::find(list->begin(), list->end(), text) == list->end()) list->push_back(text);
}

const char *DeviceClass(std::uint32_t deviceType) {
  return deviceType == VXR_DEVTYPE_DISKDRIVE ? "DiskDrive" : deviceType == VXR_DEVTYPE_HDC ? "hdc" : "SCSIAdapter";
}

}  // namespace

bool AddSearchEvent(RunRecord *record, const VXRMachine_Event &event) {
  DeviceRecord *device = CurrentDevice(record);
  switch (event.kind) {
    case VXRMACHINE_DEVICE_CHECKED:
      AddDevice(record, MachineText(event.subject), event.type != 0);
      return true;
    case VXRMACHINE_DEVICE_ID:
      if (device != nullptr) device->ids.push_back(MachineText(event.subject));
      return true;
    case VXRMACHINE_DEVICE_TARGET:
      if (device != nullptr) device->targets.push_back(MachineText(event.subject));
      return true;
    case VXRMACHINE_DIRECTORY_SEARCHED:
      EndAttempt(record);
      if (device != nullptr) AddOnce(&device->directories, MachineText(event.subject));
      return true;
    case VXRMACHINE_INF_TRIED:
      EndAttempt(record);
      record->triedInf = MachineText(event.subject);
      record->tried = {MachineText(event.detail), 0, ""};
      return true;
    case VXRMACHINE_INF_REFUSED:
      AddRefusal(record, event);
      if (event.type == VXRMACHINE_REFUSED_NOT_REGISTERED) SettleCopies(record, CopyUse::kLeftOver);
      return true;
    case VXRMACHINE_MODEL_GIVEN_UP:
      SettleCopies(record, CopyUse::kLeftOver);
      return true;
    case VXRMACHINE_DEVICE_SET_UP:
      SettleCopies(record, CopyUse::kNeeded);
      return true;
    case VXRMACHINE_INF_PROCESSED:
      TakeDriver(record, event);
      return true;
    case VXRMACHINE_DRIVER_TAKEN:
      AddDriver(record, event);
      return true;
    case VXRMACHINE_DEVICE_FAILED:
      FailDevice(record, event.subject);
      return true;
    case VXRMACHINE_DISK_ALONE:
      record->noController = true;
      record->problems.push_back(MachineText(event.subject) +
                                 ": is on neither an IDE nor a SCSI bus, so that no controller was looked for above it "
                                 "and none got a driver: describe the disk as its controller's driver shows it to the "
                                 "restored system (SCSI\\Disk...)");
      return true;
    case VXRMACHINE_DEVICE_OF_OTHER_CLASS:
      record->problems.push_back(MachineText(event.subject) + ": is not of the class " + DeviceClass(event.type) +
                                 ", in which it was looked for by the bus of the disk, so that no INF file was looked "
                                 "for: correct the device's class");
      return true;
    default:
      return false;
  }
}
