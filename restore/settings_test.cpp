#include "restore/settings.h"

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

}  // namespace
