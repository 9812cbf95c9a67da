#include <algorithm>
#include <string_view>

#include "platform/text/ansi_case.h"
#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/run/record_events.h"

namespace {

// Two attempts are made at each file, and more where several ids or INF files name it; only what became of the file
// counts. What a device needs stays needed.
void AddCopy(RunRecord *record, CopyRecord copy) {
  std::vector<CopyRecord> &copies = record->copies;
  const auto known = std::find_if(copies.begin(), copies.end(), [&](const CopyRecord &other) {
    return machine::SameUtf8(other.target, copy.target);
  });
  if (known != copies.end()) {
    if (known->use == CopyUse::kNeeded) copy.use = CopyUse::kNeeded;
    copies.erase(known);
  }
  copies.push_back(std::move(copy));
}

bool IsValue(const FailedValue &failed, std::string_view key, std::string_view name) {
  return !failed.wholeKey && machine::SameUtf8(failed.key, key) && machine::SameUtf8(failed.name, name);
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
    return value.wholeKey ? other.wholeKey && machine::SameUtf8(other.key, value.key)
                          : IsValue(other, value.key, value.name);
  };
  std::vector<FailedValue> &failed = record->failedValues;
  if (std::none_of(failed.begin(), failed.end(), same)) failed.push_back(std::move(value));
}

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
      hive.digest = MachineText(event.text);
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

}  // namespace

// A check of one id in one file copies nothing that could be left over.
void SettleCopies(RunRecord *record, CopyUse use) {
  if (record->devices.empty() || record->devices.back().named) return;
  for (CopyRecord &copy : record->copies) {
    if (copy.use == CopyUse::kPending) copy.use = use;
  }
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

void AddChangeEvent(RunRecord *record, const VXRMachine_Event &event) {
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
    case VXRMACHINE_PLAN_FILE:
      AddCopy(record, {MachineText(event.detail), MachineText(event.subject), event.size, false, "", false, {}});
      break;
    case VXRMACHINE_PATH_REFUSED:
      record->refusedPaths.push_back({MachineText(event.subject), MachineText(event.detail)});
      break;
    default:
      break;
  }
}
