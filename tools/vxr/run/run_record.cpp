#include "tools/vxr/run/run_record.h"

#include <algorithm>
#include <iterator>

#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/run/record_events.h"

namespace {

constexpr std::string_view kRestoredMount = "SYSTEM_ORG";
constexpr std::string_view kNamedId = "HardwareID";  // a job without it is the usual one

bool IsRestoredKey(const std::string &key) { return key.compare(0, kRestoredMount.size(), kRestoredMount) == 0; }

void CutLineEnd(std::string *text) {
  while (!text->empty() && (text->back() == '\n' || text->back() == '\r')) text->pop_back();
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
      if (event.type == VXR_RESULT_NO_DRIVER) SettleCopies(record, CopyUse::kLeftOver);
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

}  // namespace

void AddEvent(RunRecord *record, const VXRMachine_Event &event) {
  if (!AddSearchEvent(record, event) && !AddLogEvent(record, event) && !AddChoiceEvent(record, event)) {
    AddChangeEvent(record, event);
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
  if (code == VXR_RESULT_NO_DRIVER && record.infFiles != 0) {
    return "Put a package that lists the device's ids for the restored Windows version, with all its files, into the "
           "job's InfDir or a folder below it.";
  }
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

int ExitStatus(std::uint32_t code, const RunRecord &record) {
  const bool lost = code == 0 && LostRestoredValues(record) != 0;
  if (UnsavedRestoredHive(record) != nullptr || lost) return VXR_RESULT_NO_HIVE;
  if (code == 0 && record.noController) return VXR_RESULT_NO_DRIVER;
  return static_cast<int>(code);
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
