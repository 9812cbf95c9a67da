#include "device/facts.h"

#include "tests/support/standard_machine.h"
#include "tests/support/test_machine.h"

namespace {

using testing::HasSubstr;

std::string MachineOf(const std::string &drive, int processors, const std::string &memory) {
  return SystemToml({{"directory = 'X:", "directory = '" + drive},
                     {"count = 2", "count = " + std::to_string(processors)},
                     {"8589934592", memory}});
}

class FactsTest : public MachineTest {
 protected:
  void OpenQuiet(const std::string &rest, const std::string &system = "") {
    Open(rest, system);
    VXRDbg_Initialize(5, 0, nullptr);
    log.clear();
  }
};

TEST_F(FactsTest, BootMediumByDriveType) {
  const struct {
    const char *type, *line;
    DWORD medium;
  } cases[] = {
      {"fixed", "CHECK:VXRDev_GetBootMediaType:DRIVE_FIXED -> VXR_BOOTMEDIA_DISK\n", VXR_BOOTMEDIA_DISK},
      {"cdrom", "CHECK:VXRDev_GetBootMediaType:DRIVE_CDROM -> VXR_BOOTMEDIA_CDROM\n", VXR_BOOTMEDIA_CDROM},
      {"remote", "CHECK:VXRDev_GetBootMediaType:DRIVE_REMOTE -> VXR_BOOTMEDIA_NET\n", VXR_BOOTMEDIA_NET},
      {"ramdisk", "CHECK:VXRDev_GetBootMediaType:DRIVE_RAMDISK -> VXR_BOOTMEDIA_RAM\n", VXR_BOOTMEDIA_RAM},
      {"removable", "WARNG:VXRDev_GetBootMediaType:DRIVE_REMOVABLE -> VXR_BOOTMEDIA_UNKNOWN\n", VXR_BOOTMEDIA_UNKNOWN},
      {"no_root", "WARNG:VXRDev_GetBootMediaType:DRIVE_NO_ROOT_DIR -> VXR_BOOTMEDIA_UNKNOWN\n", VXR_BOOTMEDIA_UNKNOWN},
  };
  std::filesystem::create_directories(Host("start/Windows/System32"));
  for (const auto &c : cases) {
    OpenQuiet("[[drive]]\nroot = 'S:\\'\ntype = '" + std::string(c.type) + "'\npath = 'start'\n",
              MachineOf("S:", 1, "1024"));
    DWORD medium = 99;
    EXPECT_EQ(VXRDev_GetBootMediaType(&medium), c.medium != VXR_BOOTMEDIA_UNKNOWN);
    EXPECT_EQ(medium, c.medium);
    EXPECT_THAT(log, HasSubstr(c.line));
    Close();
  }
}

TEST_F(FactsTest, KernelAndHalOfTheMachine) {
  const struct {
    int processors;
    const char *memory, *id;
    DWORD kernel, hal;
    bool known = true;
  } cases[] = {
      {1, "4294967295", "E_ISA_UP", VXR_KRNL_UP, VXR_HAL_E_ISA_UP},
      {1, "4294967296", "acpipic_up", VXR_KRNL_UP_PAE, VXR_HAL_ACPIPIC_UP},
      {2, "2147483648", "ACPIAPIC_UP", VXR_KRNL_MP, VXR_HAL_ACPIAPIC_UP},
      {8, "4294967296", "acpiapic_mp_more", VXR_KRNL_MP_PAE, VXR_HAL_ACPIAPIC_MP},
      {2, "1", "MPS_UP", VXR_KRNL_MP, VXR_HAL_MPS_UP},
      {2, "1", "mps_mp", VXR_KRNL_MP, VXR_HAL_MPS_MP},
      {2, "1", "acpiapic", VXR_KRNL_MP, VXR_HAL_E_ISA_UP, false},
      {2, "1", "XMPS_UP", VXR_KRNL_MP, VXR_HAL_E_ISA_UP, false},
  };
  for (const auto &c : cases) {
    OpenQuiet(ComputerToml(c.id), MachineOf("X:", c.processors, c.memory));
    VXR_ARCHITECT architecture{};
    EXPECT_TRUE(VXRDev_GetArchInfo(VXR_BOOTMEDIA_UNKNOWN, &architecture)) << c.id;
    EXPECT_EQ(VxrGet32(architecture.KernelType), c.kernel) << c.id;
    EXPECT_EQ(VxrGet32(architecture.HalType), c.hal) << c.id;
    EXPECT_EQ(log.find("failed to translate " + std::string(c.id) + ":set to VXR_HAL_E_ISA_UP\n") == std::string::npos,
              c.known);
    Close();
  }
}

TEST_F(FactsTest, HalFromTheRegistryWhenNoComputerIsPresent) {
  OpenQuiet("[registry.'SYSTEM\\CurrentControlSet\\Enum\\Root\\ACPI_HAL\\0000']\nHardwareID = ['mps_up', 'other']\n");
  DWORD hal = 99;
  EXPECT_TRUE(VXRDev_GetHalType(&hal));
  EXPECT_EQ(hal, static_cast<DWORD>(VXR_HAL_MPS_UP));
  EXPECT_THAT(log, HasSubstr("VXRDev_GetRegProperty() failed! read registry directly\n"));
  Close();

  OpenQuiet("");
  hal = 99;
  EXPECT_FALSE(VXRDev_GetHalType(&hal));
  EXPECT_EQ(hal, static_cast<DWORD>(VXR_HAL_E_ISA_UP));
  VXR_ARCHITECT architecture = {VxrPut32(99), VxrPut32(99)};
  EXPECT_FALSE(VXRDev_GetArchInfo(VXR_BOOTMEDIA_RAM, &architecture));
  EXPECT_EQ(VxrGet32(architecture.HalType), VXR_HAL_E_ISA_UP);
  EXPECT_EQ(VxrGet32(architecture.KernelType), VXR_KRNL_MP_PAE) << "the kernel is asked for first";
  EXPECT_THAT(log, HasSubstr("ERROR:VXRDev_GetArchInfo:VXRDev_GetHalType() failed!\n"));
}

}  // namespace
