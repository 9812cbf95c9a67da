#include "device/scan/disk_scan.h"

#include <cstring>

#include "bmext/load.h"
#include "device/class_repair.h"
#include "device/records.h"
#include "device/scan/devices_above.h"
#include "device/scan/disk_identity.h"
#include "engine/base/parameters.h"
#include "engine/base/status.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/handles.h"
#include "platform/machine/registry/registry.h"
#include "restore/settings.h"
#include "tests/support/scsi_machine.h"
#include "tests/support/test_machine.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

std::string Inf(const std::string &className, const std::string &classGuid, const std::string &models) {
  return "[Version]\nSignature = \"$Windows NT$\"\nClass = " + className + "\nClassGUID = " + classGuid +
         "\n[Manufacturer]\nAcme = Models, NTamd64\n[Models.NTamd64]\n" + models +
         "[Install]\nDriverVer = 01/02/2010,1.0\n[Install.Services]\nAddService = acme, 2, Service\n"
         "[Service]\nServiceType = 1\nStartType = 0\nErrorControl = 1\nServiceBinary = %12%\\acme.sys\n";
}

const std::string kHdc = "{4D36E96A-E325-11CE-BFC1-08002BE10318}";
const std::string kScsiAdapter = "{4D36E97B-E325-11CE-BFC1-08002BE10318}";

const std::string kScsiController = ScsiAdapterInstance(kScsiAdapterId);

const std::string kIdeMachine = DiskToml(0, "ide#diskacme_1.05____#5&2b7f1d3e&0&0.0.0") +
                                DeviceToml("IDE\\DiskACME_1.05____\\5&2B7F1D3E&0&0.0.0", "DiskDrive", "GenDisk",
                                           "PCIIDE\\IDEChannel\\4&2617AEAE&0&0") +
                                DeviceToml("PCIIDE\\IDEChannel\\4&2617AEAE&0&0", "hdc", "Primary_IDE_Channel",
                                           "PCI\\VEN_8086&DEV_7111\\2&EBB567F&0&39") +
                                DeviceToml("PCI\\VEN_8086&DEV_7111\\2&EBB567F&0&39", "", "PCI\\VEN_8086&DEV_7111", "");

// A verification run's state just before the scan: a 64-bit 6.1 system, drivers below X:\drivers and X:\Windows\inf.
class ScanTest : public MachineTest {
 protected:
  ScanTest() {
    block.szWindowsPath = windows;
    block.szSystemPath = system;
    block.szVrnltPath = product;
    settings.szBootDisk = bootDisk;
    settings.szRootPath = root;
    settings.szInfDir = infDir;
    gpVXRParaBlock = &block;
    gpVXRBMRestore = &settings;
    WriteFile("ram/drivers/scsi.inf", Inf("SCSIAdapter", kScsiAdapter, "Fast = Install, PCI\\VEN_1000&DEV_0030\n"));
    WriteFile("ram/Windows/inf/ide.inf", Inf("hdc", kHdc,
                                             "Channel = Install, Primary_IDE_Channel\n"
                                             "Controller = Install, PCI\\VEN_8086&DEV_7111\n"));
  }
  ~ScanTest() override {
    machine::SetFaultPlan({});
    VXRDev_FreeDevices(&block);
    VXR_EXTHEADER none = {};
    VXRExt_Initialize(0, &none);
    gpVXRParaBlock = nullptr;
    gpVXRBMRestore = nullptr;
    hStatusWnd = nullptr;
  }
  void OpenScan(const std::string &toml) {
    Close();
    Open(toml);
    hStatusWnd = static_cast<HWND>(window);
    dwWndFlags = 2;
    dwError = 0;
    image.header.Magic = VxrPut32(VXR_EXT_MAGIC_HOT);
    VXR_SYSOSINFO *os = &image.extension.SysInfo.SysOs;
    os->MajorVersion = VxrPut32(6);
    os->MinorVersion = VxrPut32(1);
    os->ProcessorArchitecture = VxrPut32(9);
    ASSERT_TRUE(VXRExt_Initialize(0, &image));
    log.clear();
  }

