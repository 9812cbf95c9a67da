#include "device/records.h"

#include <cstring>

#include "tests/support/test_machine.h"

#ifdef VXR_FAULT_POINTS
#include "platform/machine/base/fault.h"
#endif

namespace {

class RecordsTest : public MachineTest {
 protected:
  void SetUp() override {
    Open();
    VXRDbg_Initialize(5, 0, nullptr);
    log.clear();
  }

  static char *Text(const char *text) {
    HeapText copy = AllocText(std::strlen(text) + 2, "text");
    std::strcpy(copy.get(), text);
    return copy.release();
  }

  // The log without entry and exit lines, and with every address replaced.
  std::string Essence() const {
    std::string text;
    for (size_t at = 0; at < log.size();) {
      const size_t end = log.find('\n', at);
      std::string line = log.substr(at, end - at);
      at = end + 1;
      if (line.rfind("FLUSH", 0) == 0) continue;
      const size_t equals = line.find('=');
      if (line.compare(equals + 1, 4, "0000") == 0) line.replace(equals + 1, 16, "p");
      text += line.substr(line.find(':') + 1) + "\n";
    }
    return text;
  }
};

TEST_F(RecordsTest, ClassOfEachType) {
  const struct {
    DWORD type;
    const char *guid;
    const char *name;
  } cases[] = {
      {VXR_DEVTYPE_DISKDRIVE, "4D36E967-E325-11CE-BFC1-08002BE10318", "DiskDrive"},
      {VXR_DEVTYPE_HDC, "4D36E96A-E325-11CE-BFC1-08002BE10318", "hdc"},
      {VXR_DEVTYPE_SCSIADAPTER, "4D36E97B-E325-11CE-BFC1-08002BE10318", "SCSIAdapter"},
      {VXR_DEVTYPE_NET, "4D36E972-E325-11CE-BFC1-08002BE10318", "Net"},
      {VXR_DEVTYPE_UNKNOWN, "4D36E972-E325-11CE-BFC1-08002BE10318", "Net"},
      {0xFFFFFFFF, "4D36E972-E325-11CE-BFC1-08002BE10318", "Net"},
  };
  for (const auto &c : cases) {
    EXPECT_STREQ(VXRDev_GetGuidStringByType(c.type, FALSE).get(), c.guid);
    EXPECT_EQ(VXRDev_GetGuidStringByType(c.type, TRUE).get(), "{" + std::string(c.guid) + "}");
    EXPECT_STREQ(VXRDev_GetClassStringByType(c.type).get(), c.name);
  }
}

#ifdef VXR_FAULT_POINTS
TEST_F(RecordsTest, TextsThatCannotBeMadeAreNull) {
  const auto failing = [this](const char *call, unsigned nth, HeapText (*make)()) {
    log.clear();
    machine::SetFaultPlan({call, nth, false, 31});
    EXPECT_EQ(make(), nullptr);
    EXPECT_EQ(machine::FaultsMet(), 1u);
    machine::SetFaultPlan({});
    return Essence();
  };
  const auto guid = [] { return VXRDev_GetGuidStringByType(0, TRUE); };
  const auto name = [] { return VXRDev_GetClassStringByType(0); };
  EXPECT_EQ(failing("HeapAlloc", 1, guid),
            "VXRDev_GetGuidString:AllocHeap(40 bytes) failed for szGuid!\n"
            "VXRDev_GetGuidStringByType:VXRDev_GetGuidString() failed!\n");
  EXPECT_EQ(failing("SetupDiClassNameFromGuidA", 1, name),
            "VXRDev_GetClassStringByType:SetupDiClassNameFromGuid() failed to get size\n");
  EXPECT_EQ(failing("HeapAlloc", 1, name), "VXRDev_GetClassStringByType:AllocHeap(10 bytes) failed to get size\n");
  EXPECT_EQ(failing("SetupDiClassNameFromGuidA", 2, name),
            "VXRDev_GetClassStringByType:SetupDiClassNameFromGuid() failed!ec=0x0000001f\n");
}
#endif

TEST_F(RecordsTest, ReleasesTheWholeChainInnermostFirst) {
  const char matched[] = "PCI\\VEN_1000";
  VXR_DEVICE *disk = AllocRecord<VXR_DEVICE>("disk").release();
  disk->szInstanceID = Text("disk");
  disk->szTargetOS = Text("NTamd64");
  VXR_DEVICE *channel = disk->pVXRDevParent = AllocRecord<VXR_DEVICE>("channel").release();
  channel->szHardwareID = Text("id");
  channel->szCompatibleIDs = Text("id");
  channel->pVXRDriver = AllocRecord<VXR_DRIVER>("driver").release();
  channel->pVXRDriver->szMatchedID = matched;  // borrowed
  channel->pVXRDriver->pVXRDevice = channel;   // borrowed
  VXR_DEVICE *extender = channel->pVXRDevParent = AllocRecord<VXR_DEVICE>("extender").release();
  extender->pVXRDriver = AllocRecord<VXR_DRIVER>("driver").release();
  extender->pVXRDriver->szDriver = Text("fast.sys");
  extender->pVXRDriver->szService = Text("fast");
  extender->pVXRDriver->pDrvInfoData = AllocRecord<SP_DRVINFO_DATA_A>("data").release();
  extender->pVXRDriver->pDrvInfoDetailData = AllocRecord<SP_DRVINFO_DETAIL_DATA_A>("data").release();
  log.clear();
  EXPECT_TRUE(VXRDev_FreeDevice(disk));
  EXPECT_STREQ(matched, "PCI\\VEN_1000");
  EXPECT_EQ(Essence(),
            "VXRDev_FreeDevice:freeing szInstanceID=disk\n"
            "VXRDev_FreeDevice:freeing szTargetOS=p\n"
            "VXRDev_FreeDevice:freeing pVXRDevParent=p...\n"
            "VXRDev_FreeDevice:freeing szHardwareID=p\n"
            "VXRDev_FreeDevice:freeing szCompatibleIDs=p\n"
            "VXRDev_FreeDevice:freeing pVXRDriver=p...\n"
            "VXRDev_FreeDriver:freeing pVXRDriver=p\n"
            "VXRDev_FreeDevice:freeing pVXRDevParent=p...\n"
            "VXRDev_FreeDevice:freeing pVXRDriver=p...\n"
            "VXRDev_FreeDriver:freeing szDriver=fast.sys\n"
            "VXRDev_FreeDriver:freeing szService=fast\n"
            "VXRDev_FreeDriver:freeing pDrvInfoData=p\n"
            "VXRDev_FreeDriver:freeing pDrvInfoDetailData=p\n"
            "VXRDev_FreeDriver:freeing pVXRDriver=p\n"
            "VXRDev_FreeDevice:freeing pVXRDevice=p...\n"
            "VXRDev_FreeDevice:freeing pVXRDevice=p...\n"
            "VXRDev_FreeDevice:freeing pVXRDevice=p...\n");
}

TEST_F(RecordsTest, ReleasesTheDevicesOfABlock) {
  VXR_PARABLOCK block{};
  block.pVXRDevices[0] = AllocRecord<VXR_DEVICE>("device").release();
  block.pVXRDevices[2] = AllocRecord<VXR_DEVICE>("device").release();
  EXPECT_TRUE(VXRDev_FreeDevices(&block));
  EXPECT_NE(block.pVXRDevices[0], nullptr) << "a count of 0 frees nothing";
  block.dwDevCnt = 0xFFFFFFFF;  // whatever the count says, the table ends
  EXPECT_TRUE(VXRDev_FreeDevices(&block));
  EXPECT_EQ(block.dwDevCnt, 0u);
  for (const VXR_DEVICE *device : block.pVXRDevices) EXPECT_EQ(device, nullptr);
  EXPECT_TRUE(VXRDev_FreeDevices(nullptr));
  EXPECT_TRUE(VXRDev_FreeDevice(nullptr));
  EXPECT_TRUE(VXRDev_FreeDriver(nullptr));
}

}  // namespace
