#include "device/facts.h"

#include "device/class_guids.h"
#include "device/properties.h"
#include "device/records.h"
#include "platform/machine/base/fault.h"
#include "tests/support/test_machine.h"

namespace {

using testing::HasSubstr;
using testing::Not;

std::string SystemToml(const std::string &directory, int processors, const std::string &memory) {
  return "[system]\nsystem_directory = '" + directory + "'\nwindows_directory = 'X:\\Windows'\n" +
         "os = { major = 6, minor = 1, build = 7601, platform = 2 }\nprocessor = { count = " +
         std::to_string(processors) + ", architecture = 9 }\nmemory = " + memory + "\n";
}

std::string ComputerToml(const std::string &hardwareId) {
  return "[[device]]\ninstance = 'ROOT\\ACPI_HAL\\0000'\nclass = 'Computer'\nhardware_ids = ['" + hardwareId + "']\n";
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
    const char *type;
    DWORD medium;
    const char *line;
  } cases[] = {
      {"fixed", VXR_BOOTMEDIA_DISK, "CHECK:VXRDev_GetBootMediaType:DRIVE_FIXED -> VXR_BOOTMEDIA_DISK\n"},
      {"cdrom", VXR_BOOTMEDIA_CDROM, "CHECK:VXRDev_GetBootMediaType:DRIVE_CDROM -> VXR_BOOTMEDIA_CDROM\n"},
      {"remote", VXR_BOOTMEDIA_NET, "CHECK:VXRDev_GetBootMediaType:DRIVE_REMOTE -> VXR_BOOTMEDIA_NET\n"},
      {"ramdisk", VXR_BOOTMEDIA_RAM, "CHECK:VXRDev_GetBootMediaType:DRIVE_RAMDISK -> VXR_BOOTMEDIA_RAM\n"},
      {"removable", VXR_BOOTMEDIA_UNKNOWN, "WARNG:VXRDev_GetBootMediaType:DRIVE_REMOVABLE -> VXR_BOOTMEDIA_UNKNOWN\n"},
      {"no_root", VXR_BOOTMEDIA_UNKNOWN, "WARNG:VXRDev_GetBootMediaType:DRIVE_NO_ROOT_DIR -> VXR_BOOTMEDIA_UNKNOWN\n"},
  };
  std::filesystem::create_directories(Host("start/Windows/System32"));
  for (const auto &c : cases) {
    SCOPED_TRACE(c.type);
    OpenQuiet("[[drive]]\nroot = 'S:\\'\ntype = '" + std::string(c.type) + "'\npath = 'start'\n",
              SystemToml("S:\\Windows\\System32", 1, "1024"));
    DWORD medium = 99;
    EXPECT_EQ(VXRDev_GetBootMediaType(&medium), c.medium != VXR_BOOTMEDIA_UNKNOWN);
    EXPECT_EQ(medium, c.medium);
    EXPECT_THAT(log, HasSubstr("checking root drive type:root=S::type="));
    EXPECT_THAT(log, HasSubstr(c.line));
    EXPECT_FALSE(VXRDev_GetBootMediaType(nullptr));
    Close();
  }
}

TEST_F(FactsTest, KernelByProcessorsAndMemory) {
  const struct {
    int processors;
    const char *memory;
    DWORD kernel;
  } cases[] = {
      {1, "4294967295", VXR_KRNL_UP},
      {1, "4294967296", VXR_KRNL_UP_PAE},
      {2, "2147483648", VXR_KRNL_MP},
      {8, "4294967296", VXR_KRNL_MP_PAE},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.memory);
    OpenQuiet("", SystemToml("X:\\Windows\\System32", c.processors, c.memory));
    DWORD kernel = 99;
    EXPECT_TRUE(VXRDev_GetKrnlType(&kernel));
    EXPECT_EQ(kernel, c.kernel);
    Close();
  }
}

