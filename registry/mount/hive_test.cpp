#include "registry/mount/hive.h"

#include "bmext/load.h"
#include "engine/base/parameters.h"
#include "engine/base/status.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/handles.h"
#include "platform/machine/registry/registry.h"
#include "registry/values.h"
#include "restore/settings.h"
#include "tests/support/restore_job.h"
#include "tests/support/standard_machine.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char *kSystem32 = "X:\\Windows\\System32";

class HiveMounting : public MachineTest {
 protected:
  HiveMounting() {
    for (const char *directory : {"restored/cfg", "restored/with blank"})
      std::filesystem::create_directories(Host(directory));
    WriteHive(Host("restored/cfg/system"), SystemHiveValues(2));
    WriteHive(Host("restored/cfg/sam"), SystemHiveValues(1));
    WriteHive(Host("restored/with blank/system"), SystemHiveValues(1));
  }
  ~HiveMounting() override {
    VXRReg_UnloadHive(kSystem32);
    EXPECT_EQ(szCurHiveFile, nullptr);
    EXPECT_EQ(machine::OpenHandles(), 0u);
  }
};

TEST_F(HiveMounting, AFailedUnloadIsForgotten) {
  Open();
  ASSERT_TRUE(VXRReg_LoadHiveFile(kSystem32, "D:\\cfg\\system"));
  const DWORD start = 3;
  ASSERT_TRUE(VXRReg_SetRegValueToHive(VXR_KEY_ORG_SERVICES, "disk", "Start", &start, REG_DWORD, sizeof start));
  machine::SetFaultPlan({"hive write", 1, false, 0});
  EXPECT_FALSE(VXRReg_UnloadHive(kSystem32));
  machine::SetFaultPlan({});
  EXPECT_THAT(log, HasSubstr("CHECK:VXRReg_UnloadHive:VXREng_ExecCommand() failed!\n"));
  EXPECT_EQ(szCurHiveFile, nullptr);
  log.clear();
  EXPECT_TRUE(VXRReg_UnloadHive(kSystem32));
  EXPECT_THAT(log, Not(HasSubstr("ExecCommand")));
}

// The hives of the restored system, found as a restore run finds them.
class RestoredHive : public RestoreJobTest {
 protected:
  RestoredHive() {
    WriteHive(Host(kHivePath), SystemHiveValues(2));
    WriteHive(Host(kHivePath).replace_filename("sam"), SystemHiveValues(1));
  }
  void InitializeJob() {
    OpenJob();
    ASSERT_TRUE(VXREng_Initialize(1, 1));
    ASSERT_TRUE(VXRExt_Initialize(1, nullptr));
    ASSERT_TRUE(VXRRlm_Initialize(1, nullptr));
  }
  ~RestoredHive() override {
    VXRReg_UnloadHive(kSystem32);
    VXRRlm_Cleanup();
    VXRExt_Cleanup();
    VXREng_Cleanup();
  }
};

TEST_F(RestoredHive, IsMountedByTypeAndItsControlSetRecorded) {
  InitializeJob();
  EXPECT_TRUE(VXRReg_LoadHive(0, gpVXRParaBlock));
  EXPECT_STREQ(szCurHiveFile, "D:\\Windows\\system32\\config\\system");
  EXPECT_EQ(gpVXRParaBlock->dwCtrlSetIndex, 2u);
  EXPECT_THAT(log, HasSubstr("CHECK:VXRReg_LoadHive:Control Set Index = 2\n"));
  EXPECT_TRUE(VXRReg_LoadHive(3, gpVXRParaBlock));
  EXPECT_STREQ(szCurHiveFile, "D:\\Windows\\system32\\config\\sam");
  EXPECT_EQ(gpVXRParaBlock->dwCtrlSetIndex, 1u);

  EXPECT_FALSE(VXRReg_LoadHive(4, gpVXRParaBlock));
  EXPECT_THAT(log, HasSubstr("ERROR:VXRReg_LoadHive:VXREng_GetStringAs(8) failed!\n"));
  EXPECT_EQ(szCurHiveFile, nullptr) << "a failure leaves nothing mounted";
  EXPECT_FALSE(VXRReg_LoadHive(1, gpVXRParaBlock)) << "there is no such file";
  EXPECT_THAT(log, HasSubstr("ERROR:VXRReg_LoadHive:VXRReg_LoadHiveFile(X:\\Windows\\System32, "
                             "D:\\Windows\\system32\\config\\software) failed!\n"));
}

}  // namespace
