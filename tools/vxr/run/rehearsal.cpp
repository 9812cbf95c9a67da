#include "tools/vxr/run/rehearsal.h"

#include <algorithm>
#include <filesystem>

#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/base/output.h"
#ifndef _WIN32
#include "tools/vxr/run/candidates.h"
#endif
#include "vxrcore/machine.h"

namespace {

constexpr char kCheckRootPath[] =
    "Check the job's RootPath, and that the system is restored there. Without an extension file RootPath is the "
    "restored Windows directory.";

// A rehearsal has no log file to look into: each failure brings the log's first error line.
void OnRehearsalEvent(void *context, const VXRMachine_Event *event) {
  RunRecord *record = static_cast<RunRecord *>(context);
  const std::string error = record->firstError;
  AddEvent(record, *event);
  if (event->kind == VXRMACHINE_STATUS_LINE && record->lines.back().cause.empty()) record->lines.back().cause = error;
}

// What is wrong with the first part of a path that is not there; empty when all of it is.
std::string MissingPart(const std::string &path) {
  std::error_code error;
  for (std::size_t cut = path.find('\\'); cut != std::string::npos;) {
    const std::size_t next = path.find('\\', cut + 1);
    const bool drive = cut == 2;
    const std::filesystem::path host = HostOf(path.substr(0, drive ? cut + 1 : cut));
    if (drive && host.empty()) return "drive " + path.substr(0, cut) + " is not there, or holds no medium";
    if (drive && std::filesystem::is_empty(host, error)) return "drive " + path.substr(0, cut) + " is empty";
    if (!std::filesystem::exists(host, error)) return path.substr(0, cut) + " does not exist";
    cut = next;
  }
  return std::filesystem::exists(HostOf(path), error) ? "" : "it does not exist";
}

// `what` and why; the machine's own reasons end in what to do.
RehearsalProblem ProblemOf(const std::string &file, const std::string &what, const std::string &reason,
                           const char *otherwise) {
  const std::size_t cut = reason.rfind("; ");
  if (cut == std::string::npos) return {file, what + reason, otherwise};
  return {file, what + reason.substr(0, cut), Sentence(reason.substr(cut + 2))};
}

void AddProblem(std::vector<RehearsalProblem> *problems, RehearsalProblem problem) {
  const bool told = std::any_of(problems->begin(), problems->end(), [&](const RehearsalProblem &other) {
    return other.file == problem.file && other.text == problem.text;
  });
  if (!told) problems->push_back(std::move(problem));
}

RehearsalProblem HiveProblem(const HiveRecord &hive) {
  const char *advice = FindResultCode(VXR_RESULT_NO_HIVE).advice;
  if (hive.outcome != HiveOutcome::kRefused) {
    return ProblemOf(hive.file, "an injection could not save it: ", hive.reason, advice);
  }
  const bool gone = hive.reason.rfind("does not exist", 0) == 0;  // else the machine's reason says more
  const std::string missing = gone ? MissingPart(hive.file) : "";
  if (!missing.empty()) return {hive.file, "an injection could not mount it: " + missing, kCheckRootPath};
  return ProblemOf(hive.file, "an injection could not mount it: it ", hive.reason, advice);
}

// One for all files of a directory that is not there.
RehearsalProblem CopyProblem(const CopyRecord &copy) {
  const std::string directory = copy.target.substr(0, copy.target.rfind('\\'));
  const std::string missing = MissingPart(directory);
  if (!missing.empty()) {
    return {directory, "an injection could not copy files there: " + missing, "Restore that directory, or make it."};
  }
  return ProblemOf(copy.target, "an injection could not copy it: ", copy.reason,
                   FindResultCode(VXR_RESULT_FILE_NOT_COPIED).advice);
}

bool HasLine(const RunRecord &record, const std::string &text) {
  return std::any_of(record.lines.begin(), record.lines.end(), [&](const auto &line) { return line.text == text; });
}

// Whether the verification said it, or it follows from a problem that says more.
bool IsTold(const StatusLine &line, const RunRecord &verified, const std::vector<RehearsalProblem> &problems) {
  if (line.code == VXR_STATUS_PROGRESS || HasLine(verified, line.text)) return true;
  const bool follows =
      line.code == VXR_RESULT_NO_HIVE || line.code == VXR_RESULT_NO_DRIVER || line.code == VXR_RESULT_FILE_NOT_COPIED;
  return follows && !problems.empty();
}

// Why files were refused whose drivers the verification found.
void AddRefusedDrivers(const RunRecord &verified, Rehearsal *rehearsal) {
#ifndef _WIN32
  ExplainFailures(&rehearsal->record);
#endif
  for (const DeviceRecord &device : rehearsal->record.devices) {
    for (const Candidate &candidate : device.candidates) {
      const bool found = std::any_of(verified.devices.begin(), verified.devices.end(), [&](const auto &other) {
        return other.instance == device.instance && other.infFile == candidate.inf;
      });
      if (!found || candidate.reason == "not_reached" || candidate.reason == "other") continue;  // the log tells more
      AddProblem(&rehearsal->problems, {candidate.inf, "an injection would not take it: " + candidate.text,
                                        "Mend the INF file, or put one that fits in its place."});
    }
  }
}

void FindProblems(const RunRecord &verified, Rehearsal *rehearsal) {
  std::vector<RehearsalProblem> *problems = &rehearsal->problems;
  if (!rehearsal->record.scanProblem.empty() && verified.scanProblem.empty()) {
    AddProblem(problems, {"", "An injection would not find the boot disk (log: " + rehearsal->record.scanProblem + ")",
                          "Check the job's Disk."});
  }
  for (const HiveRecord &hive : rehearsal->record.hives) {
    if (!hive.reason.empty()) AddProblem(problems, HiveProblem(hive));
  }
  for (const CopyRecord &copy : rehearsal->record.copies) {
    if (!copy.reason.empty()) AddProblem(problems, CopyProblem(copy));
  }
  for (const FailedValue &value : rehearsal->record.failedValues) {
    if (!InRestoredHive(value)) continue;
    const std::string what = value.wholeKey ? "an injection could not create this key: "
                                            : "an injection could not write " + value.name + ": ";
    AddProblem(problems, ProblemOf(value.key, what, value.reason, FindResultCode(VXR_RESULT_NO_HIVE).advice));
  }
  if (problems->empty()) AddRefusedDrivers(verified, rehearsal);
  for (const StatusLine &line : rehearsal->record.lines) {
    if (IsTold(line, verified, *problems)) continue;
    // The verification found the driver.
    const char *advice = line.code == VXR_RESULT_NO_DRIVER
                             ? "Mend what the restored system's hive or files lack, or restore the system again."
                             : FindResultCode(line.code).advice;
    AddProblem(problems,
               {"", "An injection would fail: " + line.text + (line.cause.empty() ? "" : " (log: " + line.cause + ")"),
                advice});
  }
}

void TakeCopies(const RunRecord &rehearsed, RunRecord *verified) {
  for (CopyRecord &copy : verified->copies) {
    for (const CopyRecord &other : rehearsed.copies) {
      if (other.target != copy.target) continue;
      copy.size = other.size;
      copy.reason = other.reason;
      copy.keptOld = other.keptOld;
      if (other.use == CopyUse::kLeftOver) copy.use = other.use;
    }
  }
}

}  // namespace

bool WorthRehearsing(std::uint32_t code) {
  return code != VXR_RESULT_NO_ENGINE && code != VXR_RESULT_NO_SETTINGS && code != VXR_RESULT_NO_EXTENSION &&
         code != VXR_RESULT_NO_VOLUME;
}

Rehearsal RehearseInjection(std::uint32_t job, RunRecord *verified) {
  Rehearsal rehearsal;
  VXRDbg_Cleanup();
  if (!VXRMachine_Rehearse(1)) return rehearsal;
  VXRMachine_SetObserver(OnRehearsalEvent, &rehearsal.record);
  void *window = OpenStatusWindow();
  rehearsal.code = VXREng_RunVXR(job, 1, nullptr, window);
  VXREng_SetStatusWnd(nullptr, 0);
  VXRMachine_DestroyWindow(window);
  VXRDbg_Cleanup();
  VXRMachine_SetObserver(nullptr, nullptr);
  FindProblems(*verified, &rehearsal);
  VXRMachine_Rehearse(0);
  TakeCopies(rehearsal.record, verified);
  rehearsal.done = true;
  return rehearsal;
}
