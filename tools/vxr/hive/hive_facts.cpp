#include "tools/vxr/hive/hive_facts.h"

#include "platform/machine/hive/hive_logs.h"
#include "rescue/system_files.h"

namespace {

using machine::Hive;

LogFacts FactsOf(const machine::HiveLog &log) {
  LogFacts facts;
  facts.name = log.name;
  facts.size = log.size;
  if (log.format != machine::LogFormat::kNone) {
    facts.format = log.format == machine::LogFormat::kNew ? "new" : "old";
    facts.number = log.head.primary;
  }
  facts.entries = static_cast<std::uint32_t>(log.entries.size());
  if (!log.entries.empty()) {
    facts.first = log.entries.front().number;
    facts.last = log.entries.back().number;
  }
  return facts;
}

std::vector<LogFacts> FactsOfLogs(const Hive &hive) {
  std::vector<LogFacts> logs;
  for (std::size_t i = 0; i < hive.logs.size(); ++i) {
    logs.push_back(FactsOf(hive.logs[i]));
    if (i >= hive.recovery.verdicts.size()) continue;
    logs.back().applied = hive.recovery.verdicts[i].applied;
    logs.back().reason = hive.recovery.verdicts[i].reason;
  }
  return logs;
}

// The control set that the system starts from next, and the name in it.
void ReadSystemFacts(Hive *hive, HiveFacts *facts) {
  facts->controlSet = rescue::ReadHiveNumber(hive, u"Select", u"Current");
  if (!facts->controlSet) return;
  const std::u16string key = rescue::ControlSetName(*facts->controlSet) + u"\\Control\\ComputerName\\ComputerName";
  facts->machineName = rescue::ReadHiveText(hive, key, u"ComputerName");
}

// Reads the logs, whatever the hive is, and a usable hive itself. The first failure, that of opening it included.
machine::Status ReadAll(Hive *hive, const machine::Status &opened) {
  machine::Status logs = ReadHiveLogs(&hive->logs);
  if (!opened) return opened;
  return logs ? ReadHive(hive) : logs;
}

}  // namespace

HiveFacts CollectHiveFacts(const std::string &file, Hive *hive, const machine::Status &opened) {
  HiveFacts facts;
  facts.file = file;
  facts.size = hive->size;
  // What an unsound base block says of itself is still worth seeing.
  facts.isHive = hive->head.hasSignature && hive->head.type == 0;
  facts.clean = facts.isHive && !NeedsRecovery(hive->head);
  facts.major = hive->head.major;
  facts.minor = hive->head.minor;
  facts.primary = hive->head.primary;
  facts.secondary = hive->head.secondary;
  facts.binsSize = hive->head.binsSize;
  // Only a dirty hive's logs have been read; a look is for seeing them all.
  const machine::Status readable = ReadAll(hive, opened);
  facts.logs = FactsOfLogs(*hive);
  if (hive->recovered) {
    facts.replay = DescribeReplay(hive->recovery);
    facts.numberAfter = hive->recovery.number;
  }
  facts.refusal = rescue::HiveWords(readable);
  if (readable) ReadSystemFacts(hive, &facts);
  return facts;
}
