#include "restore/settings.h"

#include <algorithm>
#include <cstring>

#include "engine/base/parameters.h"
#include "log/heap.h"
#include "tests/support/test_machine.h"

namespace {

using testing::HasSubstr;
using testing::Not;

// Job 3 of a parameter block that holds its key alone.
class SettingsTest : public MachineTest {
 protected:
  SettingsTest() {
    block.szJobKey = key;
    gpVXRParaBlock = &block;
  }
  ~SettingsTest() override {
    VXRRlm_Cleanup();
    gpVXRParaBlock = nullptr;
  }

  char key[32] = "SOFTWARE\\Varnelt\\Relmar\\3";
  VXR_PARABLOCK block = {};
};

constexpr char kJob[] = R"([registry.'SOFTWARE\Varnelt\Relmar\3']
Disk = '\\.\physicaldrive1'
InfDir = 'X:\Drivers'
BootPart = '\\.\PhysicalDrive1\Partition2'
RootPath = 'e:\Root'
)";

TEST_F(SettingsTest, DeviceNamesAreUpperCasedAndPathsKept) {
  Open(kJob);
  int header = 0;
  ASSERT_TRUE(VXRRlm_Initialize(9, &header));
  EXPECT_STREQ(VXRRlm_GetBootDisk(), "\\\\.\\PHYSICALDRIVE1");
  EXPECT_STREQ(VXRRlm_GetBootPart(), "\\\\.\\PHYSICALDRIVE1\\PARTITION2");
  EXPECT_STREQ(VXRRlm_GetInfDir(), "X:\\Drivers");
  EXPECT_STREQ(VXRRlm_GetRootPath(), "e:\\Root");
  EXPECT_EQ(VXRRlm_GetRootDrive(), 'e');
  EXPECT_EQ(gpVXRBMRestore->pVXRBMExt, &header);

  // A second time the first block goes before the second comes.
  log.clear();
  ASSERT_TRUE(VXRRlm_Initialize(9, nullptr));
  EXPECT_LT(log.find("freeing gpVXRBMRestore"), log.find("PVXR_BMRESTORE allocated"));
  EXPECT_TRUE(VXRRlm_Cleanup());
  EXPECT_EQ(gpVXRBMRestore, nullptr);
  EXPECT_EQ(VXRRlm_GetBootDisk(), nullptr);
  EXPECT_EQ(VXRRlm_GetRootDrive(), 'C');
}

TEST_F(SettingsTest, EachMissingValueReleasesTheOnesBefore) {
  const char *const values[] = {"Disk", "InfDir", "BootPart", "RootPath"};
  for (int missing = 0; missing < 4; ++missing) {
    SCOPED_TRACE(values[missing]);
    Close();
    std::string job = kJob;
    job.insert(job.find(values[missing]), "No");
    Open(job);
    log.clear();
    EXPECT_FALSE(VXRRlm_Initialize(3, nullptr));
    EXPECT_EQ(gpVXRBMRestore, nullptr);
    EXPECT_THAT(log, HasSubstr(std::string("ERROR:VXRRlm_Initialize:VXRReg_GetRegistryValue():failed!")));
    EXPECT_THAT(log, HasSubstr(std::string(":msg=") + values[missing] + "\n"));
    // No value after it is asked for.
    for (int later = missing + 1; later < 4; ++later) {
      EXPECT_THAT(log, Not(HasSubstr(std::string("szValue=") + values[later] + "\n")));
    }
  }
}

