#include "engine/base/parameters.h"
#include "log/heap.h"
#include "platform/machine/base/fault.h"
#include "tests/support/test_machine.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr char kComputer[] = R"(
[[device]]
instance = 'ROOT\ACPI_HAL\0000'
class = 'Computer'
hardware_ids = ['acpiapic_mp']
)";

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

TEST_F(LifecycleTest, ProductPathLosesOneBackslash) {
  const struct {
    const char *stored;
    const char *path;
  } cases[] = {{"'X:\\Product\\'", "X:\\Product"},
               {"'X:\\Product'", "X:\\Product"},
               {"{ type = 1, hex = '58 00 3A 00 5C 00' }", "X:"}};  // stored without a terminator
  for (const auto &c : cases) {
    SCOPED_TRACE(c.stored);
    // The standard machine holds the value already; a key of another spelling is laid over it.
    Open(std::string(kComputer) + "[registry.'Software\\Varnelt\\Halcyra']\nHCDIR = " + c.stored + "\n");
    ASSERT_TRUE(VXREng_Initialize(0, 1));
    EXPECT_STREQ(VXREng_GetProductPath(), c.path);
    VXREng_Cleanup();
    Close();
  }
}

TEST_F(LifecycleTest, EachFailureHasItsLineAndLeavesNoBlock) {
  const struct {
    const char *call;
    unsigned nth;
    const char *line;
  } cases[] = {
      {"HeapAlloc", 1, "failed for gpVXRParaBlock:ec=8:0x00000008\n"},
      {"HeapAlloc", 2, "AllocHeap(39 bytes) failed for gpVXRParaBlock->szJobKe:ec=8:0x00000008\n"},
      {"GetSystemDirectoryA", 1, "GetSystemDirectory():failed!ec=31:0x0000001f:msg=Size returned 0!\n"},
      {"HeapAlloc", 3, "failed for gpVXRParaBlock->szSystemPath:ec=8:0x00000008\n"},
      {"GetSystemDirectoryA", 2, "GetSystemDirectory():failed!ec=31:0x0000001f:msg=None\n"},
      {"GetWindowsDirectoryA", 1, "GetWindowsDirectory():failed!ec=31:0x0000001f:msg=Size returned 0!\n"},
      {"HeapAlloc", 4, "failed for gpVXRParaBlock->szWindowsPath:ec=8:0x00000008\n"},
      {"GetWindowsDirectoryA", 2, "GetWindowsDirectory():failed!ec=31:0x0000001f:msg=None\n"},
      {"RegOpenKeyA", 1, "VXRReg_GetRegistryValue() for szVrnltPath failed!\n"},
      {"GetDriveTypeA", 1, "VXRDev_GetBootMediaType():failed!ec=31:0x0000001f:msg=None\n"},
      {"GlobalMemoryStatusEx", 1, "VXRDev_GetArchInfo() faield!\n"},
  };
  Open(kComputer);
  VXRDbg_Initialize(5, 0, nullptr);
  for (const auto &c : cases) {
    SCOPED_TRACE(std::string(c.call) + " " + std::to_string(c.nth));
    log.clear();
    const DWORD error = std::string(c.call) == "HeapAlloc" ? ERROR_NOT_ENOUGH_MEMORY : ERROR_GEN_FAILURE;
    machine::SetFaultPlan({c.call, c.nth, false, error});
    EXPECT_FALSE(VXREng_Initialize(1, 7));
    EXPECT_EQ(machine::FaultsMet(), 1u);
    machine::SetFaultPlan({});
    EXPECT_EQ(gpVXRParaBlock, nullptr);
    EXPECT_THAT(log, HasSubstr("ERROR:VXREng_Initialize:"));
    EXPECT_THAT(log, HasSubstr(c.line));
    EXPECT_THAT(log, EndsWith("FLUSH:VXREng_Cleanup:___LEAVE___\nFLUSH:VXREng_Initialize:___LEAVE___\n"));
  }
}

// Whatever single call fails, once or for good: a whole block or none, and nothing leaks.
TEST_F(LifecycleTest, NoSingleFailureLeavesHalfABlock) {
  Open(kComputer);
  VXRDbg_Initialize(5, 0, nullptr);
  for (const bool onwards : {false, true}) {
    unsigned nth = 1;
    for (; nth < 500; ++nth) {
      machine::SetFaultPlan({"*", nth, onwards});
      const bool built = VXREng_Initialize(1, 1) != 0;
      const bool met = machine::FaultsMet() > 0;
      machine::SetFaultPlan({});
      ASSERT_EQ(built, gpVXRParaBlock != nullptr);
      if (!met) {
        EXPECT_TRUE(built);
        break;
      }
      VXREng_Cleanup();
    }
    EXPECT_GT(nth, 10u);
    EXPECT_LT(nth, 500u);
  }
}

}  // namespace
