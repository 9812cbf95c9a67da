#include <cstdio>
#include <nlohmann/json.hpp>

#include "tools/vxr/output.h"
#include "tools/vxr/run_text.h"

using Json = nlohmann::ordered_json;

namespace {

// Absent texts are null, so that a program need not tell "" from "nothing".
Json TextOrNull(const std::string &text) { return text.empty() ? Json() : Json(text); }

Json StatusLines(const RunRecord &record) {
  Json list = Json::array();
  for (const StatusLine &line : record.lines) {
    list.push_back({{"text", line.text}, {"code", line.code}, {"log", TextOrNull(line.cause)}});
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
    list.push_back({{"instance", device.instance}, {"driver", driver}, {"failed", device.failed}});
  }
  return list;
}

Json Files(const RunOptions &options, const RunRecord &record) {
  const char *const notCopied = options.verify ? "would_copy" : "found";
  Json list = Json::array();
  for (const CopyRecord &copy : record.copies) {
    const char *state = copy.copied ? "copied" : copy.reason.empty() ? notCopied : "not_copied";
    Json file = {{"state", state}, {"target", copy.target}, {"source", TextOrNull(copy.source)}};
    if (copy.copied) file["size"] = copy.size;
    if (copy.reason.empty()) file["left_over"] = copy.use == CopyUse::kLeftOver;
    if (!copy.reason.empty()) {
      file["reason"] = copy.reason;
      file["old_target_kept"] = copy.keptOld;
    }
    list.push_back(std::move(file));
  }
  return list;
}

Json Values(const RunRecord &record) {
  Json list = Json::array();
  for (const ValueRecord &value : record.values) {
    list.push_back({{"system", InRestoredHive(value) ? "restored" : "running"},
                    {"key", value.key},
                    {"name", value.name},
                    {"type", ValueTypeName(value.type)},
                    {"size", value.size},
                    {"data", value.data}});
  }
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

Json Hives(const RunRecord &record) {
  Json list = Json::array();
  for (const HiveRecord &hive : record.hives) {
    static const char *const kStates[] = {"mounted", "saved", "not_saved", "refused", "unflushed"};
    Json entry = {{"state", kStates[static_cast<int>(hive.outcome)]},
                  {"file", hive.file},
                  {"mount_point", TextOrNull(hive.mountPoint)}};
    if (hive.size != 0) entry["size"] = hive.size;
    entry["replay"] = TextOrNull(hive.replay);
    if (!hive.reason.empty()) entry["reason"] = hive.reason;
    list.push_back(std::move(entry));
  }
  return list;
}

Json RefusedPaths(const RunRecord &record) {
  Json list = Json::array();
  for (const RefusedPath &refused : record.refusedPaths) {
    list.push_back({{"path", refused.path}, {"reason", refused.reason}});
  }
  return list;
}

}  // namespace

void PrintRunJson(const RunOptions &options, const RunOutcome &outcome, const RunRecord &record) {
  const ResultCode &entry = FindResultCode(outcome.code);
  const Json document = {{"machine", kDescribedMachines ? Json(options.machine) : Json()},
                         {"job", options.job},
                         {"mode", options.verify ? "verification" : "injection"},
                         {"result", outcome.code},
                         {"meaning", entry.meaning},
                         {"advice", TextOrNull(entry.advice)},
                         {"exit_status", outcome.exitStatus},
                         {"status_lines", StatusLines(record)},
                         {"devices", Devices(record)},
                         {"files", Files(options, record)},
                         {"values", Values(record)},
                         {"values_not_written", FailedValues(record)},
                         {"hives", Hives(record)},
                         {"refused_paths", RefusedPaths(record)},
                         {"contradictions", record.contradictions},
                         {"named_id_problem", TextOrNull(record.namedIdProblem)},
                         {"boot_disk_problem", TextOrNull(record.scanProblem)},
                         {"log_file", TextOrNull(record.logFile)}};
  std::printf("%s\n", document.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}