TEST_F(FactsTest, HalByTheComputersHardwareId) {
  const struct {
    const char *id;
    DWORD hal;
    bool known;
  } cases[] = {
      {"E_ISA_UP", VXR_HAL_E_ISA_UP, true},       {"acpipic_up", VXR_HAL_ACPIPIC_UP, true},
      {"ACPIAPIC_UP", VXR_HAL_ACPIAPIC_UP, true}, {"acpiapic_mp_more", VXR_HAL_ACPIAPIC_MP, true},
      {"MPS_UP", VXR_HAL_MPS_UP, true},           {"mps_mp", VXR_HAL_MPS_MP, true},
      {"acpiapic", VXR_HAL_E_ISA_UP, false},      {"XMPS_UP", VXR_HAL_E_ISA_UP, false},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.id);
    OpenQuiet(ComputerToml(c.id));
    DWORD hal = 99;
    EXPECT_TRUE(VXRDev_GetHalType(&hal));
    EXPECT_EQ(hal, c.hal);
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

TEST_F(FactsTest, ArchitectureNeedsBoth) {
  OpenQuiet(ComputerToml("acpiapic_up"));
  VXR_ARCHITECT architecture{};
  EXPECT_TRUE(VXRDev_GetArchInfo(VXR_BOOTMEDIA_UNKNOWN, &architecture));
  EXPECT_EQ(VxrGet32(architecture.HalType), VXR_HAL_ACPIAPIC_UP);
  EXPECT_EQ(VxrGet32(architecture.KernelType), VXR_KRNL_MP_PAE);
  EXPECT_FALSE(VXRDev_GetArchInfo(0, nullptr));
  machine::SetFaultPlan({"GlobalMemoryStatusEx", 1, false, 31});
  EXPECT_FALSE(VXRDev_GetArchInfo(0, &architecture));
  EXPECT_THAT(log, HasSubstr("ERROR:VXRDev_GetKrnlType:GlobalMemoryStatusEx() failed!ec=0x0000001f\n"
                             "FLUSH:VXRDev_GetKrnlType:___LEAVE___\n"
                             "ERROR:VXRDev_GetArchInfo:VXRDev_GetKrnlType() failed\n"));
}

// Properties, of the one computer device.
class PropertiesTest : public FactsTest {
 protected:
  void SetUp() override { OpenQuiet(ComputerToml("acpiapic_up")); }
  DWORD type = 99, size = 99;
};

TEST_F(PropertiesTest, ReadsARawValueWithSpareZeroBytes) {
  const HeapText ids = VXRDev_GetRegProperty(nullptr, &kComputerClass, 0, SPDRP_HARDWAREID, &size, &type);
  ASSERT_NE(ids, nullptr);
  EXPECT_EQ(std::string(ids.get(), size), std::string("acpiapic_up\0", 13));
  EXPECT_EQ(std::string(ids.get() + size, 2), std::string(2, '\0'));
  EXPECT_EQ(type, REG_MULTI_SZ);
  EXPECT_THAT(log, HasSubstr("CHECK:VXRDev_GetRegProperty:retrieving SPDRP_HARDWAREID                 \n"));
  EXPECT_THAT(log, HasSubstr(":prop 1 as type 7 needs 13 bytes!\n"));
}

TEST_F(PropertiesTest, LeavesTheCallersSetOpen) {
  const DeviceSet set = PresentDevices(nullptr);
  ASSERT_NE(set, nullptr);
  machine::SetFaultPlan({"SetupDiGetClassDevsA", 1});
  for (int i = 0; i < 2; ++i) {
    EXPECT_NE(VXRDev_GetRegProperty(set.get(), &kComputerClass, 0, SPDRP_HARDWAREID, &size, &type), nullptr);
  }
  EXPECT_EQ(machine::FaultCalls(), 0u);
}

TEST_F(PropertiesTest, RefusesWithItsLineAndClearsTypeAndSize) {
  const struct {
    const char *call;  // that fails, or null
    unsigned nth;
    const GUID *guid;
    DWORD index, property;
    const char *line;
  } cases[] = {
      {nullptr, 0, nullptr, 0, 1, "ERROR:VXRDev_GetRegProperty:NULL GUID!\n"},
      {nullptr, 0, &kComputerClass, 0, 36, "ERROR:VXRDev_GetRegProperty:Prop=24 > SPDRP_MAXIMUM_PROPERTY!\n"},
      {nullptr, 0, &kComputerClass, 0, 35, "CHECK:VXRDev_GetRegProperty:retrieving SPDRP_UNKOWN_ERROR "},
      {"SetupDiGetClassDevsA", 1, &kComputerClass, 0, 1, ":SetupDiGetClassDevs():failed:ec=0x0000001f\n"},
      {nullptr, 0, &kComputerClass, 1, 1, ":SetupDiEnumDeviceInfo() failed for index=1!ec=0x00000103\n"},
      {nullptr, 0, &kComputerClass, 0, 2, "():failed!ec=13:0x0000000d:msg=failed to get size!\n"},
      {"SetupDiGetDeviceRegistryPropertyA", 2, &kComputerClass, 0, 1, "(Prop=1):ec=0x0000001f:failed to query!\n"},
      {"SetupDiGetDeviceRegistryPropertyA", 2, &kComputerClass, 0, 1, ":VXRDev_GetRegPropByDevInfo() failed!\n"},
      {"HeapAlloc", 1, &kComputerClass, 0, 1, ":AllocHeap(13 bytes) failed for pPropBuf:ec=31:0x0000001F\n"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.line);
    log.clear();
    type = size = 99;
    machine::SetFaultPlan({c.call, c.nth, false, 31});
    EXPECT_EQ(VXRDev_GetRegProperty(INVALID_HANDLE_VALUE, c.guid, c.index, c.property, &size, &type), nullptr);
    machine::SetFaultPlan({});
    EXPECT_EQ(type + size, 0u);
    EXPECT_THAT(log, HasSubstr(c.line));
  }
}

}  // namespace
