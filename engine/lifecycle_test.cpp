#include "engine/base/parameters.h"
#include "log/heap.h"
#include "platform/machine/base/fault.h"
#include "tests/support/standard_machine.h"
#include "tests/support/test_machine.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

const std::string kComputer = ComputerToml();

class LifecycleTest : public MachineTest {
 protected:
  ~LifecycleTest() override {
    if (gpVXRParaBlock != nullptr) VXREng_Cleanup();
  }
};

TEST_F(LifecycleTest, BuildsTheBlockFromTheMachine) {
  Open(kComputer);
  EXPECT_EQ(VXREng_GetJobKey(), nullptr);
  EXPECT_EQ(VXREng_GetProductPath(), nullptr);
  ASSERT_TRUE(VXREng_Initialize(0, 3));
  EXPECT_STREQ(VXREng_GetJobKey(), "SOFTWARE\\Varnelt\\Relmar\\3");
  EXPECT_STREQ(VXREng_GetProductPath(), "X:\\Halcyra");
  EXPECT_STREQ(gpVXRParaBlock->szSystemPath, "X:\\Windows\\System32");
  EXPECT_STREQ(gpVXRParaBlock->szWindowsPath, "X:\\Windows");
  EXPECT_EQ(gpVXRParaBlock->dwJob, 3u);
  EXPECT_EQ(gpVXRParaBlock->bInject, FALSE);
  EXPECT_EQ(gpVXRParaBlock->dwBootMedia, VXR_BOOTMEDIA_RAM);
  EXPECT_EQ(VxrGet32(gpVXRParaBlock->Arch.HalType), VXR_HAL_ACPIAPIC_MP);
  EXPECT_EQ(VxrGet32(gpVXRParaBlock->Arch.KernelType), VXR_KRNL_MP_PAE);
  EXPECT_EQ(gpVXRParaBlock->dwCtrlSetIndex + gpVXRParaBlock->dwDevCnt, 0u);

  EXPECT_TRUE(VXREng_Cleanup());
  EXPECT_EQ(gpVXRParaBlock, nullptr);
  log.clear();
  EXPECT_TRUE(VXREng_Cleanup());
  EXPECT_EQ(log, "FLUSH:VXREng_Cleanup:___ENTER___\nFLUSH:VXREng_Cleanup:___LEAVE___\n");
}

TEST_F(LifecycleTest, ASecondStartReleasesTheFirstBlockAndItsDevices) {
  Open(kComputer);
  ASSERT_TRUE(VXREng_Initialize(1, 1));
  gpVXRParaBlock->pVXRDevices[0] = AllocRecord<VXR_DEVICE>("device").release();  // a leak unless the block frees it
  gpVXRParaBlock->dwDevCnt = 1;
  ASSERT_TRUE(VXREng_Initialize(1, 0xFFFFFFFF));
  EXPECT_STREQ(VXREng_GetJobKey(), "SOFTWARE\\Varnelt\\Relmar\\-1");
  EXPECT_EQ(gpVXRParaBlock->bInject, TRUE);
  EXPECT_EQ(gpVXRParaBlock->dwDevCnt, 0u);
}

}  // namespace
