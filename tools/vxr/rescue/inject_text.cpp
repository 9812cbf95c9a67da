#include "tools/vxr/rescue/inject_text.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>

#include "tools/vxr/base/output.h"
#include "tools/vxr/rescue/facts_text.h"
#include "tools/vxr/run/choice_text.h"
#include "tools/vxr/run/run_text.h"

using Json = nlohmann::ordered_json;

namespace {

void PrintDevices(const Injection &injection) {
  const RunRecord &record = injection.record;
  PrintTitle("Devices");
  for (const DeviceRecord &device : record.devices) {
    if (!device.choice && !device.failed) continue;  // a disk, which needs no driver of its own
    PrintLine("  " + device.instance);
    if (device.choice) PrintChoice(device, !injection.done);
    if (device.failed) PrintLine("      no driver was found", Style::kBad);
  }
  PrintLine("  The lower rank is taken; of equal ones the later date, the higher version. INF files read: " +
            std::to_string(record.infFiles));
  PrintUnread(record);
}

void PrintFiles(const Injection &injection) {
  bool titled = false;
  for (const CopyRecord &copy : injection.record.copies) {
    if (!copy.copied) continue;
    if (!titled) PrintTitle(injection.done ? "Files copied" : "Files that would be copied");
    titled = true;
    PrintLine("  " + copy.target + (copy.size ? "  " + Bytes(*copy.size) : ""));
    PrintLine("      from " + copy.source);
  }
}

// How many values there are below each key, since a screen has no room for all. `vxr inject --json` has them.
void PrintValues(const Injection &injection) {
  std::vector<std::string> keys;
  std::map<std::string, std::size_t> counts;
  for (const ValueRecord &value : RestoredValues(injection.record)) {
    const std::string key = value.key.substr(value.key.find('\\') + 1);  // without the mount point
    if (counts[key]++ == 0) keys.push_back(key);
  }
  if (!keys.empty()) PrintTitle(injection.done ? "Registry values written" : "Registry values that would be written");
  for (const std::string &key : keys) {
    PrintLine("  " + key + "  " + std::to_string(counts[key]) + (counts[key] == 1 ? " value" : " values"));
  }
  PrintDeletions(injection.done ? "Registry values deleted" : "Registry values that would be deleted",
                 injection.record.deletions);
}

void PrintProblems(const Injection &injection) {
  const RunRecord &record = injection.record;
  std::vector<std::string> problems;
  for (const StatusLine &line : record.lines) {
    if (line.code == VXR_STATUS_PROGRESS) continue;
    problems.push_back(line.text + (line.cause.empty() ? "" : " (log: " + line.cause + ")"));
  }
  for (const HiveRecord &hive : record.hives) {
    if (!hive.reason.empty()) problems.push_back(hive.file + ": " + hive.reason);
  }
  for (const CopyRecord &copy : record.copies) {
    if (!copy.reason.empty()) problems.push_back(copy.target + ": not copied: " + copy.reason);
  }
  for (const FailedValue &value : record.failedValues) {
    if (InRestoredHive(value)) problems.push_back(value.key + "\\" + value.name + ": not written: " + value.reason);
  }
  for (const RefusedPath &refused : record.refusedPaths) problems.push_back(refused.path + ": " + refused.reason);
  problems.insert(problems.end(), record.problems.begin(), record.problems.end());
  if (!injection.problem.empty()) problems.push_back(injection.problem);
  if (!problems.empty()) PrintTitle("Problems");
  for (auto problem = problems.begin(); problem != problems.end(); ++problem) {
    if (std::find(problems.begin(), problem, *problem) == problem) PrintLine("  " + *problem, Style::kBad);
  }
}

// Whether a device got no driver, which is the usual failure.
bool LacksDriver(const Injection &injection) {
  return std::any_of(injection.record.devices.begin(), injection.record.devices.end(),
                     [](const DeviceRecord &device) { return device.failed; });
}

std::string Meaning(const RescueOptions &options, const Injection &injection) {
  if (injection.exitStatus != 0) {
    const char *kept = injection.done && !injection.undo.empty() ? "; some changes were made" : "; nothing was changed";
    return (injection.problem.empty() ? FindResultCode(static_cast<std::uint32_t>(injection.exitStatus)).meaning
                                      : std::string("the injection was not made")) +
           kept;
  }
  if (injection.needless) return "nothing has to be changed: the restored system has its drivers, and starts them";
  return options.dryRun ? "the injection would succeed; nothing was changed" : "the drivers are in the restored system";
}

std::string Advice(const RescueOptions &options, const Injection &injection) {
  if (LacksDriver(injection)) {
    return options.drivers.empty()
               ? "Give a directory with the controller's driver package for this Windows: --drivers "
                 "DIR. The ids above are what it must list."
               : "Add the controller's driver package for this Windows, with its INF, SYS and CAT "
                 "files unpacked: it must list one of the ids above. The maker of the controller or "
                 "the machine has it.";
  }
  if (injection.exitStatus != 0) return "Mend what stands under Problems, then run again.";
  if (options.dryRun) return injection.needless ? "" : "Without --dry-run the same is done.";
  return "Unmount the volume (umount " + options.root + "), take the rescue system away, and start the machine.";
}

void PrintResult(const RescueOptions &options, const Injection &injection) {
  PrintTitle("Result");
  PrintLine("  " + std::to_string(injection.exitStatus) + ": " + Meaning(options, injection),
            injection.exitStatus == 0 ? Style::kGood : Style::kBad);
  if (const std::string advice = Advice(options, injection); !advice.empty()) PrintLine("  " + advice);
  if (injection.undo.empty()) return;
  PrintLine("  To take it back, before Windows has started: vxr undo " + injection.undo.string());
}

}  // namespace

void PrintInjectText(const RescueOptions &options, const RescueFacts &facts, const Injection &injection) {
  PrintFacts(facts, false);
  PrintDevices(injection);
  PrintFiles(injection);
  PrintValues(injection);
  PrintProblems(injection);
  PrintResult(options, injection);
}

void PrintInjectJson(const RescueOptions &options, const RescueFacts &facts, const Injection &injection) {
  const Json document = {{"root", options.root},
                         {"dry_run", options.dryRun},
                         {"exit_status", injection.exitStatus},
                         {"meaning", Meaning(options, injection)},
                         {"advice", Advice(options, injection)},
                         {"problem", injection.problem.empty() ? Json() : Json(injection.problem)},
                         {"made", injection.done},
                         {"undo", injection.undo.empty() ? Json() : Json(injection.undo.string())},
                         {"found", FactsJson(facts)},
                         {"run", RunJson(injection.record)}};
  std::printf("%s\n", document.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}
