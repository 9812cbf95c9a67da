#include "package/device_driver.h"

#include <cstring>
#include <memory>

#include "bmext/load.h"
#include "device/records.h"
#include "engine/base/decisions.h"
#include "engine/base/parameters.h"
#include "engine/base/status.h"
#include "engine/base/strings.h"
#include "engine/paths/path_catalogue.h"
#include "log/log.h"
#include "package/plan/apply.h"
#include "package/restored_system.h"
#include "restore/settings.h"

namespace package {
namespace {

// What the devices of a run share.
struct RunChoice {
  PlanContext context;
  IncludePlaces includes;
  Index index;
  std::vector<std::string> directories;  // that are indexed
  // What a verification would have changed in the hive for earlier devices, which counts as made. An injection has made
  // it. The files are in `context`.
  RegistryEdits pending;
};
std::unique_ptr<RunChoice> run;

// One device's choice.
struct Choice {
  std::vector<Candidate> candidates;
  OwnDriver own;
  bool hasOwn = false;
  const Candidate *chosen = nullptr;  // null: the system's own, or none
  bool found = false;
  Plan plan;
};

void TellIndexed(void *, std::size_t files) {
  platform::ReportDecision(VXRMACHINE_INF_INDEXED, nullptr, nullptr, 0, files);
}

void IndexDirectory(const char *directory, bool inbox, RunChoice *made) {
  VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Looking for driver information in %s...\n", directory);
  made->directories.push_back(directory);
  AddDirectory(&made->index, directory, inbox, TellIndexed);
}

bool IndexNamedDirectory(DWORD id, RunChoice *made, const Caller &trace) {
  const HeapText directory = VXREng_GetStringAs(id, nullptr);
  if (directory == nullptr) {
    trace.Failed("VXREng_GetStringAs", id == VXR_DIR_WPEINF ? "VXR_DIR_WPEINF" : "VXR_DIR_RLMINF");
    return false;
  }
  IndexDirectory(directory.get(), id == VXR_DIR_WPEINF, made);
  return true;
}

void TellUnread(const std::vector<UnreadFile> &files, const Caller &trace) {
  for (const UnreadFile &unread : files) {
    trace.Warning("%s:passed over:%s\n", unread.path.c_str(), unread.reason.c_str());
    platform::ReportDecision(VXRMACHINE_INF_UNREAD, unread.path.c_str(), unread.reason.c_str());
  }
}

// The restored system and the index, made for the first device that asks; null after logging.
RunChoice *CurrentRun(const Caller &trace) {
  if (run != nullptr) return run.get();
  auto made = std::make_unique<RunChoice>();
  PlanContext &context = made->context;
  context.controlSet = RestoredControlSet();
  context.automaticRecord = VXRRlm_GetChoices().record == BootRecordKind::kAutomatic;
  if (!ReadRestoredTarget(made->pending, context.controlSet, &context.target)) return nullptr;
  if (!ReadRestoredPlaces(&context.places)) return nullptr;
  context.systemDrive = std::string(VXRExt_GetWindowsPath()).substr(0, context.places.root.size());
  made->includes = RestoredIncludes(context.places);
  made->index = MakeIndex(context.target);
  if (!IndexNamedDirectory(VXR_DIR_RLMINF, made.get(), trace)) return nullptr;
  const char *more = VXRRlm_GetChoices().infDirs.c_str();
  for (; *more != '\0'; more += std::strlen(more) + 1) IndexDirectory(more, false, made.get());
  // A system before 6.0 records only the devices that it has met, and has the drivers of more.
  if (!AtLeast(context.target, 6, 0)) IndexDirectory(context.places.inf.c_str(), true, made.get());
  if (!IndexNamedDirectory(VXR_DIR_WPEINF, made.get(), trace)) return nullptr;
  trace.Check("Total %u inf files indexed...\n", static_cast<DWORD>(made->index.files.size()));
  TellUnread(made->index.unread, trace);
  run = std::move(made);
  return run.get();
}

// Plans a candidate's installation into the choice; else the candidate is refused, unless it was the hive that failed.
bool PlanCandidate(const RunChoice &current, Candidate *candidate, Choice *choice) {
  Plan plan;
  plan.edits = current.pending;
  if (!candidate->service.empty()) {
    Installation installation;
    PlanRefusal refusal{Refusal::kFileMissing, {}};  // of an INF file that was there for the index
    const bool planned = ReadCandidate(*candidate, current.index, current.includes, &installation, &refusal.text) &&
                         PlanPackage(*candidate, installation, current.context, &plan, &refusal);
    choice->plan.edits.unread = plan.edits.unread;
    if (!planned) {
      candidate->refusal = refusal.kind;
      candidate->refusalText = std::move(refusal.text);
      return false;
    }
  } else {
    // That is an answer. But a boot disk hangs off the devices that are asked for here.
    plan.warnings.push_back(candidate->rank.path +
                            " says that the device needs no driver: should its disk not be found at the start, give a "
                            "package that has one, and take this one away");
  }
  choice->plan = std::move(plan);
  choice->chosen = candidate;
  return true;
}

// The first candidate that can be installed and is better than what the system has; else what the system has. None when
// the hive cannot be read: another driver would then be taken for no fault of the better one.
void Choose(const RunChoice &current, Choice *choice) {
  for (Candidate &candidate : choice->candidates) {
    if (candidate.refusal != Refusal::kNone) continue;
    if (choice->hasOwn && !Beats(candidate, choice->own)) continue;
    if (PlanCandidate(current, &candidate, choice)) {
      // A device that needs no driver gets no record, and one whose package has no catalogue is worth less to Windows.
      const bool weak = candidate.service.empty() || (choice->plan.fromPackage && !choice->plan.hasCatalog);
      if (choice->hasOwn && weak) PlanOwnDriverBeside(choice->own, current.context, &choice->plan);
      break;
    }
    if (!choice->plan.edits.unread.empty()) return;
  }
  choice->found = choice->chosen != nullptr || choice->hasOwn;
  if (choice->chosen != nullptr || !choice->hasOwn) return;
  choice->plan.edits = current.pending;
  PlanOwnDriver(choice->own, current.context, &choice->plan);
}

const char *NullWhenEmpty(const std::string &text) { return text.empty() ? nullptr : text.c_str(); }

void TellCandidate(const Candidate &candidate, const Caller &trace) {
  const Rank &rank = candidate.rank;
  platform::ReportDecision(VXRMACHINE_CANDIDATE, rank.path.c_str(), candidate.id.c_str(), rank.value, rank.date,
                           candidate.description.c_str());
  platform::ReportDecision(VXRMACHINE_CANDIDATE_DRIVER, NullWhenEmpty(candidate.service), candidate.version.c_str(), 0,
                           0, candidate.section.c_str());
  trace.Check("%s:id=%s:section=%s:rank=0x%08x:date=%s:version=%s:service=%s\n", rank.path.c_str(),
              candidate.id.c_str(), candidate.section.c_str(), rank.value, DateText(rank.date).c_str(),
              candidate.version.c_str(), candidate.service.c_str());
  if (candidate.refusal == Refusal::kNone) return;
  const char *word = RefusalWord(candidate.refusal);
  platform::ReportDecision(VXRMACHINE_CANDIDATE_REFUSED, word, candidate.refusalText.c_str());
  trace.Check("%s:refused:%s:%s\n", rank.path.c_str(), word, candidate.refusalText.c_str());
}

void TellChoice(const Choice &choice, const Caller &trace) {
  for (const Candidate &candidate : choice.candidates) TellCandidate(candidate, trace);
  if (choice.hasOwn) {
    const OwnDriver &own = choice.own;
    platform::ReportDecision(VXRMACHINE_OWN_DRIVER, NullWhenEmpty(own.service), own.id.c_str(), own.rank.value,
                             own.rank.date, own.rank.path.c_str());
    if (own.heldBack) platform::ReportDecision(VXRMACHINE_OWN_DRIVER_HELD_BACK, NullWhenEmpty(own.service));
    trace.Check("restored system:id=%s:inf=%s:rank=0x%08x:date=%s:service=%s:%s\n", own.id.c_str(),
                own.rank.path.c_str(), own.rank.value, DateText(own.rank.date).c_str(), own.service.c_str(),
                own.heldBack ? "held back" : "starts with the system");
  }
  if (!choice.found) return;
  const std::string &service = choice.chosen != nullptr ? choice.chosen->service : choice.own.service;
  platform::ReportDecision(VXRMACHINE_CANDIDATE_CHOSEN,
                           choice.chosen != nullptr ? choice.chosen->rank.path.c_str() : nullptr,
                           NullWhenEmpty(service));
  trace.Check("chosen:%s:service=%s\n",
              choice.chosen != nullptr ? choice.chosen->rank.path.c_str() : "the restored system's own driver",
              service.empty() ? "none needed" : service.c_str());
}

// The driver record that the rest of the run knows a device with a driver by; false without memory.
bool RecordDriver(const Choice &choice, VXR_DEVICE *device) {
  if (device->pVXRDriver != nullptr) VXRDev_FreeDriver(device->pVXRDriver);
  device->pVXRDriver = AllocRecord<VXR_DRIVER>("pVXRDriver").release();
  VXR_DRIVER *driver = device->pVXRDriver;
  if (driver == nullptr) return false;
  driver->iDevEnum = device->iDevEnum;
  driver->hDevInst = device->hDevInst;
  driver->guDevice = device->guDevice;
  driver->bInject = device->bInject;
  driver->pVXRDevice = device;
  const std::string &id = choice.chosen != nullptr ? choice.chosen->id : choice.own.id;
  for (const char *ids : {device->szHardwareID, device->szCompatibleIDs}) {
    const int32_t number = ids == nullptr ? 0 : VXREng_FindMatch(id.c_str(), ids);
    if (number != 0 && driver->szMatchedID == nullptr) driver->szMatchedID = VXREng_GetSubString(number, ids);
  }
  const std::string &service = choice.chosen != nullptr ? choice.chosen->service : choice.own.service;
  if (service.empty()) return true;
  driver->szService = AllocText(service.size() + 1, "szService").release();
  if (driver->szService == nullptr) return false;
  std::memcpy(driver->szService, service.c_str(), service.size() + 1);
  return true;
}

// Tells what the plan is and, in injection mode, makes it so.
bool CarryOut(RunChoice *current, Choice *choice, BOOL inject, const Caller &trace) {
  ReportRemarks(choice->plan);
  if (!inject) {
    Plan &plan = choice->plan;
    PlanContext &context = current->context;
    ReportPlan(plan, current->pending.list.size());
    current->pending = std::move(plan.edits);
    context.earlierFiles.insert(context.earlierFiles.end(), plan.files.begin(), plan.files.end());
    context.earlierDirectories.insert(context.earlierDirectories.end(), plan.directories.begin(),
                                      plan.directories.end());
    return true;
  }
  VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Updating registry for corresponding drivers...\n");
  std::string failed;
  switch (ApplyPlan(choice->plan, &failed)) {
    case ApplyResult::kDone:
      return true;
    case ApplyResult::kFileNotCopied:
      VXREng_StatusMsg(VXR_RESULT_FILE_NOT_COPIED, "Failed to copy %s\n", failed.c_str());
      return false;
    case ApplyResult::kNotReady:
    case ApplyResult::kHiveNotChanged:
      trace.Error("the driver was not put into the restored system:%s\n", failed.c_str());
      return false;
  }
  return false;
}

}  // namespace

BOOL FindDeviceDriver(VXR_DEVICE *device, const std::vector<DeviceIds> &above) {
  const CallTrace trace = TraceCall();
  if (device->VXRDevType == VXR_DEVTYPE_DISKDRIVE) {
    trace.Check("DISKDRIVE, bypass adding driver...\n");
    return TRUE;
  }
  RunChoice *current = CurrentRun(trace);
  if (current == nullptr) return FALSE;
  for (const std::string &directory : current->directories) {
    platform::ReportDecision(VXRMACHINE_DIRECTORY_SEARCHED, directory.c_str());
  }
  PlanContext &context = current->context;
  context.classGuid = device->guDevice;
  context.device = IdsOf(device->szHardwareID, device->szCompatibleIDs);

  current->pending.unread.clear();  // each device has its own try
  Choice choice;
  std::vector<UnreadFile> unread;
  choice.candidates = FindCandidates(current->index, context.device, current->includes, &unread);
  TellUnread(unread, trace);
  std::vector<std::string> passedOver;
  choice.hasOwn = FindOwnDriver(current->pending, context.controlSet, context.device, context.target, context.places,
                                &choice.own, &passedOver);
  choice.plan.edits.unread = current->pending.unread;
  if (choice.plan.edits.unread.empty()) Choose(*current, &choice);
  std::vector<std::string> &said = choice.found ? choice.plan.notes : choice.plan.warnings;
  said.insert(said.end(), passedOver.begin(), passedOver.end());
  TellChoice(choice, trace);
  if (choice.found) PlanDevicesAbove(above, context, &choice.plan);
  if (!choice.plan.edits.unread.empty()) {
    trace.Error("the hive could not be read, nothing is done for %s:%s\n", device->szInstanceID,
                choice.plan.edits.unread.c_str());
    return FALSE;
  }
  if (!choice.found) {
    ReportRemarks(choice.plan);
    trace.Error("no driver for %s among %u inf files\n", device->szInstanceID,
                static_cast<DWORD>(current->index.files.size()));
    return FALSE;
  }
  if (!RecordDriver(choice, device) || !CarryOut(current, &choice, device->bInject, trace)) return FALSE;
  platform::ReportDecision(VXRMACHINE_DEVICE_SET_UP, device->szInstanceID);
  VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Successful in %s for %s...\n",
                   device->bInject ? "driver files injection" : "driver files verification", device->szInstanceID);
  return TRUE;
}

void EndDriverChoice() { run.reset(); }

BOOL HasDriverFor(const char *infPath, const char *hardwareId) {
  const CallTrace trace = TraceCall();
  const RegistryEdits none;
  const std::string controlSet = RestoredControlSet();
  Target target;
  RestoredPlaces places;
  if (!ReadRestoredTarget(none, controlSet, &target) || !ReadRestoredPlaces(&places)) return FALSE;
  Index index = MakeIndex(target);
  AddFile(&index, infPath);
  Choice choice;
  choice.candidates = FindCandidates(index, {{hardwareId}, {}}, RestoredIncludes(places), &index.unread);
  TellUnread(index.unread, trace);
  choice.found = !choice.candidates.empty() && choice.candidates.front().refusal == Refusal::kNone;
  if (choice.found) choice.chosen = &choice.candidates.front();
  TellChoice(choice, trace);
  return choice.found;
}

}  // namespace package
