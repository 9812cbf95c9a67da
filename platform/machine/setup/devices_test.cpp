// Device sets, properties and drivers on a described machine.
#include <cstring>

#include "platform/machine/base/file_time.h"
#include "platform/machine/description/records.h"
#include "platform/machine/setup/device_set.h"
#include "platform/machine/setup/driver_version.h"
#include "tests/support/test_machine.h"

namespace {

using namespace platform;
using testing::ElementsAre;

constexpr GUID kScsiAdapter = {0x4D36E97B, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
constexpr GUID kDiskDrive = {0x4D36E967, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
constexpr GUID kDiskInterface = {0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};

constexpr char kDevices[] = R"(
[[disk]]
number = 1

[[disk]]
number = 0
interface = '\\?\scsi#disk&ven_acme#4&1#{53f56307-b6bf-11d0-94f2-00a0c91efb8b}'

[[disk]]
number = 2
interface = '\\?\usb#unknown#1#{53f56307-b6bf-11d0-94f2-00a0c91efb8b}'

[[device]]
instance = 'SCSI\Disk&Ven_ACME\4&1'
class = 'DiskDrive'
parent = 'pci\ven_1000&dev_0030\3&1'

[[device]]
instance = 'ROOT\Bare\0000'

[[device]]
instance = 'PCI\VEN_1000&DEV_0030\3&1'
class = '{4d36e97b-e325-11ce-bfc1-08002be10318}'
hardware_ids = ['PCI\VEN_1000&DEV_0030&SUBSYS_1', 'PCI\VEN_1000&DEV_0030']
compatible_ids = ['PCI\VEN_1000', 'PCI\CC_0100']
service = 'lsi_scsi'

)";

class DevicesTest : public MachineTest {
 protected:
  static std::vector<std::string> Instances(HDEVINFO set) {
    std::vector<std::string> instances;
    SP_DEVINFO_DATA device = {};
    device.cbSize = sizeof device;
    for (DWORD index = 0; SetupDiEnumDeviceInfo(set, index, &device); ++index) {
      DWORD size = 0;
      EXPECT_FALSE(SetupDiGetDeviceInstanceIdA(set, &device, nullptr, 0, &size));
      EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
      std::string id(size, '?');
      EXPECT_TRUE(SetupDiGetDeviceInstanceIdA(set, &device, id.data(), size, nullptr));
      instances.emplace_back(id.c_str());
      EXPECT_EQ(instances.back().size() + 1, size);
    }
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
    return instances;
  }

  static std::vector<std::string> Present(const GUID *classGuid, const char *enumerator, DWORD flags) {
    const HDEVINFO set = SetupDiGetClassDevsA(classGuid, enumerator, nullptr, DIGCF_PRESENT | flags);
    if (set == INVALID_HANDLE_VALUE) return {"error " + std::to_string(GetLastError())};
    const std::vector<std::string> instances = Instances(set);
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
    return instances;
  }

  // Device `index` of all present ones.
  static SP_DEVINFO_DATA DeviceAt(HDEVINFO set, DWORD index) {
    SP_DEVINFO_DATA device = {};
    device.cbSize = sizeof device;
    EXPECT_TRUE(SetupDiEnumDeviceInfo(set, index, &device));
    return device;
  }

  static std::string PropertyText(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD property) {
    DWORD size = 0, type = 0;
    if (SetupDiGetDeviceRegistryPropertyA(set, device, property, &type, nullptr, 0, &size)) return "success";
    if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) return "error " + std::to_string(GetLastError());
    std::string bytes(size, '?');
    EXPECT_TRUE(SetupDiGetDeviceRegistryPropertyA(set, device, property, &type, reinterpret_cast<BYTE *>(bytes.data()),
                                                  size, nullptr));
    return std::to_string(type) + ":" + bytes;
  }
};

TEST_F(DevicesTest, EnumeratesByClassInTheOrderOfTheMachineFile) {
  Open(kDevices);
  const char *disk = "SCSI\\Disk&Ven_ACME\\4&1";
  const char *bare = "ROOT\\Bare\\0000";
  const char *controller = "PCI\\VEN_1000&DEV_0030\\3&1";
  EXPECT_THAT(Present(nullptr, nullptr, DIGCF_ALLCLASSES), ElementsAre(disk, bare, controller));
  EXPECT_THAT(Present(&kScsiAdapter, nullptr, 0), ElementsAre(controller));
  EXPECT_THAT(Present(&kDiskDrive, nullptr, 0), ElementsAre(disk));
  EXPECT_THAT(Present(nullptr, "pci", DIGCF_ALLCLASSES), ElementsAre(controller));
  EXPECT_THAT(Present(&kDiskInterface, nullptr, DIGCF_DEVICEINTERFACE), ElementsAre(disk));
  EXPECT_THAT(Present(nullptr, nullptr, 0), ElementsAre("error 87"));
  EXPECT_EQ(machine::OpenDeviceSets(), 0u);
}

TEST_F(DevicesTest, TakesTheClassFromTheRunningRegistry) {
  Open(kDevices);
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Enum\\ROOT\\Bare\\0000", &key), 0);
  const char guid[] = "{4d36e97b-e325-11ce-bfc1-08002be10318}";
  ASSERT_EQ(RegSetValueExA(key, "ClassGUID", 0, REG_SZ, reinterpret_cast<const BYTE *>(guid), sizeof guid), 0);
  EXPECT_EQ(Present(&kScsiAdapter, nullptr, 0).size(), 2u);
  ASSERT_EQ(RegSetValueExA(key, "ClassGUID", 0, REG_SZ, reinterpret_cast<const BYTE *>("{4d"), 4), 0);
  EXPECT_EQ(Present(&kScsiAdapter, nullptr, 0).size(), 1u);
  RegCloseKey(key);
}

TEST_F(DevicesTest, GivesPropertiesParentsAndClassNames) {
  Open(kDevices);
  const HDEVINFO set = SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_PRESENT | DIGCF_ALLCLASSES);
  SP_DEVINFO_DATA disk = DeviceAt(set, 0), bare = DeviceAt(set, 1), controller = DeviceAt(set, 2);
  EXPECT_EQ(controller.ClassGuid.Data1, 0x4D36E97Bu);
  EXPECT_EQ(bare.ClassGuid.Data1, 0u);
  EXPECT_EQ(PropertyText(set, &controller, SPDRP_HARDWAREID),
            std::string("7:PCI\\VEN_1000&DEV_0030&SUBSYS_1\0PCI\\VEN_1000&DEV_0030\0\0", 2 + 53 + 1));
  EXPECT_EQ(PropertyText(set, &controller, SPDRP_COMPATIBLEIDS), std::string("7:PCI\\VEN_1000\0PCI\\CC_0100\0\0", 28));
  EXPECT_EQ(PropertyText(set, &controller, SPDRP_SERVICE), std::string("1:lsi_scsi\0", 11));
  EXPECT_EQ(PropertyText(set, &controller, SPDRP_CLASS), std::string("1:SCSIAdapter\0", 14));
  EXPECT_EQ(PropertyText(set, &controller, SPDRP_ENUMERATOR_NAME), std::string("1:PCI\0", 6));
  for (const DWORD property : {SPDRP_HARDWAREID, SPDRP_SERVICE, SPDRP_CLASS, 35u, 4000u}) {
    EXPECT_EQ(PropertyText(set, &bare, property), "error 13") << property;
  }

