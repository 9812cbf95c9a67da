#include "tests/support/choice_job.h"

#include "tests/support/hive_reader.h"
#include "tests/support/hive_structure.h"

const char *const ChoiceJobTest::kHivePath = "restored/Windows/System32/config/SYSTEM";

ChoiceJobTest::ChoiceJobTest() { BecomeExample("raid-10.0-x64"); }

void ChoiceJobTest::OpenChoice(const std::string &name, const char *rules, const char *record,
                               const std::function<void(std::string *toml)> &bend) {
  constexpr char kJobKey[] = "[registry.'SOFTWARE\\Varnelt\\Relmar\\";
  std::string toml = ReadFile(name + ".toml");
  const std::size_t number = toml.find(kJobKey) + sizeof kJobKey - 1;
  job = static_cast<uint32_t>(std::stoul(toml.substr(number)));
  std::string choices;
  if (rules != nullptr) choices += std::string("DriverRules = '") + rules + "'\n";
  if (record != nullptr) choices += std::string("BootRecord = '") + record + "'\n";
  toml.insert(toml.find('\n', number) + 1, choices);
  if (bend) bend(&toml);
  WriteFile("bent.toml", toml);
  OpenFile("bent.toml");
}

uint32_t ChoiceJobTest::Run(bool inject) { return VXREng_RunVXR(job, inject ? 1 : 0, nullptr, window); }

std::string ChoiceJobTest::Problem() const {
  const std::string bytes = ReadFile(kHivePath);
  return HiveProblem({bytes.begin(), bytes.end()});
}

std::vector<std::string> ChoiceJobTest::Told() const {
  constexpr char kMount[] = "SYSTEM_ORG\\";
  std::vector<std::string> told;
  for (const MachineEvent &event : events) {
    const uint32_t kind = event.kind;
    if (kind == VXRMACHINE_PLAN_FILE || kind == VXRMACHINE_FILE_COPIED) {
      told.push_back(event.subject + " < " + event.detail + " " + std::to_string(event.size));
    }
    if (!event.subject.starts_with(kMount)) continue;
    const std::string key = event.subject.substr(sizeof kMount - 1);
    if (kind == VXRMACHINE_PLAN_DELETE || kind == VXRMACHINE_VALUE_DELETED) {
      told.push_back("-[" + key + (event.detail.empty() ? "" : ": " + event.detail));
    } else if (kind == VXRMACHINE_PLAN_VALUE || kind == VXRMACHINE_VALUE_WRITTEN) {
      told.push_back(HiveValueLine(key, event.detail, event.type, event.size, event.text));
    }
  }
  return told;
}
