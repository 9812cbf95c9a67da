// Entries in the critical-device database of a mounted hive.

#include "inf/critical_device.h"

#include <cstring>

#include "tests/support/driver_job.h"

namespace {

using testing::HasSubstr;

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
};

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

}  // namespace