  char windows[16] = "X:\\Windows", system[32] = "X:\\Windows\\System32", product[16] = "X:\\Halcyra";
  char infDir[16] = "X:\\drivers", root[8] = "D:\\", bootDisk[80] = "\\\\.\\PHYSICALDRIVE0";
  VXR_PARABLOCK block = {};
  VXR_BMRESTORE settings = {};
  struct {
    VXR_EXTHEADER header;
    VXR_BMEXTNSON extension;
  } image = {};
};

// --- The chain of records -------------------------------------------------------------------------------------------

TEST_F(ScanTest, IdeDiskHasChannelAndBusExtenderAboveIt) {
  OpenScan(kIdeMachine);
  EXPECT_TRUE(VXRDev_ScanDiskDevices(&block));
  EXPECT_EQ(dwError, 0u);
  ASSERT_EQ(block.dwDevCnt, 1u);
  const VXR_DEVICE *channel = block.pVXRDevices[0]->pVXRDevParent;
  ASSERT_NE(channel, nullptr);
  EXPECT_STREQ(channel->szInstanceID, "PCIIDE\\IDEChannel\\4&2617AEAE&0&0");
  EXPECT_EQ(channel->VXRDevType, DWORD{VXR_DEVTYPE_HDC});
  ASSERT_NE(channel->pVXRDriver, nullptr);
  const VXR_DEVICE *extender = channel->pVXRDevParent;
  ASSERT_NE(extender, nullptr);
  EXPECT_STREQ(extender->szInstanceID, "PCI\\VEN_8086&DEV_7111\\2&EBB567F&0&39");
  EXPECT_EQ(extender->VXRDevType, DWORD{VXR_DEVTYPE_HDC});
  ASSERT_NE(extender->pVXRDriver, nullptr);
  EXPECT_EQ(extender->pVXRDevParent, nullptr);
  EXPECT_THAT(log, HasSubstr("VXR_DEVTYPE_HDC:using system inf path as:X:\\Windows\\inf\n"));
  // Each of the two calls that read ids; a device that has none is no reason to say anything.
  for (const unsigned nth : {1u, 2u}) {
    log.clear();
    machine::SetFaultPlan({"SetupDiGetDeviceRegistryPropertyA", nth, false, ERROR_ACCESS_DENIED});
    EXPECT_TRUE(DevicesAbove(channel->hDevInst, Caller{"Above"}).front().ids.hardware.empty());
    machine::SetFaultPlan({});
    EXPECT_NE(log.find("WARNG:Above:ids of a device above the disk were not read"), log.npos) << nth << log;
  }
  log.clear();
  EXPECT_FALSE(DevicesAbove(channel->hDevInst, Caller{"Above"}).front().ids.hardware.empty());
  EXPECT_EQ(log.find("WARNG:"), log.npos) << log;
}

TEST_F(ScanTest, DiskIsRecordedWithoutAControllerThatFails) {
  const std::string disk = DiskToml(0, kScsiDiskInterface), id = kScsiDiskInstance;
  struct {
    const char *what;
    std::string toml, named;
  } const rows[] = {
      {"no driver",
       disk + DeviceToml(id, "DiskDrive", "GenDisk", kScsiController) +
           DeviceToml(kScsiController, "SCSIAdapter", "PCI\\VEN_9999", ""),
       kScsiController},
      {"no parent", disk + DeviceToml(id, "DiskDrive", "GenDisk", ""), "N/A"},
      {"class of another kind",
       disk + DeviceToml(id, "DiskDrive", "GenDisk", kScsiController) +
           DeviceToml(kScsiController, "Net", "PCI\\VEN_1000&DEV_0030", ""),
       kScsiController},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    OpenScan(row.toml);
    statusLines.clear();
    EXPECT_TRUE(VXRDev_ScanDiskDevices(&block));
    EXPECT_EQ(block.dwDevCnt, 1u);
    EXPECT_EQ(block.pVXRDevices[0]->pVXRDevParent, nullptr);
    EXPECT_EQ(dwError, 3u);
    EXPECT_THAT(statusLines, Contains("Failed to locate driver files for device " + row.named));
    VXRDev_FreeDevices(&block);
  }
}

