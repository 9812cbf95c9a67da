#include "tools/vxr/run/run_text.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <vector>

#include "tools/vxr/base/output.h"
#include "tools/vxr/run/choice_text.h"

namespace {

void Problem(const std::string &text) { PrintLine("  " + text, Style::kBad); }

void PrintDriver(const DeviceRecord &device) {
  if (!device.driver.empty()) PrintLine("      " + device.driver + " (" + device.hardwareId + ")");
  PrintLine("      from " + device.infFile);
}

void PrintDevices(const RunOptions &options, const RunRecord &record) {
  if (record.devices.empty()) return;
  PrintTitle("Devices");
  bool ranked = false;
  for (const DeviceRecord &device : record.devices) {
    PrintLine("  " + device.instance);
    if (device.choice) {
      PrintChoice(device, options.verify);
    } else if (!device.infFile.empty()) {
      PrintDriver(device);
    }
    const bool none = !device.choice && device.infFile.empty();
    if (device.failed) PrintLine("      no driver was set up", Style::kBad);
    if (!device.failed && none) PrintLine("      needs no driver of its own");
    ranked = ranked || (device.choice && device.choice->made);
  }
  if (ranked)
    PrintLine("  By Windows' rules the lower rank is taken; of equal ones the later date, the higher version.");
}

void PrintCopies(const RunOptions &options, const RunRecord &record, bool copied) {
  bool titled = false;
  for (const CopyRecord &copy : record.copies) {
    if (!copy.reason.empty() || copy.copied != copied) continue;
    if (!titled) {
      PrintTitle(copied           ? "Files copied"
                 : options.verify ? "Files that would be copied"
                                  : "Files that the check found");
    }
    titled = true;
    PrintLine("  " + copy.target + (copy.size ? "  " + Bytes(*copy.size) : ""));
    PrintLine("      from " + copy.source);
    if (copy.use == CopyUse::kLeftOver) {
      PrintLine(std::string("      ") + (copied ? "left over" : "would be left over") +
                    ": its driver was given up afterwards, no device uses it",
                Style::kBad);
    }
  }
}

// A key that is written to in several steps is shown once.
void PrintValueList(const char *title, const std::vector<ValueRecord> &values) {
  struct Key {
    std::vector<const ValueRecord *> values;
    std::size_t name = 14, type = 10;  // widths
  };
  std::vector<Key> keys;
  std::map<std::string, std::size_t> places;
  for (const ValueRecord &value : values) {
    const auto [place, added] = places.try_emplace(value.key, keys.size());
    if (added) keys.emplace_back();
    Key &key = keys[place->second];
    key.values.push_back(&value);
    key.name = std::max(key.name, value.name.size());
    key.type = std::max(key.type, ValueTypeName(value.type).size());
  }
  if (!keys.empty()) PrintTitle(title);
  for (const Key &key : keys) {
    const ValueRecord &first = *key.values.front();
    PrintLine("  " + first.key + (InRestoredHive(first) ? "" : "  (running system)"));
    for (const ValueRecord *value : key.values) {
      const std::string name = value->name.empty() ? "(default)" : value->name;
      const std::string data = value->data.empty() ? "" : " " + value->data;
      PrintLine("      " + Padded(name, key.name) + " " +
                Padded(ValueTypeName(value->type), data.empty() ? 0 : key.type) + data);
    }
  }
}

void PrintValues(const RunRecord &record) {
  const HiveRecord *unsaved = UnsavedRestoredHive(record);
  const bool lost = unsaved != nullptr && unsaved->outcome == HiveOutcome::kNotSaved;
  PrintValueList(lost ? "Registry values set but not saved" : "Registry values written", record.values);
}

void PrintHives(const RunRecord &record, const char *title, const char *would) {
  bool titled = false;
  for (const HiveRecord &hive : record.hives) {
    const bool saved = hive.outcome == HiveOutcome::kSaved, unflushed = hive.outcome == HiveOutcome::kUnflushed;
    if (!saved && !unflushed && hive.replay.empty()) continue;
    if (!titled) PrintTitle(title);
    titled = true;
    const std::string outcome = saved       ? would + ("saved, " + Bytes(hive.size))
                                : unflushed ? "replaced, see below"
                                            : "as it was";
    PrintLine("  " + hive.file + "  " + outcome);
    if (!hive.replay.empty()) PrintLine("      was not closed cleanly: " + hive.replay);
  }
}

// Where INF files were looked for; empty where nothing tells, as on Windows.
std::string PlacesSearched(const DeviceRecord &device) {
  std::string places;
  for (const std::string &directory : device.directories) {
    places += (places.empty() ? "" : ", ") + directory + " and below";
  }
  if (!places.empty()) return places;
  return device.refusals.empty() ? "" : device.refusals.begin()->first;
}

// For each device without driver one line for each INF file at hand that lists it.
void PrintCandidates(const RunRecord &record) {
  for (const DeviceRecord &device : record.devices) {
    const std::string places = PlacesSearched(device);
    const bool told = device.choice && !device.candidates.empty();
    if (!device.failed || places.empty() || told) continue;
    PrintTitle("INF files for " + device.instance);
    if (device.candidates.empty()) PrintLine("  no file here lists the device (" + places + ")");
    std::size_t file = 0, id = 0;
    for (const Candidate &candidate : device.candidates) {
      file = std::max(file, candidate.inf.size());
      id = std::max(id, candidate.id.size());
    }
    for (const Candidate &candidate : device.candidates) {
      PrintLine("  " + Padded(candidate.inf, file) + "  " + Padded(candidate.id, id) + "  " + candidate.text);
    }
  }
}

// A search that tries a driver again for each id fails each time with the same line: it is shown once.
void PrintFailingLines(const RunRecord &record) {
  const auto &lines = record.lines;
  for (auto line = lines.begin(); line != lines.end(); ++line) {
    const auto same = [&](const StatusLine &other) { return other.text == line->text; };
    if (line->code == VXR_STATUS_PROGRESS || std::any_of(lines.begin(), line, same)) continue;
    // Nobody need have cancelled anything: without a terminal a directory without INF files counts so.
    if (line->code == VXR_RESULT_CANCELLED && record.badDirectory) continue;
    if (record.noController && line->text == "Failed to locate driver files for device N/A") continue;  // told by name
    const auto times = std::count_if(line, lines.end(), same);
    Problem(line->text + " [" + std::to_string(line->code) + "]" +
            (times > 1 ? " (" + std::to_string(times) + " times)" : ""));
    if (!line->cause.empty()) PrintLine("      log: " + line->cause);
  }
}

void PrintCopyProblem(const CopyRecord &copy) {
  Problem(copy.target + ": not copied: " + copy.reason);
  if (copy.keptOld) PrintLine("      The file that was there before stays; the run counts it as copied.");
}

void PrintValueProblem(const FailedValue &value) {
  Problem(value.key + (value.wholeKey ? ": the key was not created: " : "\\" + value.name + ": not written: ") +
          value.reason + " [error " + std::to_string(value.error) + "]");
}

void PrintHiveProblem(const HiveRecord &hive) {
  if (hive.outcome == HiveOutcome::kRefused) {
    Problem(hive.file + ": not mounted: " + hive.reason);
    return;
  }
  if (hive.outcome == HiveOutcome::kUnflushed) {
    Problem(hive.file + ": not surely on the disk: " + hive.reason);
    PrintLine(
        "      Should the power fail now, the hive may be as it was before the run. Look for errors of the disk.");
    return;
  }
  Problem(hive.file + ": not saved: " + hive.reason);
  if (!hive.mountPoint.empty()) {
    PrintLine("      The hive file is as it was before the run: none of the values above is in the restored system.");
  }
}

// What to do about each kind of failure, in the order in which they occurred.
void PrintAdvice(const RunOutcome &outcome, const RunRecord &record) {
  std::vector<std::uint32_t> codes;
  for (const StatusLine &line : record.lines) codes.push_back(line.code);
  codes.push_back(outcome.code);
  codes.push_back(static_cast<std::uint32_t>(outcome.exitStatus));
  for (auto code = codes.begin(); code != codes.end(); ++code) {
    if (*code == VXR_STATUS_PROGRESS || std::find(codes.begin(), code, *code) != code) continue;
    const std::string advice = AdviceFor(*code, record);
    if (!advice.empty()) PrintLine("  " + advice);
  }
}

void PrintRehearsalProblem(const RehearsalProblem &problem) {
  Problem(problem.file + (problem.file.empty() ? "" : ": ") + problem.text);
  PrintLine("      " + problem.advice);
}

bool HasProblems(const RunOutcome &outcome, const RunRecord &record) {
  return HasProblems(record) || WouldFail(outcome.rehearsal);
}

void PrintProblems(const RunOutcome &outcome, const RunRecord &record) {
  if (!HasProblems(outcome, record)) return;
  PrintTitle("Problems");
  if (!record.scanProblem.empty()) {
    Problem("The boot disk was not found: no device was looked at, no driver was put in. Check the job's Disk.");
    PrintLine("      log: " + record.scanProblem);
  }
  if (!record.namedIdProblem.empty()) {
    Problem("The job's HardwareID could not be read: no driver was looked for. Check the job's key.");
    PrintLine("      log: " + record.namedIdProblem);
  }
  for (const std::string &problem : record.problems) Problem(problem + ".");
  for (const std::string &contradiction : record.contradictions) Problem(contradiction + ".");
  PrintFailingLines(record);
  for (const CopyRecord &copy : record.copies) {
    if (!copy.reason.empty() && !outcome.rehearsal.done) PrintCopyProblem(copy);
  }
  for (const FailedValue &value : record.failedValues) PrintValueProblem(value);
  for (const HiveRecord &hive : record.hives) {
    if (!hive.reason.empty()) PrintHiveProblem(hive);
  }
  for (const RehearsalProblem &problem : outcome.rehearsal.problems) PrintRehearsalProblem(problem);
  for (const RefusedPath &refused : record.refusedPaths) Problem(refused.path + ": " + refused.reason);
}

void PrintResult(const RunOptions &options, const RunOutcome &outcome, const RunRecord &record) {
  const ResultCode &entry = FindResultCode(MeaningCode(outcome));
  const std::string what = options.verify ? "driver files verification" : "driver files injection";
  PrintTitle("Result");
  const HiveRecord *unsaved = outcome.code != VXR_RESULT_NO_HIVE ? UnsavedRestoredHive(record) : nullptr;
  std::string meaning =
      record.scanProblem.empty() && record.namedIdProblem.empty() ? entry.meaning : "nothing was done";
  if (unsaved != nullptr) {
    const bool unchanged = unsaved->outcome == HiveOutcome::kNotSaved;
    meaning = std::string("the restored system's registry was ") +
              (unchanged ? "not saved and is unchanged" : "saved, but is not surely on the disk") +
              "; the run's own code is " + std::to_string(outcome.code);
  }
  if (unsaved == nullptr && outcome.code == 0 && outcome.exitStatus == static_cast<int>(VXR_RESULT_NO_HIVE)) {
    const std::size_t lost = LostRestoredValues(record);
    meaning = std::to_string(lost) + (lost == 1 ? " key or value" : " keys or values") +
              " of the restored system's registry could not be written; the run's own code is 0";
  }
  PrintLine("  " + std::to_string(outcome.exitStatus) + ": " + meaning + " (" + what + ")",
            outcome.exitStatus != 0 || HasProblems(outcome, record) ? Style::kBad : Style::kGood);
  PrintAdvice(outcome, record);
  if (!record.logFile.empty()) {
    PrintLine("  Log: " + record.logFile);
  } else {
    PrintLine("  Log: no file" + (record.logProblem.empty() ? "" : ": " + record.logProblem));
  }
}

}  // namespace

