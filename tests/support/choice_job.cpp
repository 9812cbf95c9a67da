#include "tests/support/choice_job.h"

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
