#include <nlohmann/json.hpp>

#include "tools/vxr/base/json_values.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"
#include "tools/vxr/run/choice_text.h"
#include "tools/vxr/run/run_text.h"

using Json = nlohmann::ordered_json;

namespace {

Json StatusLines(const RunRecord &record) {
  Json list = Json::array();
  for (const StatusLine &line : record.lines) {
    list.push_back({{"text", line.text}, {"code", line.code}, {"log", OrNull(line.cause)}});
  }
  return list;
}

Json Devices(const RunRecord &record) {
  Json list = Json::array();
  for (const DeviceRecord &device : record.devices) {
    Json driver;
    if (!device.infFile.empty()) {
      driver = {{"inf", device.infFile}, {"description", device.driver}, {"hardware_id", device.hardwareId}};
    }
    Json candidates = Json::array();
    for (const Candidate &candidate : device.candidates) {
      candidates.push_back(
          {{"inf", candidate.inf}, {"id", candidate.id}, {"reason", candidate.reason}, {"text", candidate.text}});
    }
    list.push_back({{"instance", device.instance},
                    {"driver", driver},
                    {"failed", device.failed},
                    {"candidates", std::move(candidates)},
                    {"choice", ChoiceJson(device)}});
  }
  return list;
}

// States of what was done, or would be.
struct States {
  const char *copied, *notCopied, *found, *written;
  const char *hives[5];  // by HiveOutcome
};

constexpr States kDone = {
    "copied", "not_copied", "found", "written", {"mounted", "saved", "not_saved", "refused", "unflushed"}};
constexpr States kWould = {"would_copy",
                           "would_not_copy",
                           "would_copy",
                           "would_write",
                           {"would_mount", "would_save", "would_not_save", "would_refuse", "would_not_save"}};

Json Files(const States &states, const RunRecord &record) {
  Json list = Json::array();
  for (const CopyRecord &copy : record.copies) {
    const char *state = copy.copied ? states.copied : copy.reason.empty() ? states.found : states.notCopied;
    Json file = {{"state", state}, {"target", copy.target}, {"source", OrNull(copy.source)}};
    if (copy.size && copy.reason.empty()) file["size"] = *copy.size;
    if (copy.reason.empty()) file["left_over"] = copy.use == CopyUse::kLeftOver;
    if (!copy.reason.empty()) {
      file["reason"] = copy.reason;
      file["old_target_kept"] = copy.keptOld;
    }
    list.push_back(std::move(file));
  }
  return list;
}

void AddValues(const char *state, const std::vector<ValueRecord> &values, Json *list) {
  for (const ValueRecord &value : values) {
    list->push_back({{"state", state},
                     {"system", InRestoredHive(value) ? "restored" : "running"},
                     {"key", value.key},
                     {"name", value.name},
                     {"type", ValueTypeName(value.type)},
                     {"size", value.size},
                     {"data", value.data}});
  }
}

Json Values(const States &states, const RunRecord &record, const std::vector<ValueRecord> &would) {
  Json list = Json::array();
  AddValues(states.written, record.values, &list);
  AddValues(kWould.written, would, &list);
  return list;
}

Json FailedValues(const RunRecord &record) {
  Json list = Json::array();
  for (const FailedValue &value : record.failedValues) {
    list.push_back({{"system", InRestoredHive(value) ? "restored" : "running"},
                    {"key", value.key},
                    {"name", value.wholeKey ? Json() : Json(value.name)},
                    {"type", value.wholeKey ? Json() : Json(ValueTypeName(value.type))},
                    {"error", value.error},
                    {"reason", value.reason}});
  }
  return list;
}

void AddHives(const States &states, const RunRecord &record, Json *list) {
  for (const HiveRecord &hive : record.hives) {
    Json entry = {{"state", states.hives[static_cast<int>(hive.outcome)]},
                  {"file", hive.file},
                  {"mount_point", OrNull(hive.mountPoint)}};
    if (hive.size != 0) entry["size"] = hive.size;
    entry["replay"] = OrNull(hive.replay);
    if (!hive.reason.empty()) entry["reason"] = hive.reason;
    list->push_back(std::move(entry));
  }
}

Json Hives(const States &states, const RunRecord &record, const RunRecord &rehearsed) {
  Json list = Json::array();
  AddHives(states, record, &list);
  AddHives(kWould, rehearsed, &list);
  return list;
}

Json RehearsalOf(const Rehearsal &rehearsal) {
  if (!rehearsal.done) return Json();
  Json problems = Json::array();
  for (const RehearsalProblem &problem : rehearsal.problems) {
    problems.push_back({{"file", OrNull(problem.file)}, {"problem", problem.text}, {"advice", problem.advice}});
  }
  return {{"result", rehearsal.code}, {"problems", problems}};
}

Json RefusedPaths(const RunRecord &record) {
  Json list = Json::array();
  for (const RefusedPath &refused : record.refusedPaths) {
    list.push_back({{"path", refused.path}, {"reason", refused.reason}});
  }
  return list;
}

Json UnreadInfs(const RunRecord &record) {
  Json list = Json::array();
  for (const RefusedPath &unread : record.unreadInfs) list.push_back({{"inf", unread.path}, {"text", unread.reason}});
  return list;
}

}  // namespace

Json RunJson(const RunRecord &record, bool rehearsed) {
  const States &states = rehearsed ? kWould : kDone;
  const std::vector<DeletedValue> none;
  return {{"status_lines", StatusLines(record)},
          {"devices", Devices(record)},
          {"files", Files(states, record)},
          {"values", Values(states, record, {})},
          {"values_not_written", FailedValues(record)},
          {"deletions", rehearsed ? DeletionsJson(none, record.deletions) : DeletionsJson(record.deletions, none)},
          {"unread", UnreadInfs(record)},
          {"hives", Hives(states, record, {})},
          {"refused_paths", RefusedPaths(record)},
          {"problems", record.problems},
          {"log_file", OrNull(record.logFile)}};
}

void PrintRunJson(const RunOptions &options, const RunOutcome &outcome, const RunRecord &record) {
  const ResultCode &entry = FindResultCode(MeaningCode(outcome));
  const Json document = {{"machine", kDescribedMachines ? Json(options.machine) : Json()},
                         {"job", options.job},
                         {"mode", options.verify ? "verification" : "injection"},
                         {"result", outcome.code},
                         {"meaning", entry.meaning},
                         {"advice", OrNull(AdviceFor(outcome.code, record))},
                         {"exit_status", outcome.exitStatus},
                         {"status_lines", StatusLines(record)},
                         {"devices", Devices(record)},
                         {"files", Files(options.verify ? kWould : kDone, record)},
                         {"values", Values(kDone, record, ValuesToWrite(outcome, record))},
                         {"values_not_written", FailedValues(record)},
                         {"deletions", DeletionsJson(record.deletions, ValuesToDelete(outcome, record))},
                         {"unread", UnreadInfs(record)},
                         {"hives", Hives(kDone, record, outcome.rehearsal.record)},
                         {"rehearsal", RehearsalOf(outcome.rehearsal)},
                         {"refused_paths", RefusedPaths(record)},
                         {"contradictions", record.contradictions},
                         {"problems", record.problems},
                         {"named_id_problem", OrNull(record.namedIdProblem)},
                         {"boot_disk_problem", OrNull(record.scanProblem)},
                         {"log_file", OrNull(record.logFile)}};
  PrintDocument(document);
}
