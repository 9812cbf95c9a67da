// A hive's facts as text and as a JSON document.
#include <nlohmann/json.hpp>

#include "tools/vxr/base/json_values.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/hive/hive_facts.h"

using Json = nlohmann::ordered_json;

namespace {

void PrintFact(const char *name, const std::string &value) { PrintLine(Padded(std::string("  ") + name, 20) + value); }

std::string Entries(const LogFacts &log) {
  if (log.entries == 0) return "no valid entry";
  if (log.entries == 1) return "1 entry, " + std::to_string(log.first);
  return std::to_string(log.entries) + " entries, " + std::to_string(log.first) + " to " + std::to_string(log.last);
}

void PrintLog(const LogFacts &log, bool needed) {
  std::string line = "  " + log.name + ": ";
  if (log.size == 0) {
    line += "empty";
  } else if (log.format.empty()) {
    line += "no log, " + Bytes(log.size);
  } else {
    line += log.format + " format, number " + std::to_string(*log.number) + ", " + Bytes(log.size);
  }
  PrintLine(line);
  if (!log.format.empty()) PrintLine("      " + Entries(log));
  if (log.applied) {
    PrintLine("      applies", Style::kGood);
  } else if (needed && log.size != 0 && !log.reason.empty()) {
    PrintLine("      does not apply: it " + log.reason);
  }
}

Json LogJson(const LogFacts &log) {
  Json json = {{"name", log.name},
               {"size", log.size},
               {"format", OrNull(log.format)},
               {"number", OrNull(log.number)},
               {"entries", log.entries}};
  if (log.entries != 0) {
    json["first"] = log.first;
    json["last"] = log.last;
  }
  json["applies"] = log.applied;
  if (!log.reason.empty()) json["reason"] = log.reason;
  return json;
}

}  // namespace

void PrintHiveText(const HiveFacts &facts) {
  PrintLine(facts.file, Style::kBold);
  PrintFact("version", std::to_string(facts.major) + "." + std::to_string(facts.minor));
  PrintFact("size", Bytes(facts.size) + ", bins " + Bytes(facts.binsSize));
  PrintFact("sequence numbers", std::to_string(facts.primary) + " and " + std::to_string(facts.secondary));
  PrintFact("state", facts.clean ? "clean" : "not closed cleanly");
  if (!facts.replay.empty()) {
    PrintFact("recovery", facts.replay + "; both numbers are then " + std::to_string(facts.numberAfter));
  }
  if (facts.controlSet) PrintFact("control set", std::to_string(*facts.controlSet));
  if (facts.machineName) PrintFact("machine name", *facts.machineName);
  if (!facts.logs.empty()) PrintLine("Logs", Style::kBold);
  for (const LogFacts &log : facts.logs) PrintLog(log, !facts.clean);
}

void PrintHiveJson(const HiveFacts &facts, const std::vector<std::string> &errors, int exitStatus) {
  Json logs = Json::array();
  for (const LogFacts &log : facts.logs) logs.push_back(LogJson(log));
  Json document = {{"file", facts.file},
                   {"size", facts.size},
                   {"version", std::to_string(facts.major) + "." + std::to_string(facts.minor)},
                   {"primary", facts.primary},
                   {"secondary", facts.secondary},
                   {"bins_size", facts.binsSize}};
  document["clean"] = facts.clean;
  document["refusal"] = OrNull(facts.refusal);
  document["replay"] = OrNull(facts.replay);
  if (!facts.replay.empty()) document["number_after_replay"] = facts.numberAfter;
  document["logs"] = std::move(logs);
  document["control_set"] = OrNull(facts.controlSet);
  document["machine_name"] = OrNull(facts.machineName);
  AddEnd(errors, exitStatus, &document);
  PrintDocument(document);
}
