// Whole runs that choose a driver as Windows would: a verification tells what the injection then does, this is all that
// happens to the restored system, and a second injection finds nothing left to do.
#include <algorithm>
#include <cstdlib>

#include "tests/support/choice_job.h"
#include "tests/support/hive_reader.h"
#include "tests/support/pe_builder.h"

namespace {

using testing::Contains;
using testing::ElementsAreArray;
using testing::HasSubstr;

class ChoiceRunTest : public ChoiceJobTest {
 protected:
  // Runs and returns what is told.
  std::vector<std::string> Changes(bool inject);
};

std::vector<std::string> ChoiceRunTest::Changes(bool inject) {
  events.clear();
  EXPECT_EQ(Run(inject), 0u) << log;
  VXRDbg_Cleanup();
  return Told();
}

// --- What became of the hive ---------------------------------------------------------------------------------------

// Of the told changes those of the hive are all that became of it: the values that are set come, the keys that are
// deleted go, each with the one value that it has, and `overwritten` values had other data.
void ExpectChanged(const std::vector<std::string> &before, const std::vector<std::string> &after,
                   const std::vector<std::string> &told, std::size_t overwritten) {
  std::vector<std::string> come, gone, set, deleted;
  std::size_t values = 0;
  for (const std::string &line : ExportDifference(before, after)) {
    if (line.starts_with("-[")) gone.push_back(line);
    if (line.starts_with("-") && !line.starts_with("-[")) ++values;
    if (line.starts_with("+") && !line.starts_with("+[")) come.push_back(line.substr(1));
  }
  for (const std::string &change : told) {
    if (change.starts_with("-[")) deleted.push_back(change);
    if (change.find(": ") != change.npos) set.push_back(change);
  }
  EXPECT_THAT(come, testing::UnorderedElementsAreArray(set));
  EXPECT_THAT(gone, testing::UnorderedElementsAreArray(deleted));
  EXPECT_EQ(values, deleted.size() + overwritten);
}

// --- Each machine of the example -----------------------------------------------------------------------------------

// What enabling a service that is held back deletes.
std::vector<std::string> Enabled(const std::vector<const char *> &services, const char *file = nullptr) {
  std::vector<std::string> told;
  if (file != nullptr) told.push_back(file);
  for (const char *service : services) {
    for (const char *set : {"ControlSet001", "ControlSet002"}) {
      told.push_back(std::string("-[") + set + "\\Services\\" + service + "\\StartOverride");
    }
  }
  return told;
}

struct Job {
  const char *name;
  std::size_t overwritten;           // values that had other data
  std::vector<std::string> changes;  // empty: more than a few
};

class ChoiceRun : public ChoiceRunTest, public testing::WithParamInterface<Job> {};

TEST_P(ChoiceRun, DoesWhatWasPlannedAndNothingElse) {
  OpenChoice(GetParam().name);
  const std::string before = RestoredTree();
  const std::vector<std::string> lines = HiveLines(Host(kHivePath));
  const std::vector<std::string> plan = Changes(false);
  EXPECT_EQ(RestoredTree(), before) << "a verification changed the restored system";
  if (!GetParam().changes.empty()) {
    EXPECT_THAT(plan, ElementsAreArray(GetParam().changes));
  }

  ASSERT_TRUE(VXRMachine_Rehearse(1));
  EXPECT_EQ(Changes(true), plan) << "in a rehearsal";
  ASSERT_TRUE(VXRMachine_Rehearse(0));
  EXPECT_EQ(RestoredTree(), before) << "a rehearsal changed the restored system";

  EXPECT_EQ(Changes(true), plan);
  ExpectChanged(lines, HiveLines(Host(kHivePath)), plan, GetParam().overwritten);
  EXPECT_EQ(Problem(), "");
  for (const MachineEvent &event : events) {
    if (event.kind != VXRMACHINE_FILE_COPIED) continue;
    char source[512], target[512];
    ASSERT_TRUE(VXRMachine_HostPath(event.detail.c_str(), source, sizeof source));
    ASSERT_TRUE(VXRMachine_HostPath(event.subject.c_str(), target, sizeof target));
    EXPECT_EQ(ReadFile(target), ReadFile(source));
  }
  const std::string after = RestoredTree();
  for (const std::string &change : Changes(true)) EXPECT_THAT(change, HasSubstr(" < ")) << "not a file";
  EXPECT_EQ(RestoredTree(), after) << "a second injection changed something";
}

constexpr char kStored[] =
    R"(D:\Windows\System32\drivers\gransas.sys < D:\Windows\system32\DriverStore\FileRepository\)"
    R"(gransas.inf_amd64_dd167ec71ef71fd6\gransas.sys 1584)";

INSTANTIATE_TEST_SUITE_P(Example, ChoiceRun,
                         testing::Values(Job{"machine", 1, {}},
                                         Job{"machine-nvme", 0, Enabled({"stornvme", "tarnbus"})},
                                         Job{"machine-sas", 0, Enabled({"gransas", "tarnbus"}, kStored)}),
                         [](const auto &test) { return "Job" + std::to_string(test.index + 10); });

// --- One of the two ways alone -------------------------------------------------------------------------------------

constexpr char kCritical[] = "ControlSet001\\Control\\CriticalDeviceDatabase\\PCI#VEN_1DEA&DEV_0A42&CC_0104: ";

TEST_F(ChoiceRunTest, RulesAndRecordAreChosenApart) {
  const struct {
    const char *rules, *record, *file;
    bool critical;
  } cases[] = {{"windows", "exact", "w10", true}, {"exact", "auto", "beta", false}, {"exact", "exact", "beta", true}};
  for (const auto &[rules, record, file, critical] : cases) {
    SCOPED_TRACE(std::string(rules) + ", " + record);
    Close();
    BecomeExample("raid-10.0-x64");
    OpenChoice("machine", rules, record, [&, rules = rules](std::string *toml) {
      if (*rules == 'e') toml->replace(toml->find("X:\\drivers'"), 10, "X:\\drivers\\raid\\beta");
    });
    const std::vector<std::string> changes = Changes(true);
    EXPECT_THAT(changes, Contains(HasSubstr(std::string("X:\\drivers\\raid\\") + file)));
    for (const char *value : {"ClassGUID 1 78 {4D36E97B-E325-11CE-BFC1-08002BE10318}", "Service 1 14 twraid"}) {
      EXPECT_EQ(testing::Value(changes, Contains(kCritical + std::string(value))), critical) << value;
    }
    EXPECT_EQ(testing::Value(changes, Contains(testing::StartsWith("DriverDatabase\\"))), !critical);
    EXPECT_EQ(Problem(), "");
  }
}

// --- Answers that change nothing -----------------------------------------------------------------------------------

TEST_F(ChoiceRunTest, WhatLeavesADiskWithoutDriverIsSaid) {
  constexpr char kNullDriver[] =
      "[Version]\nSignature=\"$Windows NT$\"\n[Manufacturer]\nT=Models,NTamd64\n[Models.NTamd64]\n"
      "T=Inst,PCI\\VEN_1DEA&DEV_0A42&CC_0104\n[Inst]\n[Inst.Services]\nAddService=,2\n";
  const struct {
    const char *name, *gone;  // a file of the restored system that is taken away
    uint32_t result;
    const char *said;
  } cases[] = {
      {"machine", nullptr, 0, "says that the device needs no driver"},
      {"machine-nvme", "stornvme", 3,
       "its stornvme has no file: D:\\Windows\\System32\\drivers\\stornvme.sys is missing"},
  };
  for (const auto &[name, gone, result, said] : cases) {
    Close();
    BecomeExample("raid-10.0-x64");
    WriteFile("ram/null/null.inf", kNullDriver);
    OpenChoice(name, "windows", "auto",
               [](std::string *toml) { toml->replace(toml->find("X:\\drivers'"), 10, "X:\\null"); });
    if (gone != nullptr) {
      std::filesystem::remove(Host(std::string("restored/Windows/System32/drivers/") + gone + ".sys"));
    }
    events.clear();
    EXPECT_EQ(Run(true), result) << log;
    std::vector<std::string> warnings;
    for (const MachineEvent &event : events) {
      if (event.kind == VXRMACHINE_PLAN_WARNING) warnings.push_back(event.subject);
    }
    EXPECT_THAT(warnings, Contains(HasSubstr(said)));
    EXPECT_THAT(Told(), testing::Each(HasSubstr("StartOverride"))) << "the devices above alone are let start";
    EXPECT_EQ(Told().empty(), result != 0);
  }
}

// A system before 6.0 records only controllers that it has met, but has the drivers and INF files of more.
TEST_F(ChoiceRunTest, AnOlderSystemsOwnInfFilesGiveDrivers) {
  Close();
  BecomeExample("ide-5.1-x86");
  const std::string service = "ServiceType=1\nStartType=0\nErrorControl=1\nServiceBinary=%12%\\";
  const std::string inf =
      "\n[Manufacturer]\nM=M\n[M]\nC=Port,Internal_IDE_Channel\nD=Pci,PCI\\VEN_8086&DEV_7111\n[Port]\n"
      "[Port.Services]\nAddService=atapi,2,A\n[A]\n" +
      service + "atapi.sys\n[Pci]\n[Pci.Services]\nAddService=intelide,2,I\n[I]\n" + service + "intelide.sys\n";
  std::string driver = BuildImage(VersionTree({}));
  driver.replace(70, 2, "\x4C\x01");  // for x86
  // The running system's are later, and made for another Windows.
  const struct {
    const char *windows, *date;
  } systems[] = {{"restored/WINDOWS", ""}, {"ram/Windows", "\nDriverVer=01/01/2020"}};
  for (const auto &[windows, date] : systems) {
    WriteFile(std::string(windows) + "/inf/mshdc.inf", std::string("[Version]\nSignature=\"$CHICAGO$\"") + date + inf);
    const std::string system = std::string(windows) + (*date == '\0' ? "/system32" : "/System32");
    for (const char *name : {"atapi", "intelide"}) WriteFile(system + "/drivers/" + name + ".sys", driver + date);
  }
  OpenChoice("machine");
  EXPECT_EQ(Run(true), 0u) << log;
  EXPECT_THAT(Told(), Contains(HasSubstr("CriticalDeviceDatabase\\Internal_IDE_Channel: Service 1 12 atapi")));
  EXPECT_THAT(Told(), Contains(HasSubstr("CriticalDeviceDatabase\\PCI#VEN_8086&DEV_7111: Service 1 18 intelide")));
  EXPECT_THAT(Told(), testing::Not(Contains(HasSubstr(".sys < ")))) << "they are there already";
  for (const MachineEvent &event : events) {
    EXPECT_NE(event.kind, VXRMACHINE_PLAN_WARNING) << event.subject;
  }
}

// --- A real hive ---------------------------------------------------------------------------------------------------

TEST_F(ChoiceRunTest, ARealHiveGetsTheRecordOrHasItsDriverEnabled) {
  const char *corpus = std::getenv("VXR_CORPUS_DIR");
  if (corpus == nullptr) GTEST_SKIP() << "VXR_CORPUS_DIR is not set";
  const std::string packed = std::string(corpus) + "/hives/SYSTEM-6.3.xz";
  ASSERT_EQ(std::system(("xz -dkc '" + packed + "' > '" + Host(kHivePath).string() + "'").c_str()), 0);
  const std::string hive = ReadFile(kHivePath);
  const std::vector<std::string> lines = HiveLines(Host(kHivePath));
  const std::string device = "PCI\\VEN_1DEA&DEV_0A42&CC_0104: ", service = "ControlSet001\\Services\\twraid: ";
  const std::vector<std::string> record = {service + "Start 4 4 0x00000000 (0)", service + "Owners 7 20 oem3.inf",
                                           "DriverDatabase: OemInfMap 3 1 F0",
                                           "DriverDatabase\\DeviceIds\\" + device + "oem3.inf 3 4 01 80 00 00"};
  for (const char *name : {"machine", "machine-nvme"}) {
    SCOPED_TRACE(name);
    const bool foreign = std::string(name) == "machine";
    Close();
    WriteFile(kHivePath, hive);
    OpenChoice(name, "windows", "auto", [](std::string *toml) {
      const std::string line = "BMEFile  = 'X:\\machine.bme'";
      toml->replace(toml->find(line), line.size(), "HAL = 9\nOSVerMaj = 6\nOSVerMin = 3");
      toml->replace(toml->find("RootPath = 'D:\\'"), 16, "RootPath = 'D:\\Windows'");
    });
    const std::vector<std::string> plan = Changes(true);
    if (foreign) {
      EXPECT_THAT(plan, testing::IsSupersetOf(record));
    } else {
      EXPECT_THAT(plan, ElementsAreArray({"-[ControlSet001\\Services\\stornvme\\StartOverride"}));
    }
    ExpectChanged(lines, HiveLines(Host(kHivePath)), plan, foreign ? 1 : 0);
    EXPECT_EQ(Problem(), "");
  }
}

}  // namespace