// The two values that most jobs lack: every text that they can have, and what is no such text.
TEST_F(SettingsTest, ChoicesAreExactUnlessTheJobSaysOtherwise) {
  const struct {
    const char *values, *told;  // told: what is no text that a value can have, and the log's line of it
    bool windows, automatic;
  } cases[] = {
      {"", "", false, false},
      {"DriverRules = 'exact'\nBootRecord = 'eXact'", "", false, false},
      {"DriverRules = 'windows'", "", true, false},
      {"bootrecord = 'AUTO'\nDRIVERRULES = 'Windows'", "", true, true},
      {"BootRecord = { type = 2, hex = '61 00 75 00 74 00 6F 00 00 00' }", "", false, true},  // expandable
      {"DriverRules = 'nonsense'", "DriverRules=nonsense is none of exact and windows, exact is used", false, false},
      {"BootRecord = ''", "BootRecord= is none of exact and auto, exact is used", false, false},
      {"BootRecord = 'windows'", "BootRecord=windows is none of exact and auto, exact is used", false, false},
      {"DriverRules = 1", "DriverRules=(no such text) is none of exact and windows, exact is used", false, false},
      {"DriverRules = ['windows']", "DriverRules=(no such text) is none of exact and windows, exact is used", false,
       false},
      {"DriverRules = 'windows windows windows windows windows windows windows windows windows'",
       "DriverRules=(no such text) is none of exact and windows, exact is used", false, false},
      {"DriverRulesToo = 'windows'\nDriverRule = 'windows'", "", false, false},
  };
  for (const auto &[values, told, windows, automatic] : cases) {
    SCOPED_TRACE(values);
    Close();
    Open(std::string(kJob) + values + "\n");
    log.clear();
    events.clear();
    ASSERT_TRUE(VXRRlm_Initialize(3, nullptr));
    EXPECT_EQ(VXRRlm_GetChoices().rules == DriverRules::kWindows, windows);
    EXPECT_EQ(VXRRlm_GetChoices().record == BootRecordKind::kAutomatic, automatic);
    const bool isTold = *told != '\0';
    EXPECT_THAT(Lines("WARNG:VXRRlm_Initialize:"), testing::ElementsAreArray(&told, isTold ? 1 : 0));
#ifndef _WIN32  // where nobody listens
    EXPECT_EQ(std::count_if(events.begin(), events.end(),
                            [](const MachineEvent &event) { return event.kind == VXRMACHINE_JOB_VALUE_UNKNOWN; }),
              isTold);
#endif
    if (!isTold) {
      EXPECT_THAT(log, Not(HasSubstr("DriverRule")));
    }
    EXPECT_FALSE(VXRRlm_GetChoices().osBuild);
    VXRRlm_Cleanup();
    EXPECT_EQ(VXRRlm_GetChoices().rules, DriverRules::kExact);
    EXPECT_EQ(VXRRlm_GetChoices().record, BootRecordKind::kExact);
  }
}

// What a job can say of the restored system and of further places; another type than a value must have is passed over.
TEST_F(SettingsTest, FurtherValuesAreTakenByTheirTypes) {
  const std::string directory(100, 'd');
  Open(std::string(kJob) + "OSBuild = 19045\nOSProduct = 3\nOSSuite = '256'\nMoreDisks = '\\\\.\\PhysicalDrive2'\n" +
       "MoreInfDirs = ['E:\\', 'F:\\" + directory + "']\n");
  log.clear();
  ASSERT_TRUE(VXRRlm_Initialize(3, nullptr));
  const RestoreChoices &choices = VXRRlm_GetChoices();
  EXPECT_EQ(choices.osBuild, 19045u);
  EXPECT_EQ(choices.osProduct, 3u);
  EXPECT_FALSE(choices.osSuite);
  EXPECT_EQ(choices.disks.c_str(), std::string());
  const std::string second = choices.infDirs.c_str() + std::strlen("E:\\") + 1;
  EXPECT_EQ(choices.infDirs.c_str() + second, "E:\\F:\\" + directory);
  EXPECT_THAT(Lines("WARNG:VXRRlm_Initialize:"),
              testing::UnorderedElementsAre("OSSuite is no REG_DWORD, it is passed over",
                                            "MoreDisks is no REG_MULTI_SZ, it is passed over"));
}

}  // namespace