// --- The disk's identity --------------------------------------------------------------------------------------------

TEST_F(ScanTest, InstanceIdComesFromTheInterfacePath) {
  struct {
    const char *interface, *id;  // null id: it cannot be made
  } const rows[] = {
      {R"(\\?\scsi#disk&ven_acme&prod_fast_disk&rev_1.0#4&1a2b3c&0&000000#{53f56307})",
       R"(scsi\disk&ven_acme&prod_fast_disk&rev_1.0\4&1a2b3c&0&000000)"},
      {R"(\\?\SCSI#Disk&Ven_A#B#C&Prod_D&Rev_1#4&1#{53F56307})", R"(scsi\disk&ven_a/b/c&prod_d&rev_1\4&1)"},
      {R"(\\?\scsi#disk&rev_1#ven_a#2#{5})", R"(scsi\disk&rev_1\ven_a\2)"},
      {R"(\\?\scsi#disk&ven_a#b#{5})", R"(scsi\disk&ven_a\b)"},
      {R"(\\?\x#{5}#{6})", "x"},
      {R"(\\?\scsi#disk)", nullptr},
      {R"({53f56307})", nullptr},
      {R"(\\?#{53f56307})", nullptr},
      {R"(a{53f56307})", nullptr},
      {R"(\\?\#{53f56307})", nullptr},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.interface);
    OpenScan(std::string("[[disk]]\nnumber = 3\ngeometry = { cylinders = 1, heads = 1, sectors = 1, bytes = 512 }\n"
                         "interface = '") +
             row.interface + "'\n");
    EXPECT_STREQ(VXRDev_GetDiskInstanceID(nullptr, 3).get(), row.id);
    EXPECT_STREQ(VXRDev_GetDiskInstanceID("\\\\.\\physicaldrive3", 0).get(), row.id);
    EXPECT_EQ(machine::OpenHandles(), 0u);
  }
}

TEST_F(ScanTest, DiskIsFoundByItsDeviceNumberAmongOthers) {
  OpenScan(DiskToml(2, "scsi#second#0") + DiskToml(1, "scsi#first#0"));
  EXPECT_STREQ(VXRDev_GetDiskInstanceID("\\\\.\\PHYSICALDRIVE1", 0).get(), "scsi\\first\\0");
  EXPECT_THAT(log, HasSubstr("FLUSH:VXRDev_GetDiskDevicePath:NOT THIS DISK!iEnum=1:In =1:\\\\.\\PHYSICALDRIVE1\n"));
  EXPECT_THAT(log, HasSubstr("CHECK:VXRDev_GetDiskDevicePath:found matched devic at iEnum=2\n"));
  log.clear();
  EXPECT_EQ(VXRDev_GetDiskInstanceID(nullptr, 7), nullptr);
  EXPECT_THAT(log, HasSubstr("VXRDev_GetStoragetDeviceNumber(\\\\.\\PhysicalDrive7) failed!2\n"));
  const std::string longest = "\\\\.\\" + std::string(59, 'x');
  log.clear();
  EXPECT_EQ(VXRDev_GetDiskInstanceID(longest.c_str(), 0), nullptr);
  EXPECT_THAT(log, HasSubstr("CHECK:VXRDev_GetDiskInstanceID:checking disk " + longest));
  log.clear();
  EXPECT_EQ(VXRDev_GetDiskInstanceID((longest + "x").c_str(), 0), nullptr);
  EXPECT_THAT(log, HasSubstr("ERROR:VXRDev_GetDiskInstanceID:disk name has 64 characters, at most 63 are possible"));
  STORAGE_DEVICE_NUMBER number = {};
  EXPECT_FALSE(VXRDev_GetStoragetDeviceNumber(nullptr, &number));
}

