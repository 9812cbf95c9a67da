#include "tools/vxr/run/run_command.h"

#include <algorithm>
#include <string>
#include <utility>

#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"
#ifndef _WIN32
#include "tools/vxr/run/candidates.h"
#include "tools/vxr/run/restored_facts.h"
#endif
#include "tools/vxr/run/run_text.h"
#include "vxrcore/machine.h"
#include "vxrcore/vxrcore.h"

namespace {

struct RunHost {
  RunRecord record;
  bool showLines = true;
};

void OnRunEvent(void *context, const VXRMachine_Event *event) {
  RunHost *host = static_cast<RunHost *>(context);
  AddEvent(&host->record, *event);
  if (event->kind == VXRMACHINE_STATUS_LINE && host->showLines) PrintStatusLine(host->record.lines.back());
}

#ifndef _WIN32
bool LacksDriver(std::uint32_t code, const RunRecord &record) {
  return code == VXR_RESULT_NO_NAMED_DRIVER || std::any_of(record.devices.begin(), record.devices.end(),
                                                           [](const DeviceRecord &device) { return device.failed; });
}
#endif

// Gives the job the ways of working that this run is to have. False, with a message, when they cannot be set.
bool SetChoices(const RunOptions &options) {
  const std::string key = "SOFTWARE\\Varnelt\\Relmar\\" + std::to_string(static_cast<std::int32_t>(options.job));
  const std::pair<const char *, const std::string &> choices[] = {{"DriverRules", options.rules},
                                                                  {"BootRecord", options.record}};
  for (const auto &[name, text] : choices) {
    if (text.empty() || VXRMachine_SetValue(key.c_str(), name, text.c_str())) continue;
    PrintError("cannot set " + std::string(name) + " in HKLM\\" + key + "; check that job " +
               std::to_string(options.job) + " is there, and your rights");
    return false;
  }
  return true;
}

// Opens, runs, closes. False, with a message, when the machine cannot be used.
bool RunOnMachine(const RunOptions &options, RunHost *host, RunOutcome *outcome) {
  if (!OpenMachine(options.machine, OnRunEvent, host)) return false;
  if (!SetChoices(options)) {
    CloseMachine();
    return false;
  }
#ifndef _WIN32
  VXRMachine_SetObserver(nullptr, nullptr);  // what the look meets is not the run's
  const JobFacts facts = ReadJobFacts(options.job);
  host->record.contradictions = FindContradictions(facts);
  VXRMachine_SetObserver(OnRunEvent, host);
#endif
  void *window = OpenStatusWindow();
  outcome->code = VXREng_RunVXR(options.job, options.verify ? 0 : 1, nullptr, window);
#ifndef _WIN32
  if (std::string line = ProcessorContradiction(facts); !line.empty() && LacksDriver(outcome->code, host->record)) {
    host->record.contradictions.push_back(std::move(line));
  }
  ExplainFailures(&host->record);
#endif
  if (options.verify && WorthRehearsing(outcome->code)) {
    outcome->rehearsal = RehearseInjection(options.job, &host->record);
    VXRMachine_SetObserver(OnRunEvent, host);
  }
  CloseMachine();
  outcome->exitStatus = ExitStatus(outcome->code, host->record);
  if (outcome->exitStatus == 0 && WouldFail(outcome->rehearsal)) outcome->exitStatus = kRehearsalCode;
  return true;
}

}  // namespace

int RunCommand(const RunOptions &options) {
  BeginWork();
  RunHost host;
  host.showLines = !options.json;
  RunOutcome outcome{};
  if (!RunOnMachine(options, &host, &outcome)) return kExitUsage;
  if (options.json) {
    PrintRunJson(options, outcome, host.record);
  } else {
    PrintRunText(options, outcome, host.record);
  }
  return outcome.exitStatus;
}
