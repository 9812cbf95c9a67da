#include "device/class_repair.h"

#include "device/class_guids.h"
#include "device/records.h"
#include "platform/machine/base/fault.h"
#include "registry/values.h"
#include "tests/support/test_machine.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr char kInstance[] = "PCI\\VEN_1000&DEV_0030\\3&61AAA01&0&80";
constexpr char kKey[] = "SYSTEM\\CurrentControlSet\\ENUM\\PCI\\VEN_1000&DEV_0030\\3&61AAA01&0&80";
constexpr char kDevice[] = R"(
[[device]]
instance = 'PCI\VEN_1000&DEV_0030\3&61AAA01&0&80'
hardware_ids = ['PCI\VEN_1000&DEV_0030']
)";

class ClassRepairTest : public MachineTest {
 protected:
  void OpenWith(const std::string &values = "") {
    Open(kDevice + (values.empty() ? "" : "[registry.'" + std::string(kKey) + "']\n" + values));
    VXRDbg_Initialize(5, 0, nullptr);
    log.clear();
  }

  static std::string Value(const char *name, const char *key = kKey) {
    DWORD type = 0, size = 0;
    const HeapText value = VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, key, name, &type, &size);
    return value == nullptr ? "(none)" : std::string(value.get(), size);
  }

  static std::string Terminated(const char *text) { return std::string(text) + '\0'; }
};

TEST_F(ClassRepairTest, WritesWhatIsMissingAndNothingElse) {
  const std::string guid = Terminated("{4D36E97B-E325-11CE-BFC1-08002BE10318}");
  const struct {
    const char *values;
    std::string className, classGuid;
  } cases[] = {
      {"", Terminated("SCSIAdapter"), guid},
      {"Class = 'other'\n", Terminated("other"), guid},
      {"ClassGUID = '{1}'\n", Terminated("SCSIAdapter"), Terminated("{1}")},
      {"Class = 'other'\nClassGUID = ''\n", Terminated("other"), Terminated("")},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.values);
    OpenWith(c.values);
    EXPECT_TRUE(VXRDev_FixDevRegistry(VXR_DEVTYPE_SCSIADAPTER, kInstance));
    EXPECT_EQ(Value("Class"), c.className);
    EXPECT_EQ(Value("ClassGUID"), c.classGuid);
    Close();
  }
}

TEST_F(ClassRepairTest, PutsTheDeviceIntoItsClass) {
  OpenWith();
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof device;
  EXPECT_FALSE(platform::SetupDiEnumDeviceInfo(PresentDevices(&kScsiAdapterClass).get(), 0, &device));
  EXPECT_TRUE(VXRDev_FixDevRegistry(VXR_DEVTYPE_SCSIADAPTER, kInstance));
  EXPECT_TRUE(platform::SetupDiEnumDeviceInfo(PresentDevices(&kScsiAdapterClass).get(), 0, &device));
  EXPECT_THAT(log, HasSubstr("CHECK:VXRDev_FixDevRegistry:missing Class:successfully set to SCSIAdapter\n"));
  log.clear();
  EXPECT_TRUE(VXRDev_FixDevRegistry(VXR_DEVTYPE_HDC, kInstance));
  EXPECT_THAT(log, HasSubstr("retrived Class:SCSIAdapter...bypass setting\n"));
}

TEST_F(ClassRepairTest, MakesTheKeyOfAnUnknownDevice) {
  OpenWith();
  EXPECT_TRUE(VXRDev_FixDevRegistry(VXR_DEVTYPE_DISKDRIVE, "IDE\\DiskX\\5&1"));
  EXPECT_EQ(Value("Class", "SYSTEM\\CurrentControlSet\\ENUM\\IDE\\DiskX\\5&1"), Terminated("DiskDrive"));
}

TEST_F(ClassRepairTest, EachFailureHasItsLine) {
  const struct {
    const char *call;
    unsigned nth;
    const char *line;
    const char *className;  // what is there afterwards
  } cases[] = {
      {"SetupDiClassNameFromGuidA", 1, ":missing Class:but failed to set!\n", "(none)"},
      {"RegSetValueExA", 1,
       ":VXRReg_SetRegistryValue(SYSTEM\\CurrentControlSet\\ENUM\\PCI\\VEN_1000&DEV_0030\\"
       "3&61AAA01&0&80\\\\Class:hdc) failed!\n",
       "(none)"},
      {"RegSetValueExA", 2, "\\\\ClassGUID:{4D36E96A-E325-11CE-BFC1-08002BE10318}) failed!\n", "hdc"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.line);
    OpenWith();
    machine::SetFaultPlan({c.call, c.nth, false, 5});
    EXPECT_FALSE(VXRDev_FixDevRegistry(VXR_DEVTYPE_HDC, kInstance));
    EXPECT_EQ(machine::FaultsMet(), 1u);
    machine::SetFaultPlan({});
    EXPECT_THAT(log, HasSubstr(c.line));
    EXPECT_STREQ(Value("Class").c_str(), c.className);
    EXPECT_EQ(Value("ClassGUID"), "(none)");
    Close();
  }
  OpenWith();
  EXPECT_FALSE(VXRDev_FixDevRegistry(VXR_DEVTYPE_HDC, nullptr));
  EXPECT_THAT(log, HasSubstr("ERROR:VXRDev_FixDevRegistry:NULL instance id\n"));
}

}  // namespace