// --- Present devices ------------------------------------------------------------------------------------------------

TEST_F(ScanTest, FirstDeviceThatBeginsWithTheIdIsTaken) {
  OpenScan(DeviceToml("PCI\\VEN_1\\1", "SCSIAdapter", "one", "") +
           DeviceToml("PCI\\VEN_12\\LONGER", "Net", "other", "") +
           DeviceToml("PCI\\VEN_12\\2", "SCSIAdapter", "two", ""));
  struct {
    DWORD type;
    const char *id, *hardwareId;
    DWORD index;
  } const rows[] = {
      {VXR_DEVTYPE_SCSIADAPTER, "pci\\ven_1", "one", 0}, {VXR_DEVTYPE_SCSIADAPTER, "pci\\ven_12", "two", 1},
      {VXR_DEVTYPE_UNKNOWN, "PCI\\VEN_12", "other", 1},  {VXR_DEVTYPE_SCSIADAPTER, "PCI\\VEN_12\\23", nullptr, 0},
      {VXR_DEVTYPE_HDC, "PCI\\VEN_1", nullptr, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.id);
    auto device = AllocRecord<VXR_DEVICE>("device");
    EXPECT_EQ(VXRDev_GetDevInfoData(row.type, row.id, device.get()), row.hardwareId != nullptr);
    EXPECT_STREQ(device->szHardwareID, row.hardwareId);
    EXPECT_EQ(device->iDevEnum, row.index);
    VXRDev_FreeDevice(device.release());
  }
  EXPECT_THAT(log, HasSubstr("ERROR:VXRDev_GetDevInfoData:failed to find devinfodata for PCI\\VEN_1!ec=0x00000103\n"));
}

TEST_F(ScanTest, AClassThatCannotBeSetIsAFailure) {
  OpenScan(kIdeMachine);
  for (const unsigned nth : {1u, 2u}) {
    machine::SetFaultPlan({"RegSetValueExA", nth, false, ERROR_ACCESS_DENIED});
    EXPECT_FALSE(VXRDev_FixDevRegistry(VXR_DEVTYPE_HDC, R"(PCI\VEN_8086&DEV_7111\2&EBB567F&0&39)"));
    machine::SetFaultPlan({});
    EXPECT_THAT(log, HasSubstr(nth == 1 ? "\\\\Class:hdc) failed!\n" : "\\\\ClassGUID:{4D36E96A-E325-11CE-BFC1-"));
  }
}

// The longest chain under every single failure and from each failure on: what is recorded is whole, what is not is
// released.
TEST_F(ScanTest, NoFailureCrashesOrLeavesHalfARecord) {
  for (const bool onwards : {false, true}) {
    OpenScan(kIdeMachine);
    VXRDbg_SetLevel(0);  // thousands of scans: not every step of each
    for (unsigned n = 1;; ++n) {
      SCOPED_TRACE(testing::Message() << "call " << n << (onwards ? " onwards" : ""));
      ASSERT_LT(n, 20000u);
      dwError = 0;
      machine::SetFaultPlan({"*", n, onwards, 0});
      VXRDev_ScanDiskDevices(&block);
      const unsigned met = machine::FaultsMet();
      machine::SetFaultPlan({});
      EXPECT_EQ(block.dwDevCnt == 1, block.pVXRDevices[0] != nullptr);
      if (block.dwDevCnt == 1) {
        EXPECT_NE(block.pVXRDevices[0]->szInstanceID, nullptr);
      }
      VXRDev_FreeDevices(&block);
      EXPECT_EQ(machine::OpenHandles(), 0u);
      EXPECT_EQ(machine::OpenKeys(), 0u);
      if (met == 0) break;
      ASSERT_FALSE(HasFailure());
    }
    EXPECT_EQ(dwError, 0u);
  }
}

}  // namespace
