#include "volume/volume.h"

#include <cstring>

#include "engine/base/status.h"
#include "platform/machine/base/fault.h"
#include "restore/settings.h"
#include "tests/support/test_machine.h"

namespace {

using testing::HasSubstr;

class VolumeTest : public MachineTest {
 protected:
  VolumeTest() { block.bInject = TRUE; }
  ~VolumeTest() override {
    gpVXRBMRestore = nullptr;
    hStatusWnd = nullptr;
  }

  VXR_PARABLOCK block = {};
  VXR_BMRESTORE settings = {};
};

TEST_F(VolumeTest, SettingsNameTheVolume) {
  Open();
  EXPECT_FALSE(VXRVol_LocateVolume(1, &block));
  EXPECT_THAT(log, HasSubstr("ERROR:VXRVol_LocateVolume:VXRRlm_GetBootPart():failed!"));

  struct {
    const char *bootPart, *line;
  } const rows[] = {
      {"\\\\.\\PHYSICALDRIVE1\\PARTITION2", ":Disk=1:Part=2:Vol=1\n"},
      {"\\\\.\\PHYSICALDRIVE12", ":Disk=12:Part=0:Vol=1\n"},
      {"C:", ":Disk=0:Part=0:Vol=1\n"},
      {"", ":Disk=0:Part=0:Vol=1\n"},
      {"\\\\.\\PHYSICALDRIVE1234567890\\PARTITION2147483647", ":Disk=1234567890:Part=2147483647:Vol=1\n"},
      {"\\\\.\\PHYSICALDRIVE99999999999999999999\\PARTITION2", ":Disk=-1:Part=2:Vol=1\n"},
  };
  char root[] = "E:\\";
  settings.szRootPath = root;
  gpVXRBMRestore = &settings;
  for (const auto &row : rows) {
    log.clear();
    std::string bootPart = row.bootPart;
    settings.szBootPart = bootPart.data();
    EXPECT_TRUE(VXRVol_LocateVolume(1, &block));
    EXPECT_THAT(log, HasSubstr("CHECK:VXRVol_LocateVolume:szBootPart=" + bootPart + row.line +
                               "CHECK:VXRVol_LocateVolume:szRootPath=E:\\:chRootDrive=E\n"));
    settings.szBootPart = nullptr;
  }
  char bootPart[] = "\\\\.\\PHYSICALDRIVE1\\PARTITION2";
  settings.szBootPart = bootPart;
  settings.szRootPath = nullptr;
  EXPECT_FALSE(VXRVol_LocateVolume(1, &block));
  EXPECT_THAT(log, HasSubstr("ERROR:VXRVol_LocateVolume:VXRRlm_GetRootPath():failed!"));
}

}  // namespace
