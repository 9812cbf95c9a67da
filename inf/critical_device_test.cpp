// Entries in the critical-device database of a mounted hive.

#include "inf/critical_device.h"

#include <cstring>

#include "platform/machine/base/fault.h"
#include "tests/support/driver_job.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kDatabase[] = R"(Control\CriticalDeviceDatabase\)";
constexpr char kGuid[] = "1:39:{4D36E97B-E325-11CE-BFC1-08002BE10318}";

class CriticalDevice : public DriverJobTest {
 protected:
  // A driver whose detail record lists these ids, with this service; null for none.
  void Describe(const std::vector<std::string> &ids, const char *service) {
    const HeapText list(HeapTexts(ids));
    const SIZE_T size = sizeof(SP_DRVINFO_DETAIL_DATA_A) + 256;
    driver->pDrvInfoDetailData = static_cast<SP_DRVINFO_DETAIL_DATA_A *>(AllocHeap(size, "detail"));
    std::memcpy(reinterpret_cast<char *>(driver->pDrvInfoDetailData) + offsetof(SP_DRVINFO_DETAIL_DATA_A, HardwareID),
                list.get(), ids.empty() ? 0 : ids[0].size() + 1);
    driver->szService = service != nullptr ? HeapTexts({service}) : nullptr;
    ClearLog();
    events.clear();
  }
  std::string Value(const std::string &entry, const char *value) { return HiveText(kDatabase + entry, value); }
  unsigned ValuesWritten() const {
    unsigned count = 0;
    for (const MachineEvent &event : events) count += event.kind == VXRMACHINE_VALUE_WRITTEN;
    return count;
  }
};

TEST_F(CriticalDevice, IsNamedAfterTheHardwareId) {
  Begin(true);
  Describe({R"(PCI\VEN_8086&DEV_2822&CC_0104)", R"(PCI\CC_0104)"}, "iaStor");
  driver->szMatchedID = R"(PCI\CC_0104)";
  EXPECT_TRUE(VXRDev_PostGetDriver(driver, device));
  EXPECT_EQ(Value("PCI#VEN_8086&DEV_2822&CC_0104", "ClassGUID"), kGuid);
  EXPECT_EQ(Value("PCI#VEN_8086&DEV_2822&CC_0104", "Service"), "1:7:iaStor");
  EXPECT_EQ(Value("PCI#CC_0104", "Service"), "");
  EXPECT_THAT(
      Lines("CHECK:VXRDev_CreateRegCRCDB:"),
      ElementsAre(R"(fixed from hardware id=PCI\VEN_8086&DEV_2822&CC_0104 --> key=PCI#VEN_8086&DEV_2822&CC_0104!)",
                  "setting PCI#VEN_8086&DEV_2822&CC_0104:ClassGUID={4D36E97B-E325-11CE-BFC1-08002BE10318}...ok",
                  "service name from inf is:iaStor", "setting PCI#VEN_8086&DEV_2822&CC_0104:Service=iaStor...ok"));
}

TEST_F(CriticalDevice, IsNamedAfterTheMatchedIdWithoutHardwareId) {
  Begin(true);
  Describe({}, "ahci");
  driver->szMatchedID = R"(PCI\CC_0106)";
  EXPECT_TRUE(VXRDev_PostGetDriver(driver, device));
  EXPECT_EQ(Value("PCI#CC_0106", "Service"), "1:5:ahci");
  driver->szMatchedID = "plain";
  EXPECT_TRUE(VXRDev_PostGetDriver(driver, device));
  EXPECT_EQ(Value("plain", "ClassGUID"), kGuid);
}

TEST_F(CriticalDevice, TakesTheServiceOfTheRunningSystemWhenTheInfFileNamesNone) {
  Begin(true, [](std::string *toml) {
    const std::string id = "hardware_ids = ['PCI\\VEN_1000&DEV_0030&SUBSYS_00000000&REV_01'";
    const std::size_t at = toml->find(id);
    ASSERT_NE(at, std::string::npos);
    toml->insert(at, "service = 'lsi_scsi'\n");
  });
  Describe({"id"}, nullptr);
  EXPECT_TRUE(VXRDev_PostGetDriver(driver, device));
  EXPECT_EQ(Value("id", "Service"), "1:9:lsi_scsi");
  EXPECT_THAT(log, HasSubstr("CHECK:VXRDev_CreateRegCRCDB:service name from local reg is:lsi_scsi\n"));
  EXPECT_EQ(driver->szService, nullptr);
}

TEST_F(CriticalDevice, WritesNothingWithoutNameOrService) {
  Begin(true);
  Describe({}, "ahci");
  EXPECT_FALSE(VXRDev_PostGetDriver(driver, device));
  driver->szMatchedID = "id";
  FreeMember(driver->szService);
  EXPECT_FALSE(VXRDev_PostGetDriver(driver, device));
  EXPECT_THAT(Lines("ERROR:VXRDev_CreateRegCRCDB:"),
              ElementsAre(StartsWith("no id, or no memory, to name"), StartsWith("no service name for id")));
  EXPECT_THAT(Lines("ERROR:VXRDev_PostGetDriver:"),
              ElementsAre("VXRDev_CreateRegCRCDB():failed ", "VXRDev_CreateRegCRCDB():failed "));
  EXPECT_EQ(ValuesWritten(), 0u);
}

TEST_F(CriticalDevice, RefusesADeviceThatIsGone) {
  Begin(true);
  Describe({"id"}, "service");
  device->iDevEnum = 7;
  EXPECT_FALSE(VXRDev_PostGetDriver(driver, device));
  EXPECT_THAT(Lines("ERROR:VXRDev_PostGetDriver:"),
              ElementsAre("SetupDiEnumDeviceInfo():failed for index=7!ec=0x00000103"));
  EXPECT_FALSE(VXRDev_PostGetDriver(nullptr, device));
  EXPECT_FALSE(VXRDev_PostGetDriver(driver, nullptr));
  EXPECT_FALSE(VXRDev_CreateRegCRCDB(&device->guDevice, nullptr, nullptr, nullptr));
  EXPECT_EQ(ValuesWritten(), 0u);
}

#ifdef VXR_FAULT_POINTS
TEST_F(CriticalDevice, KeepsWhatItHasWritten) {
  Begin(true);
  Describe({"id"}, "service");
  machine::SetFaultPlan({"RegSetValueExA", 1, false, 0});
  EXPECT_FALSE(VXRDev_PostGetDriver(driver, device));
  EXPECT_EQ(Value("id", "ClassGUID"), "");
  machine::SetFaultPlan({"RegSetValueExA", 2, false, 0});
  EXPECT_FALSE(VXRDev_PostGetDriver(driver, device));
  machine::SetFaultPlan({});
  EXPECT_EQ(Value("id", "ClassGUID"), kGuid);
  EXPECT_EQ(Value("id", "Service"), "");
  EXPECT_THAT(Lines("ERROR:VXRDev_CreateRegCRCDB:"), ElementsAre("VXRReg_SetRegValueToHive(id:ClassGuid) failed!",
                                                                 "VXRReg_SetRegValueToHive(id:Service) failed!"));
}
#endif

}  // namespace