  DEVINST parent = 0;
  ASSERT_EQ(CM_Get_Parent(&parent, disk.DevInst, 0), CR_SUCCESS);  // described later, spelled otherwise
  EXPECT_EQ(parent, controller.DevInst);
  DWORD length = 0;
  ASSERT_EQ(CM_Get_Device_ID_Size(&length, parent, 0), CR_SUCCESS);
  std::string id(length + 1, '?');
  EXPECT_EQ(CM_Get_Device_IDA(parent, id.data(), length, 0), CR_BUFFER_SMALL);
  ASSERT_EQ(CM_Get_Device_IDA(parent, id.data(), length + 1, 0), CR_SUCCESS);
  EXPECT_STREQ(id.c_str(), "PCI\\VEN_1000&DEV_0030\\3&1");
  EXPECT_EQ(CM_Get_Parent(&parent, controller.DevInst, 0), CR_NO_SUCH_DEVNODE);
  EXPECT_EQ(CM_Get_Parent(&parent, 0, 0), CR_INVALID_DEVNODE);
  EXPECT_EQ(CM_Get_Device_ID_Size(&length, 99, 0), CR_INVALID_DEVNODE);

  char name[32] = "";
  DWORD size = 0;
  EXPECT_FALSE(SetupDiClassNameFromGuidA(&kScsiAdapter, nullptr, 0, &size));
  EXPECT_EQ(size, sizeof "SCSIAdapter");
  EXPECT_TRUE(SetupDiClassNameFromGuidA(&kScsiAdapter, name, size, nullptr));
  EXPECT_STREQ(name, "SCSIAdapter");
  EXPECT_FALSE(SetupDiClassNameFromGuidA(&kDiskInterface, name, sizeof name, &size));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_CLASS);
  EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST(DriverVersion, ParsesDatesAndVersions) {
  EXPECT_EQ(machine::TicksOf(machine::ParseDriverDate("01/01/1970")), 116444736000000000u);
  EXPECT_EQ(machine::TicksOf(machine::ParseDriverDate("12-31-1601")), uint64_t{364} * 86400 * 10000000);
  for (const char *bad :
       {"", "13/01/2000", "02/30/2000", "01/01/1600", "01/01", "1/1/2000/1", "a/b/c", "01/01/99999"}) {
    EXPECT_EQ(machine::TicksOf(machine::ParseDriverDate(bad)), 0u) << bad;
  }
  EXPECT_EQ(machine::ParseDriverVersion("1.2.3.65535"), 0x000100020003FFFFu);
  EXPECT_EQ(machine::ParseDriverVersion("6.1"), 0x0006000100000000u);
  for (const char *bad : {"", "1.2.3.4.5", "1.65536", "1.x", "-1"}) EXPECT_EQ(machine::ParseDriverVersion(bad), 0u);
}

}  // namespace
