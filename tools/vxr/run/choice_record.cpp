#include "tools/vxr/run/choice_record.h"

#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/run/run_record.h"

namespace {

DriverCandidate MakeCandidate(const std::string &inf, const VXRMachine_Event &event) {
  DriverCandidate candidate;
  candidate.inf = inf;
  candidate.id = MachineText(event.detail);
  candidate.rank = event.type;
  candidate.date = event.size;
  return candidate;
}

void AddCandidateEvent(DriverChoice *choice, const VXRMachine_Event &event) {
  if (event.kind == VXRMACHINE_CANDIDATE) {
    choice->candidates.push_back(MakeCandidate(MachineText(event.subject), event));
    choice->candidates.back().description = MachineText(event.text);
  }
  if (choice->candidates.empty()) return;
  DriverCandidate &last = choice->candidates.back();
  if (event.kind == VXRMACHINE_CANDIDATE_DRIVER) {
    last.service = MachineText(event.subject);
    last.version = MachineText(event.detail);
    last.section = MachineText(event.text);
  } else if (event.kind == VXRMACHINE_CANDIDATE_REFUSED) {
    last.reason = MachineText(event.subject);
    last.text = MachineText(event.detail);
  }
}

// What belongs to the device that is being served.
bool AddDeviceChoice(DeviceRecord *device, const VXRMachine_Event &event) {
  if (!device->choice) device->choice.emplace();
  DriverChoice &choice = *device->choice;
  switch (event.kind) {
    case VXRMACHINE_CANDIDATE:
    case VXRMACHINE_CANDIDATE_DRIVER:
    case VXRMACHINE_CANDIDATE_REFUSED:
      AddCandidateEvent(&choice, event);
      return true;
    case VXRMACHINE_OWN_DRIVER:
      choice.own = MakeCandidate(MachineText(event.text), event);
      choice.own->service = MachineText(event.subject);
      return true;
    case VXRMACHINE_OWN_DRIVER_HELD_BACK:
      if (choice.own) choice.own->heldBack = true;
      return true;
    case VXRMACHINE_CANDIDATE_CHOSEN:
      choice.made = true;
      choice.chosenInf = MachineText(event.subject);
      device->infFile = choice.chosenInf;
      if (const DriverCandidate *chosen = ChosenDriver(choice); chosen != nullptr) {
        device->driver = chosen->description;
        device->hardwareId = chosen->id;
      }
      return true;
    case VXRMACHINE_PLAN_WARNING:
      choice.warnings.push_back(MachineText(event.subject));
      return true;
    case VXRMACHINE_PLAN_NOTE:
      choice.notes.push_back(MachineText(event.subject));
      return true;
    case VXRMACHINE_PLAN_SIGNATURES:
      choice.hasCatalog = event.type != 0;
      choice.signedInside = event.size != 0;
      return true;
    default:
      return false;
  }
}

bool IsDeviceChoice(std::uint32_t kind) {
  return (kind >= VXRMACHINE_CANDIDATE && kind <= VXRMACHINE_CANDIDATE_CHOSEN) || kind == VXRMACHINE_PLAN_WARNING ||
         kind == VXRMACHINE_PLAN_NOTE || kind == VXRMACHINE_OWN_DRIVER_HELD_BACK || kind == VXRMACHINE_PLAN_SIGNATURES;
}

}  // namespace

bool AddChoiceEvent(RunRecord *record, const VXRMachine_Event &event) {
  if (IsDeviceChoice(event.kind)) {
    return !record->devices.empty() && AddDeviceChoice(&record->devices.back(), event);
  }
  switch (event.kind) {
    case VXRMACHINE_INF_INDEXED:
      record->infFiles = event.size;
      return true;
    case VXRMACHINE_INF_UNREAD:
      record->unreadInfs.push_back({MachineText(event.subject), MachineText(event.detail)});
      return true;
    case VXRMACHINE_PLAN_VALUE:
      record->plannedValues.push_back(
          {MachineText(event.subject), MachineText(event.detail), MachineText(event.text), event.type, event.size});
      return true;
    case VXRMACHINE_PLAN_DELETE:
      record->plannedDeletions.push_back(
          {MachineText(event.subject), MachineText(event.detail), event.detail == nullptr});
      return true;
    case VXRMACHINE_VALUE_DELETED:
      record->deletions.push_back({MachineText(event.subject), MachineText(event.detail), event.detail == nullptr});
      return true;
    case VXRMACHINE_FILE_LEFT:
      record->problems.push_back(MachineText(event.subject) +
                                 ": stays in the restored system, though its driver was not put in; no device uses it");
      return true;
    case VXRMACHINE_HIVE_NOT_RESTORED:
      record->problems.push_back(
          MachineText(event.subject) +
          ": could not be put back as it was before the failure, so the system's hive is not saved: run again");
      return true;
    case VXRMACHINE_JOB_VALUE_UNKNOWN:
      record->problems.push_back(
          "The job's " + MachineText(event.subject) +
          (event.detail == nullptr
               ? std::string(" is not of the type that it must have, so that it was passed over")
               : " is \"" + MachineText(event.detail) + "\", which is none of its texts, so that it counted as exact") +
          ": correct it, or delete it");
      return true;
    default:
      return event.kind == VXRMACHINE_PLAN_KEY;  // told by the values below it
  }
}

const DriverCandidate *ChosenDriver(const DriverChoice &choice) {
  if (!choice.made) return nullptr;
  if (choice.chosenInf.empty()) return choice.own ? &*choice.own : nullptr;
  for (const DriverCandidate &candidate : choice.candidates) {
    if (candidate.inf == choice.chosenInf && candidate.reason.empty()) return &candidate;
  }
  return nullptr;
}
