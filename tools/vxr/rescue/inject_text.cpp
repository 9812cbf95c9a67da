#include "tools/vxr/rescue/inject_text.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "platform/text/shell_word.h"
#include "rescue/describe.h"
#include "rescue/device_tables.h"
#include "tools/vxr/base/json_values.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/rescue/facts_text.h"
#include "tools/vxr/run/choice_text.h"
#include "tools/vxr/run/run_text.h"

using Json = nlohmann::ordered_json;

namespace {

// There is none for it; of another failed device the driver could not be put in.
bool LacksDriver(const DeviceRecord &device) {
  return device.failed && (!device.choice || ChosenDriver(*device.choice) == nullptr);
}

bool LacksDriver(const Injection &injection) {
  const std::vector<DeviceRecord> &devices = injection.record.devices;
  return std::any_of(devices.begin(), devices.end(), [](const DeviceRecord &device) { return LacksDriver(device); });
}

// What a driver package for a device without one must list.
void PrintIds(const RescueFacts &facts, const std::string &instance) {
  const std::vector<rescue::Disk> disks = rescue::OneForEachController(facts.disks);
  for (std::size_t number = 0; number < disks.size(); ++number) {
    for (const rescue::DeviceRow &row : rescue::DeviceRows(disks[number], number, *facts.system)) {
      if (row.instance != instance) continue;
      std::vector<std::string> ids = row.hardwareIds;
      ids.insert(ids.end(), row.compatibleIds.begin(), row.compatibleIds.end());
      for (auto id = ids.begin(); id != ids.end(); ++id) {
        if (std::find(ids.begin(), id, *id) == id) PrintLine("               " + *id);
      }
    }
  }
}

void PrintDevices(const RescueFacts &facts, const Injection &injection) {
  const RunRecord &record = injection.record;
  PrintTitle("Devices");
  for (const DeviceRecord &device : record.devices) {
    if (!device.choice && !device.failed) continue;  // a disk, which needs no driver of its own
    PrintLine("  " + device.instance);
    if (device.choice) PrintChoice(device, !injection.done);
    if (LacksDriver(device)) {
      PrintLine("      no driver was found; a package for it lists one of", Style::kBad);
      PrintIds(facts, device.instance);
    } else if (device.failed) {
      PrintLine("      could not be put in", Style::kBad);
    }
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

struct ValueCount {
  std::string key;
  std::size_t values = 0;
  bool below = false;  // some are in keys below it
};

// Of a service or a driver package what is below its key counts with it, since a screen has no room for all.
// `vxr inject --json` has them.
std::vector<ValueCount> CountValues(const RunRecord &record) {
  constexpr std::ptrdiff_t kBackslashes = 2;  // "ControlSet001\Services\x"
  std::vector<ValueCount> counts;
  for (const ValueRecord &value : RestoredValues(record)) {
    const std::string key = value.key.substr(value.key.find('\\') + 1);  // without the mount point
    const auto count = std::find_if(counts.begin(), counts.end(), [&key](const ValueCount &known) {
      return key == known.key || (std::count(known.key.begin(), known.key.end(), '\\') >= kBackslashes &&
                                  key.starts_with(known.key + "\\"));
    });
    ValueCount &into = count == counts.end() ? counts.emplace_back() : *count;
    if (into.values++ == 0) into.key = key;
    into.below = into.below || key != into.key;
  }
  return counts;
}

void PrintValues(const Injection &injection) {
  const std::vector<ValueCount> counts = CountValues(injection.record);
  if (!counts.empty()) PrintTitle(injection.done ? "Registry values written" : "Registry values that would be written");
  for (const ValueCount &count : counts) {
    PrintLine("  " + count.key + "  " + std::to_string(count.values) + (count.values == 1 ? " value" : " values") +
              (count.below ? ", there and below" : ""));
  }
  PrintDeletions(injection.done ? "Registry values deleted" : "Registry values that would be deleted",
                 injection.record.deletions);
}

// What is said of single files and values.
std::vector<std::string> Particulars(const RunRecord &record) {
  std::vector<std::string> problems;
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
  return problems;
}

// The device that the line says has failed; null: none.
const DeviceRecord *FailedDevice(const StatusLine &line, const Injection &injection) {
  const std::vector<DeviceRecord> &devices = injection.record.devices;
  const auto found = std::find_if(devices.begin(), devices.end(), [&line](const DeviceRecord &device) {
    return device.failed && line.text.ends_with(" " + device.instance);
  });
  return line.code == VXR_RESULT_NO_DRIVER && found != devices.end() ? &*found : nullptr;
}

// What the log says of a failure, as the end of a sentence: its own sentences without the function's name, and a call
// that failed as it stands there.
std::string CauseText(const RescueFacts &facts, const std::string &cause) {
  const std::size_t kind = cause.find(':'), function = cause.find(':', kind + 1);
  if (function == std::string::npos || cause.find(" failed!") != std::string::npos) return " (log: " + cause + ")";
  std::string text = cause.substr(function + 1);
  const std::size_t path = text.find(":\\");
  if (path != std::string::npos && path > 1 && text[path - 2] == ':') text.insert(path - 1, " ");
  return ": " + GivenText(facts.drivers, text);
}

// The log's words only where nothing else tells; a device without a driver is told among the devices.
std::vector<std::string> Problems(const RescueFacts &facts, const Injection &injection) {
  std::vector<std::string> problems;
  const std::vector<std::string> particulars = Particulars(injection.record);
  for (const StatusLine &line : injection.record.lines) {
    const DeviceRecord *failed = FailedDevice(line, injection);
    if (line.code == VXR_STATUS_PROGRESS || (failed != nullptr && LacksDriver(*failed))) continue;
    const bool needsCause = particulars.empty() && !line.cause.empty();
    const std::string text = failed != nullptr ? failed->instance + ": its driver could not be put in" : line.text;
    problems.push_back(text + (needsCause ? CauseText(facts, line.cause) : ""));
  }
  problems.insert(problems.end(), particulars.begin(), particulars.end());
  if (!injection.problem.empty()) problems.push_back(injection.problem);
  std::vector<std::string> once;
  for (std::string &problem : problems) {
    if (std::find(once.begin(), once.end(), problem) == once.end()) once.push_back(std::move(problem));
  }
  return once;
}

void PrintProblems(const RescueFacts &facts, const Injection &injection) {
  const std::vector<std::string> problems = Problems(facts, injection);
  if (!problems.empty()) PrintTitle("Problems");
  for (const std::string &problem : problems) PrintLine("  " + problem, Style::kBad);
}

std::string Meaning(const RescueOptions &options, const Injection &injection) {
  if (injection.exitStatus != 0) {
    const bool unfit = injection.exitStatus == VXR_RESULT_NO_DRIVER && !LacksDriver(injection);
    const char *kept = injection.done && !injection.undo.empty() ? "; some changes were made"
                       : injection.forgotHibernation ? "; nothing was changed but the memory that --force dropped"
                                                     : "; nothing was changed";
    if (!injection.problem.empty()) return std::string("the injection was not made") + kept;
    const char *meaning = FindResultCode(static_cast<std::uint32_t>(injection.exitStatus)).meaning;
    return std::string(unfit ? "a driver could not be put in" : meaning) + kept;
  }
  if (injection.needless) return "nothing has to be changed: the restored system has its drivers, and starts them";
  return options.dryRun ? "the injection would succeed; nothing was changed" : "the drivers are in the restored system";
}

// Whether a controller to come was named without its class, by which many packages list theirs.
bool LacksClass(const RescueFacts &facts) {
  return facts.toCome && std::any_of(facts.disks.begin(), facts.disks.end(), [](const rescue::Disk &disk) {
           return !disk.controller.nodes.empty() && !disk.controller.nodes.front().function.classCode;
         });
}

std::string DriverAdvice(const RescueOptions &options, const RescueFacts &facts) {
  if (LacksClass(facts)) {
    return "Name the controller with its class too, such as --controller 1000:0054 0107: many packages list that.";
  }
  return options.drivers.empty()
             ? "Give a directory with the controller's driver package for this Windows: --drivers DIR."
             : "Add the controller's driver package for this Windows, with its INF, SYS and CAT files unpacked. "
               "The maker of the controller or the machine has it.";
}

// Windows' directory may have been named, and the volume may be mounted above its root.
std::string UnmountAdvice(const RescueFacts &facts) {
  const bool isMount = facts.mount && facts.mount->point == facts.system->volume;
  return "Unmount the volume" + (isMount ? " (umount " + machine::ShellWord(facts.mount->point.string()) + ")" : "") +
         ", take the rescue system away, and start the machine.";
}

std::string Advice(const RescueOptions &options, const RescueFacts &facts, const Injection &injection) {
  if (LacksDriver(injection)) return DriverAdvice(options, facts);
  if (injection.exitStatus != 0) return "Mend what stands under Problems, then run again.";
  if (options.dryRun) return injection.needless ? "" : "Without --dry-run the same is done.";
  return UnmountAdvice(facts);
}

void PrintResult(const RescueOptions &options, const RescueFacts &facts, const Injection &injection) {
  PrintTitle("Result");
  PrintLine("  " + std::to_string(injection.exitStatus) + ": " + Meaning(options, injection),
            injection.exitStatus == 0 ? Style::kGood : Style::kBad);
  if (const std::string advice = Advice(options, facts, injection); !advice.empty()) PrintLine("  " + advice);
  if (injection.undo.empty()) return;
  PrintLine("  To take it back, before Windows has started: vxr undo " + machine::ShellWord(injection.undo.string()));
}

}  // namespace

void PrintInjectText(const RescueOptions &options, const RescueFacts &facts, const Injection &injection) {
  PrintFacts(facts, false);
  PrintDevices(facts, injection);
  PrintFiles(injection);
  PrintValues(injection);
  PrintProblems(facts, injection);
  PrintResult(options, facts, injection);
}

void PrintInjectJson(const RescueOptions &options, const RescueFacts &facts, const Injection &injection) {
  Json document = {{"root", options.root},
                   {"dry_run", options.dryRun},
                   {"exit_status", injection.exitStatus},
                   {"meaning", Meaning(options, injection)},
                   {"advice", Advice(options, facts, injection)},
                   {"problem", OrNull(injection.problem)},
                   {"problems", Problems(facts, injection)},
                   {"warnings", TakeErrors()},
                   {"made", injection.done},
                   {"undo", OrNull(injection.undo.string())},
                   {"found", FactsJson(facts)},
                   {"run", RunJson(injection.record, !injection.done)}};
  // The log lies in the folder that takes the run back.
  if (!injection.done || injection.undo.empty()) document["run"]["log_file"] = nullptr;
  PrintDocument(document);
}
