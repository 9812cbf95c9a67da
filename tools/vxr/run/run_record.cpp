#include "tools/vxr/run/run_record.h"

#include <algorithm>
#include <iterator>

#include "platform/text/ansi_case.h"
#include "tools/vxr/base/machine_session.h"
#include "vxrcore/bmext.h"

namespace {

constexpr std::string_view kRestoredMount = "SYSTEM_ORG";
constexpr std::string_view kNamedId = "HardwareID";  // a job without it is the usual one

void CutLineEnd(std::string *text) {
  while (!text->empty() && (text->back() == '\n' || text->back() == '\r')) text->pop_back();
}

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

bool SamePath(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return machine::UpperAscii(x) == machine::UpperAscii(y); });
}

// Two attempts are made at each file, and more where several ids or INF files name it; only what became of the file
// counts. What a device needs stays needed.
void AddCopy(RunRecord *record, CopyRecord copy) {
  std::vector<CopyRecord> &copies = record->copies;
  const auto known = std::find_if(copies.begin(), copies.end(),
                                  [&](const CopyRecord &other) { return SamePath(other.target, copy.target); });
  if (known != copies.end()) {
    if (known->use == CopyUse::kNeeded) copy.use = CopyUse::kNeeded;
    copies.erase(known);
  }
  copies.push_back(std::move(copy));
}

// A check of one id in one file copies nothing that could be left over.
void SettleCopies(RunRecord *record, CopyUse use) {
  if (record->devices.empty() || record->devices.back().named) return;
  for (CopyRecord &copy : record->copies) {
    if (copy.use == CopyUse::kPending) copy.use = use;
  }
}

bool IsValue(const FailedValue &failed, std::string_view key, std::string_view name) {
  return !failed.wholeKey && SamePath(failed.key, key) && SamePath(failed.name, name);
}

void AddValue(RunRecord *record, ValueRecord value) {
  std::vector<FailedValue> &failed = record->failedValues;
  failed.erase(std::remove_if(failed.begin(), failed.end(),
                              [&](const FailedValue &other) { return IsValue(other, value.key, value.name); }),
               failed.end());
  record->values.push_back(std::move(value));
}

void AddFailedValue(RunRecord *record, const VXRMachine_Event &event) {
  FailedValue value;
  value.key = MachineText(event.subject);
  value.name = MachineText(event.detail);
  value.wholeKey = event.detail == nullptr;
  value.reason = MachineText(event.text);
  value.type = event.type;
  value.error = static_cast<std::uint32_t>(event.size);
  const auto same = [&](const FailedValue &other) {
    return value.wholeKey ? other.wholeKey && SamePath(other.key, value.key) : IsValue(other, value.key, value.name);
  };
  std::vector<FailedValue> &failed = record->failedValues;
  if (std::none_of(failed.begin(), failed.end(), same)) failed.push_back(std::move(value));
}

bool IsRestoredKey(const std::string &key) { return key.compare(0, kRestoredMount.size(), kRestoredMount) == 0; }

HiveRecord *FindHive(RunRecord *record, const std::string &file) {
  const auto known = std::find_if(record->hives.begin(), record->hives.end(),
                                  [&](const HiveRecord &hive) { return hive.file == file; });
  return known == record->hives.end() ? nullptr : &*known;
}

void AddReplay(RunRecord *record, const VXRMachine_Event &event) {
  HiveRecord hive;
  hive.file = MachineText(event.subject);
  hive.replay = MachineText(event.detail);
  if (HiveRecord *known = FindHive(record, hive.file)) {
    known->replay = hive.replay;
  } else {
    record->hives.push_back(std::move(hive));
  }
}

void AddHive(RunRecord *record, const VXRMachine_Event &event) {
  HiveRecord hive;
  hive.file = MachineText(event.subject);
  switch (event.kind) {
    case VXRMACHINE_HIVE_LOADED:
      hive.mountPoint = MachineText(event.detail);
      break;
    case VXRMACHINE_HIVE_SAVED:
      hive.outcome = HiveOutcome::kSaved;
      hive.size = event.size;
      break;
    default:
      hive.outcome = event.kind == VXRMACHINE_HIVE_REFUSED ? HiveOutcome::kRefused : HiveOutcome::kNotSaved;
      hive.reason = MachineText(event.detail);
      hive.size = event.size;
      if (hive.size != 0) hive.outcome = HiveOutcome::kUnflushed;
      break;
  }
  HiveRecord *known = FindHive(record, hive.file);
  if (known == nullptr) {
    record->hives.push_back(std::move(hive));
    return;
  }
  hive.mountPoint = known->mountPoint;
  hive.replay = known->replay;
  *known = std::move(hive);
}