std::vector<ValueRecord> ValuesToWrite(const RunOutcome &outcome, const RunRecord &record) {
  return outcome.rehearsal.done ? RestoredValues(outcome.rehearsal.record) : record.plannedValues;
}

std::vector<DeletedValue> ValuesToDelete(const RunOutcome &outcome, const RunRecord &record) {
  return outcome.rehearsal.done ? outcome.rehearsal.record.deletions : record.plannedDeletions;
}

void PrintStatusLine(const StatusLine &line) {
  PrintLine(line.text, line.code == VXR_STATUS_PROGRESS ? Style::kDim : Style::kBad);
  std::fflush(stdout);
}

void PrintRunText(const RunOptions &options, const RunOutcome &outcome, const RunRecord &record) {
  PrintDevices(options, record);
  PrintUnread(record);
  for (const bool copied : {true, false}) PrintCopies(options, record, copied);
  PrintValues(record);
  PrintDeletions("Registry values deleted", record.deletions);
  PrintValueList("Registry values that would be written", ValuesToWrite(outcome, record));
  PrintDeletions("Registry values that would be deleted", ValuesToDelete(outcome, record));
  PrintHives(record, "Hives", "");
  PrintHives(outcome.rehearsal.record, "Hives in an injection", "would be ");
  PrintCandidates(record);
  PrintProblems(outcome, record);
  PrintResult(options, outcome, record);
}
