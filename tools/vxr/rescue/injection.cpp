#include "tools/vxr/rescue/injection.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/host/digest.h"
#include "platform/machine/host/file_bytes.h"
#include "platform/scope_guard.h"
#include "rescue/describe.h"
#include "rescue/hibernation.h"
#include "rescue/undo.h"
#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/rescue/given_record.h"
#include "vxrcore/machine.h"
#include "vxrcore/vxrcore.h"

namespace fs = std::filesystem;

namespace {

// --- Progress --------------------------------------------------------------------------------------------------------

// One line that is written over while packages are read, on a terminal only.
struct Progress {
  const bool shown = isatty(STDERR_FILENO) != 0;
  bool open = false;
  std::uint64_t files = 0, found = 0;
};

void Show(Progress *progress) {
  if (!progress->shown) return;
  std::fprintf(stderr, "\rReading driver packages: %llu INF files, %llu list a device of this machine",
               static_cast<unsigned long long>(progress->files), static_cast<unsigned long long>(progress->found));
  std::fflush(stderr);
  progress->open = true;
}

void EndProgress(Progress *progress) {
  if (progress->open) std::fputs("\r\x1b[K", stderr);
  progress->open = false;
}

// --- Runs ------------------------------------------------------------------------------------------------------------

struct Listener {
  bool rehearsal = false;
  RunRecord record;
  Progress progress;
};

void OnInjectionEvent(void *context, const VXRMachine_Event *event) {
  Listener *listener = static_cast<Listener *>(context);
  if (event->kind == VXRMACHINE_FILE_LEFT && listener->rehearsal) return;  // nothing was copied
  const std::string error = listener->record.firstError;
  AddEvent(&listener->record, *event);
  if (event->kind == VXRMACHINE_INF_INDEXED) listener->progress.files = event->size;
  if (event->kind == VXRMACHINE_CANDIDATE) ++listener->progress.found;
  if (event->kind == VXRMACHINE_INF_INDEXED || event->kind == VXRMACHINE_CANDIDATE) Show(&listener->progress);
  if (event->kind != VXRMACHINE_STATUS_LINE) return;
  // A rehearsal has no log file to look into: each failure brings the log's first error line.
  StatusLine &line = listener->record.lines.back();
  if (line.cause.empty()) line.cause = error;
}

std::uint32_t Run(Listener *listener) {
  VXRMachine_SetObserver(OnInjectionEvent, listener);
  void *window = OpenStatusWindow();
  const std::uint32_t code = VXREng_RunVXR(rescue::kJob, 1, nullptr, window);
  VXREng_SetStatusWnd(nullptr, 0);
  VXRMachine_DestroyWindow(window);
  VXRDbg_Cleanup();
  EndProgress(&listener->progress);
  VXRMachine_SetObserver(nullptr, nullptr);
  return code;
}

// --- What an injection would change ----------------------------------------------------------------------------------

machine::Status DigestOf(const fs::path &file, rescue::PlannedChange *change) {
  const machine::Descriptor opened(open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!opened) return machine::Status::System(file.string() + " cannot be read");
  machine::Status read = machine::RegularFileSize(opened.fd, &change->size);
  if (read) read = machine::FileDigest(opened.fd, change->size, &change->digest);
  return read ? read : machine::SaidAs(file.string() + " " + Words(read), std::move(read));
}

// The directories above a new file that are not there, the outermost first.
void AddNewDirectories(const fs::path &volume, const fs::path &file, std::vector<rescue::PlannedChange> *changes) {
  std::error_code error;
  std::vector<rescue::PlannedChange> found;
  for (fs::path above = file.parent_path(); !above.empty() && !fs::exists(volume / above, error);
       above = above.parent_path()) {
    const auto same = [&](const rescue::PlannedChange &known) { return known.directory && known.path == above; };
    if (std::any_of(changes->begin(), changes->end(), same)) break;
    found.insert(found.begin(), {above, true, "", 0});
  }
  changes->insert(changes->end(), found.begin(), found.end());
}

// While the rehearsal is on, in which new directories count as being there.
machine::Status PlanUndo(const RescueFacts &facts, const RunRecord &record, rescue::UndoPlan *plan) {
  plan->volume = facts.system->volume;
  plan->windows = facts.system->windows;
  plan->time = std::time(nullptr);
  plan->program = "vxr " VXR_VERSION;
  if (machine::Status found = rescue::FindHibernation(*facts.system, &plan->forgetsHibernation); !found) return found;
  for (const HiveRecord &hive : record.hives) {
    if (hive.outcome != HiveOutcome::kSaved) continue;
    const fs::path path = HostOf(hive.file);
    plan->changes.push_back({path.lexically_relative(plan->volume), false, hive.digest, hive.size});
  }
  for (const CopyRecord &copy : record.copies) {
    if (!copy.copied) continue;
    rescue::PlannedChange change;
    change.path = HostOf(copy.target).lexically_relative(plan->volume);
    if (machine::Status read = DigestOf(HostOf(copy.source), &change); !read) return read;
    AddNewDirectories(plan->volume, change.path, &plan->changes);
    plan->changes.push_back(std::move(change));
  }
  return {};
}

// The rehearsal has seen that the changes have room; what is kept beside them, and the log, need more. Each new file is
// written before the old one goes.
machine::Status CheckRoom(const rescue::UndoPlan &plan) {
  constexpr std::uint64_t kLogAndManifest = 65536;
  struct statvfs volume = {};
  if (statvfs(plan.volume.c_str(), &volume) != 0 || volume.f_blocks == 0 || volume.f_frsize == 0) return {};
  std::uint64_t needed = kLogAndManifest;
  const auto add = [&](std::uint64_t size) {
    needed += (size + volume.f_frsize - 1) / volume.f_frsize * volume.f_frsize;
  };
  for (const rescue::PlannedChange &change : plan.changes) {
    std::error_code missing;
    const std::uint64_t old = fs::file_size(plan.volume / change.path, missing);
    add(change.directory ? volume.f_frsize : change.size);
    if (!change.directory && !missing) add(old);
  }
  const std::uint64_t free = std::uint64_t{volume.f_bavail} * volume.f_frsize;
  if (needed <= free) return {};
  return machine::Status::Refused(
      "the restored volume has no room for the changes and for what takes them back: they need " +
      std::to_string(needed) + " bytes, " + std::to_string(free) + " are free; make room on it");
}

// --- The injection ---------------------------------------------------------------------------------------------------

// A directory, in memory where TMPDIR names no other, for the running system's drive. Two of its directories are read,
// and hold no INF file.
std::string MakeScratch() {
  const char *chosen = std::getenv("TMPDIR");
  for (const char *place : {chosen, "/dev/shm", "/run", "/tmp"}) {
    if (place == nullptr || *place == '\0') continue;
    std::string name = std::string(place) + "/vxr-XXXXXX";
    std::error_code error;
    if (mkdtemp(name.data()) != nullptr && fs::create_directories(name + "/Windows/inf", error) &&
        fs::create_directory(name + "/no-drivers", error)) {
      return name;
    }
  }
  return "";
}

// The log goes into the folder that takes the run back.
void KeepLog(const RescueFacts &facts, const fs::path &undo) {
  std::error_code error;
  fs::create_directory(undo / "logs.dir", error);
  VXRMachine_SetValue(rescue::kHostKey, "HCDIR", rescue::WindowsPath(*facts.system, undo).c_str());
}

// The library's result is 0, too, when it has not found the disk.
void TakeResult(Listener *listener, Injection *injection) {
  injection->record = std::move(listener->record);
  injection->exitStatus = ExitStatus(injection->code, injection->record);
  if (injection->exitStatus != 0 || injection->record.scanProblem.empty()) return;
  injection->problem = "the disk was not found among the machine's: " + injection->record.scanProblem;
  injection->exitStatus = VXR_RESULT_NO_DRIVER;
}

// The rehearsal, and what it says of the changes; `*plan` has none when none is needed.
bool Rehearse(const RescueFacts &facts, Injection *injection, rescue::UndoPlan *plan) {
  if (!VXRMachine_Rehearse(1)) {
    injection->problem = "the run cannot be rehearsed";
    return false;
  }
  Listener listener;
  listener.rehearsal = true;
  injection->code = Run(&listener);
  TakeResult(&listener, injection);
  machine::Status planned;
  if (injection->exitStatus == 0) planned = PlanUndo(facts, injection->record, plan);
  if (planned && !plan->changes.empty()) planned = CheckRoom(*plan);
  VXRMachine_Rehearse(0);
  if (planned) return injection->exitStatus == 0;
  injection->problem = Words(planned);
  return false;
}

// The hive that was saved; null when there is none.
const HiveRecord *SavedHive(const RunRecord &record) {
  const auto saved = std::find_if(record.hives.begin(), record.hives.end(),
                                  [](const HiveRecord &hive) { return hive.outcome == HiveOutcome::kSaved; });
  return saved == record.hives.end() ? nullptr : &*saved;
}

void MakeChanges(const RescueFacts &facts, const rescue::UndoPlan &plan, Injection *injection) {
  if (machine::Status kept = rescue::KeepForUndo(plan, &injection->undo); !kept) {
    injection->problem = Words(kept);
    return;
  }
  KeepLog(facts, injection->undo);
  const HiveRecord *rehearsed = SavedHive(injection->record);
  const bool savesHive = rehearsed != nullptr;
  VXRMachine_SaveOnly(savesHive ? rehearsed->digest.c_str() : "none");  // which no hive has
  // Not part of what is kept: a session that is resumed after the volume was changed would damage it.
  if (machine::Status forgotten = rescue::ForgetHibernation(*facts.system); !forgotten) {
    injection->problem = Words(forgotten);
    if (rescue::DropIfUnused(injection->undo)) injection->undo.clear();
    return;
  }
  injection->forgotHibernation = plan.forgetsHibernation;
  Listener listener;
  injection->code = Run(&listener);
  VXRMachine_SetObserver(OnInjectionEvent, &listener);
  CloseMachine();
  TakeResult(&listener, injection);
  injection->done = true;
  if (injection->exitStatus == 0 && (SavedHive(injection->record) != nullptr) != savesHive) {
    injection->problem = "the run did not do what its rehearsal did: something could not be read this time; run again";
  }
  if (!injection->problem.empty() && injection->exitStatus == 0) injection->exitStatus = 1;
  if (injection->exitStatus != 0 && rescue::DropIfUnused(injection->undo)) injection->undo.clear();
}

}  // namespace

bool Inject(const RescueFacts &facts, bool dry, Injection *injection) {
  const std::string scratch = MakeScratch();
  if (scratch.empty()) {
    PrintError("no directory for passing files can be made in TMPDIR, /dev/shm, /run or /tmp; give one of them room");
    return false;
  }
  const ScopeGuard clear([&scratch] {
    std::error_code error;
    fs::remove_all(scratch, error);
  });
  if (!OpenMachineText(MachineFile(facts, scratch), "the machine", nullptr, nullptr)) return false;
  rescue::UndoPlan plan;
  if (Rehearse(facts, injection, &plan)) {
    injection->needless = plan.changes.empty();
    if (!dry && !injection->needless) MakeChanges(facts, plan, injection);
  }
  CloseMachine();
  if (!injection->problem.empty() && injection->exitStatus == 0) injection->exitStatus = 1;
  UseGivenNames(facts.drivers, &injection->record);
  return true;
}