// A hive that could not be unmounted is dropped when the machine closes, and what was set in it is lost.
void DropMounted(RunRecord *record) {
  if (std::none_of(record->values.begin(), record->values.end(), [](const auto &v) { return InRestoredHive(v); })) {
    return;
  }
  for (HiveRecord &hive : record->hives) {
    if (hive.outcome != HiveOutcome::kMounted) continue;
    hive.outcome = HiveOutcome::kNotSaved;
    hive.reason = "it could not be unmounted";
  }
}

// --- The log and the status lines -----------------------------------------------------------------------------------

void AddError(RunRecord *record, const VXRMachine_Event &event) {
  record->lastError = ReadError(event).ForPeople();
  record->firstIsLast = record->firstError.empty();
  if (record->firstIsLast) record->firstError = record->lastError;
}

// The last error was none: it explains no failure.
void ForgetLastError(RunRecord *record) {
  if (record->firstIsLast) record->firstError.clear();
  record->firstIsLast = false;
}

void AddStatusLine(RunRecord *record, const VXRMachine_Event &event) {
  StatusLine line{MachineText(event.subject), event.type, ""};
  CutLineEnd(&line.text);
  // The machine gives a better reason for a hive.
  const bool told = line.code == VXR_RESULT_NO_HIVE && !record->hives.empty();
  if (line.code != VXR_STATUS_PROGRESS && FindResultCode(line.code).causeInLog && !told) {
    line.cause = record->firstError;
  }
  if (line.code == VXR_RESULT_NO_DRIVER) SettleCopies(record, CopyUse::kLeftOver);
  record->firstError.clear();
  record->firstIsLast = false;
  record->lines.push_back(std::move(line));
}

// False for another event.
bool AddLogEvent(RunRecord *record, const VXRMachine_Event &event) {
  switch (event.kind) {
    case VXRMACHINE_LOG_OPENED:
      record->logFile = MachineText(event.subject);
      record->logProblem.clear();
      return true;
    case VXRMACHINE_LOG_NOT_OPENED:
      record->logProblem = "CreateFile(" + MachineText(event.subject) + ") failed!ec=" + std::to_string(event.type);
      return true;
    case VXRMACHINE_ERROR_LOGGED:
      AddError(record, event);
      return true;
    case VXRMACHINE_STATUS_LINE:
      AddStatusLine(record, event);
      return true;
    case VXRMACHINE_KEY_MISSING:
      ForgetLastError(record);
      return true;
    case VXRMACHINE_VALUE_NOT_READ:
      if (MachineText(event.detail) == kNamedId) ForgetLastError(record);
      return true;
    case VXRMACHINE_NAMED_ID_UNREAD:
      record->namedIdProblem = record->lastError;
      return true;
    case VXRMACHINE_HIVE_NOT_UNLOADED:
      DropMounted(record);
      return true;
    case VXRMACHINE_BOOT_DISK_NOT_FOUND:
      record->scanProblem = record->firstError;
      return true;
    default:
      return false;
  }
}

// --- The search for drivers -----------------------------------------------------------------------------------------

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
  device->unsearched = device->directories.empty() && device->refusals.empty();
  device->infFile.clear();
}

void AddOnce(std::vector<std::string> *list, const std::string &text) {
  if (std::find(list->begin(), list->end(), text) == list->end()) list->push_back(text);
}

const char *DeviceClass(std::uint32_t deviceType) {
  return deviceType == VXR_DEVTYPE_DISKDRIVE ? "DiskDrive" : deviceType == VXR_DEVTYPE_HDC ? "hdc" : "SCSIAdapter";
}

// False for another event.
bool AddSearchEvent(RunRecord *record, const VXRMachine_Event &event) {
  DeviceRecord *device = CurrentDevice(record);
  const std::string subject = MachineText(event.subject);
  switch (event.kind) {
    case VXRMACHINE_DEVICE_CHECKED:
      AddDevice(record, subject, event.type != 0);
      return true;
    case VXRMACHINE_DEVICE_ID:
      if (device != nullptr) device->ids.push_back(subject);
      return true;
    case VXRMACHINE_DEVICE_TARGET:
      if (device != nullptr) device->targets.push_back(subject);
      return true;
    case VXRMACHINE_DIRECTORY_SEARCHED:
      EndAttempt(record);
      if (device != nullptr) AddOnce(&device->directories, subject);
      return true;
    case VXRMACHINE_INF_TRIED:
      EndAttempt(record);
      record->triedInf = subject;
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
      record->problems.push_back(subject +
                                 ": is on neither an IDE nor a SCSI bus, so that no controller was looked for above it "
                                 "and none got a driver: describe the disk as its controller's driver shows it to the "
                                 "restored system (SCSI\\Disk...)");
      return true;
    case VXRMACHINE_DEVICE_OF_OTHER_CLASS:
      record->problems.push_back(subject + ": is not of the class " + DeviceClass(event.type) +
                                 ", in which it was looked for by the bus of the disk, so that no INF file was looked "
                                 "for: correct the device's class");
      return true;
    default:
      return false;
  }
}

}  // namespace

void AddEvent(RunRecord *record, const VXRMachine_Event &event) {
  if (AddSearchEvent(record, event) || AddLogEvent(record, event)) return;
  switch (event.kind) {
    case VXRMACHINE_FILE_COPIED:
      AddCopy(record, {MachineText(event.detail), MachineText(event.subject), event.size, true, "", false, {}});
      break;
    case VXRMACHINE_FILE_NOT_COPIED:
      AddCopy(record, {"", MachineText(event.subject), {}, false, MachineText(event.detail), event.size != 0, {}});
      break;
    case VXRMACHINE_VALUE_WRITTEN:
      AddValue(record, {MachineText(event.subject), MachineText(event.detail), MachineText(event.text), event.type,
                        event.size});
      break;
    case VXRMACHINE_VALUE_NOT_WRITTEN:
      AddFailedValue(record, event);
      break;
    case VXRMACHINE_HIVE_LOADED:
    case VXRMACHINE_HIVE_REFUSED:
    case VXRMACHINE_HIVE_SAVED:
    case VXRMACHINE_HIVE_NOT_SAVED:
      AddHive(record, event);
      break;
    case VXRMACHINE_HIVE_REPLAYED:
      AddReplay(record, event);
      break;
    case VXRMACHINE_COPY_BYPASSED:
      AddCopy(record, {MachineText(event.detail), MachineText(event.subject), {}, false, "", false, {}});
      break;
    case VXRMACHINE_PATH_REFUSED:
      record->refusedPaths.push_back({MachineText(event.subject), MachineText(event.detail)});
      break;
    default:
      break;
  }
}

std::string AdviceFor(std::uint32_t code, const RunRecord &record) {
  const bool explained = std::any_of(record.devices.begin(), record.devices.end(),
                                     [](const DeviceRecord &device) { return !device.candidates.empty(); });
  if (explained && (code == VXR_RESULT_NO_DRIVER || code == VXR_RESULT_NO_NAMED_DRIVER)) {
    return "Mend what is said above of an INF file that lists the device, or add one that fits.";
  }
  if (code == VXR_RESULT_NO_DRIVER && std::any_of(record.devices.begin(), record.devices.end(),
                                                  [](const DeviceRecord &device) { return device.unsearched; })) {
    return "No INF file was looked for: mend what stands under Problems, or see the log.";
  }
  // The problems say what to do.
  if (code == VXR_RESULT_NO_DRIVER && (record.noController || record.badDirectory)) return "";
  if (code == VXR_RESULT_CANCELLED && record.badDirectory) return "";
  return FindResultCode(code).advice;
}

const HiveRecord *UnsavedRestoredHive(const RunRecord &record) {
  for (const HiveRecord &hive : record.hives) {
    const bool failed = hive.outcome == HiveOutcome::kNotSaved || hive.outcome == HiveOutcome::kUnflushed;
    if (failed && !hive.mountPoint.empty()) return &hive;
  }
  return nullptr;
}

std::size_t LostRestoredValues(const RunRecord &record) {
  return static_cast<std::size_t>(std::count_if(record.failedValues.begin(), record.failedValues.end(),
                                                [](const FailedValue &value) { return InRestoredHive(value); }));
}

bool HasProblems(const RunRecord &record) {
  return std::any_of(record.lines.begin(), record.lines.end(),
                     [](const auto &l) { return l.code != VXR_STATUS_PROGRESS; }) ||
         std::any_of(record.copies.begin(), record.copies.end(), [](const auto &c) { return !c.reason.empty(); }) ||
         std::any_of(record.hives.begin(), record.hives.end(), [](const auto &h) { return !h.reason.empty(); }) ||
         !record.failedValues.empty() || !record.namedIdProblem.empty() || !record.refusedPaths.empty() ||
         !record.contradictions.empty() || !record.problems.empty() || !record.scanProblem.empty();
}

bool InRestoredHive(const ValueRecord &value) { return IsRestoredKey(value.key); }

bool InRestoredHive(const FailedValue &value) { return IsRestoredKey(value.key); }

std::vector<ValueRecord> RestoredValues(const RunRecord &record) {
  std::vector<ValueRecord> values;
  const auto restored = [](const ValueRecord &value) { return InRestoredHive(value); };
  std::copy_if(record.values.begin(), record.values.end(), std::back_inserter(values), restored);
  return values;
}
