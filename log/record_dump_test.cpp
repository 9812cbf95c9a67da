#include "log/record_dump.h"

#include <cstdio>
#include <cstring>
#include <memory>

#include "tests/support/test_machine.h"

namespace {

using testing::HasSubstr;
using testing::Not;

std::string Address(const void *address) {
  char text[20];
  std::snprintf(text, sizeof text, "%016llX", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(address)));
  return text;
}

VXR_LE64 Put64(uint64_t value) {
  VXR_LE64 number;
  for (uint8_t &byte : number.b) {
    byte = static_cast<uint8_t>(value);
    value >>= 8;
  }
  return number;
}

class RecordDumpTest : public MachineTest {
 protected:
  void SetUp() override {
    Open();
    VXRDbg_Initialize(5, 0, nullptr);
  }

  template <typename Record>
  std::string Dump(void (*dump)(const Record *, const char *), const Record *record, const char *caller = "f") {
    log.clear();
    dump(record, caller);
    return log;
  }
};

TEST_F(RecordDumpTest, NullWritesNothing) {
  EXPECT_EQ(Dump<VXR_EXTHEADER>(VXRDbg_DumpExtHeader, nullptr), "");
  EXPECT_EQ(Dump<VXR_BMEXTNSON>(VXRDbg_DumpBMExtnson, nullptr), "");
  EXPECT_EQ(Dump<VXR_ARCHITECT>(VXRDbg_DumpArchitect, nullptr), "");
  EXPECT_EQ(Dump<VXR_SYSINFO>(VXRDbg_DumpSysInfo, nullptr), "");
  EXPECT_EQ(Dump<VXR_SYSOSINFO>(VXRDbg_DumpSysOsInfo, nullptr), "");
  EXPECT_EQ(Dump<VXR_NETINFO>(VXRDbg_DumpNetInfo, nullptr), "");
  EXPECT_EQ(Dump<VXR_VOLUMES>(VXRDbg_DumpVolumes, nullptr), "");
  EXPECT_EQ(Dump<VXR_VOLUME>(VXRDbg_DumpVolume, nullptr), "");
  EXPECT_EQ(Dump<VXR_VOLDISKS>(VXRDbg_DumpVolDisks, nullptr), "");
  EXPECT_EQ(Dump<VXR_VOLDISK>(VXRDbg_DumpVolDisk, nullptr), "");
  EXPECT_EQ(Dump<VXR_DEVDRV>(VXRDbg_DumpDevDrv, nullptr), "");
  EXPECT_EQ(Dump<VXR_SERVICE>(VXRDbg_DumpService, nullptr), "");
  EXPECT_EQ(Dump<VXR_FILEINFO>(VXRDbg_DumpFileInfo, nullptr), "");
  EXPECT_EQ(Dump<VXR_DRIVER>(VXRDbg_DumpDriver, nullptr), "");
  EXPECT_EQ(Dump<VXR_PARABLOCK>(VXRDbg_DumpDevices, nullptr), "");
  EXPECT_EQ(Dump<VXR_DEVICE>(VXRDbg_DumpDevice, nullptr), "");
  EXPECT_EQ(Dump<VXR_FILEMAP>(VXRDbg_DumpFileMap, nullptr), "");
}

TEST_F(RecordDumpTest, HeaderIsOneLine) {
  const VXR_EXTHEADER header = {VxrPut32(VXR_EXT_MAGIC_HOT), VxrPut32(VXR_EXT_VERSION)};
  EXPECT_EQ(Dump(VXRDbg_DumpExtHeader, &header, "VXRExt_CreateBMExtFile"),
            "CHECK:VXRExt_CreateBMExtFile:VXR_EXTHEADER:Magic=0x654D6248 Verson=0x000000001\n");
  EXPECT_EQ(Dump(VXRDbg_DumpExtHeader, &header, nullptr), "CHECK:VXR_EXTHEADER:Magic=0x654D6248 Verson=0x000000001\n");
}

TEST_F(RecordDumpTest, ArchitectureByValue) {
  const struct {
    DWORD kernel, hal;
    const char *lines;
  } cases[] = {
      {0, 0, "\tKRNL Type = UP_x86 w/o PAE: ntoskrnl.exe\n\tHAL Type  = Standard PC: hal.dll\n"},
      {1, 1, "\tKRNL Type = UP_x86 w/ PAE: ntkrnlpa.exe\n\tHAL Type  = ACPI PIC-based PC: halacpi.dll\t\n"},
      {2, 2, "\tKRNL Type = MP_x86 w/o PAE: ntkrnlmp.exe\n\tHAL Type  = ACPI APIC-based PC (UP): halaacpi.dll\n"},
      {3, 3, "\tKRNL Type = MP_x86 w/ PAE: ntoskrnl.exe\n\tHAL Type  = ACPI APIC-based PC (MP): halmacpi.dll\n"},
      {7, 4, "\tKRNL Type = UNKNOWN 7\n\tHAL Type  = MPS UP PC: halapic.dll\n"},
      {4, 5, "\tKRNL Type = UNKNOWN 4\n\tHAL Type  = MPS MP PC: halmps.dll\n"},
      {0xFFFFFFFF, 6, "\tKRNL Type = UNKNOWN -1\n\tHAL Type  = UNKNOWN 6\n"},
  };
  for (const auto &c : cases) {
    const VXR_ARCHITECT record = {VxrPut32(c.hal), VxrPut32(c.kernel)};
    EXPECT_EQ(Dump(VXRDbg_DumpArchitect, &record), std::string("CHECK:f:VXR_ARCHITECT\n") + c.lines);
  }
}

TEST_F(RecordDumpTest, SystemAndNames) {
  VXR_SYSINFO system{};
  system.BootMedia = VxrPut32(3);
  std::strcpy(system.SystemPath, "C:\\Windows\\system32");
  std::strcpy(system.WindowsPath, "C:\\Windows");
  system.SysOs.MajorVersion = VxrPut32(6);
  system.SysOs.BuildNumber = VxrPut32(7601);
  system.SysOs.PlatformId = VxrPut32(2);
  system.SysOs.ProductType = VxrPut32(2);
  system.SysOs.SuiteMask = VxrPut32(4);
  system.SysOs.TotalPhys = Put64(8589934592);
  system.SysOs.PageSize = VxrPut32(4096);
  system.SysOs.ProcessorRevision = VxrPut32(0x3A09);
  system.SysOs.ProcessorArchitecture = VxrPut32(9);
  EXPECT_EQ(Dump(VXRDbg_DumpSysInfo, &system),
            "CHECK:f:VXR_SYSINFO\n\tBoot Media Type     =3\n\tOriginal SystemPath =C:\\Windows\\system32\n"
            "\tOriginal WindowsPath=C:\\Windows\nCHECK:f:VXR_SYSOSINFO\n"
            "\tOS Version =0x6:0x0:Build=0x1db1:ServPack:0x0:0x0\n\tPlaftform ID = 0x2: PLATFORM_WIN32_NT\n"
            "\tProduct Type = 0x2: DOMAIN_CONTROLLER\n\tSuite Masks = 0x4: BACKOFFICE\tullTotalPhys= 8589934592\n"
            "\tdwPageSize= 00001000\n\tdwNumberOfProcessors= 00000000\n\tdwProcessorType= 00000000\n"
            "\twProcessorLevel= 0000\n\twProcessorRevision= 3A09\n\tProcessorArchitecture= 00000009\n\n");

  VXR_NETINFO names{};
  char *const fields[] = {names.ComputerName,
                          names.ComputerNameNetBIOS,
                          names.ComputerNameDnsHostname,
                          names.ComputerNameDnsDomain,
                          names.ComputerNameDnsFullyQualified,
                          names.ComputerNamePhysicalNetBIOS,
                          names.ComputerNamePhysicalDnsHostname,
                          names.ComputerNamePhysicalDnsDomain,
                          names.ComputerNamePhysicalDnsFullyQualified};
  char name[] = "a";
  for (char *field : fields) {
    std::strcpy(field, name);
    ++name[0];
  }
  EXPECT_EQ(Dump(VXRDbg_DumpNetInfo, &names),
            "CHECK:f:VXR_NETINFO\n\tComputerName = a\n\tComputerNameNetBIOS = b\n\tComputerNameDnsDomain = d\n"
            "\tComputerNameDnsHostname = c\n\tComputerNameDnsFullyQualified = e\n\tComputerNamePhysicalNetBIOS = f\n"
            "\tComputerNamePhysicalDnsDomain = h\n\tComputerNamePhysicalDnsHostname = g\n"
            "\tComputerNamePhysicalDnsFullyQualified = i\n");
}

constexpr char kEmptyFile[] =
    "VXR_FILEINFO\n\tFileName = \n\tFileVersion = \n\tFileDescription = \n\tCompanyName = \n\tProductName = \n"
    "\tProductVersion= \n\tFileSize = 0 bytes\n\tCreationTime = 1601/01/01-00:00:00\n"
    "\tLastAccessTime = 1601/01/01-00:00:00\n\tLastWriteTime = 1601/01/01-00:00:00\n";

std::string EmptyDriver(const std::string &name) {
  const std::string title = "CHECK:" + name + ":";
  return title + "VXR_DEVDRV\n\tDeviceType   = 0\n\tInstanceID   = \n\tManufacturer = \n\tDescription  = \n" +
         "\tProviderName = \n" + title + "VXR_SERVICE\n\tName  = \n\tImage = \n\tGroup = \n\tTag   = 0x00000000\n" +
         "\tType  = 0x00000000\n\tStart = 0x00000000\n" + title + kEmptyFile + title + kEmptyFile;
}

TEST_F(RecordDumpTest, VolumesWithTheirDisks) {
  const auto volumes = std::make_unique<VXR_VOLUMES>();
  volumes->VolCount = VxrPut32(1);
  VXR_VOLUME &volume = volumes->Vols[0];
  std::strcpy(volume.MntPnt, "C:\\");
  std::strcpy(volume.Volume, "\\\\?\\Volume{1}");
  std::memcpy(volume.Device, ".\0\\\0D\0", 6);  // the length 0x2E, then the name
  std::memcpy(volume.UniqId, "\x02\0\xAB\xCD", 4);
  std::strcpy(volume.Label, "System");
  std::strcpy(volume.FileSystem, "NTFS");
  std::strcpy(volume.BMName, "C");
  volume.UniqIdLen = VxrPut32(4);
  volume.Serial = VxrPut32(0x1234ABCD);
  volume.Flags = VxrPut32(0xff);
  volume.MaxLen = VxrPut32(255);
  volume.VolDisks.DiskCount = VxrPut32(1);
  volume.VolDisks.Disks[0].DiskExtent.StartingOffset = Put64(1048576);
  volume.VolDisks.Disks[0].DiskExtent.ExtentLength = Put64(64420311040);
  EXPECT_EQ(Dump(VXRDbg_DumpVolumes, volumes.get()),
            "CHECK:f:VXR_VOLUMES:total 1 vxr vols\nCHECK:f:VXR_VOLUME\n"
            "\tSerial=0x1234ABCD:Flags=0x000000ff:MaxLen=255:Label=System:FileSystem=NTFS\n\tMntPnt = C:\\\n"
            "\tVolume = \\\\?\\Volume{1}\n\tDevice = .\\D\n\tBMName = C\n\tUnique ID:4 bytes:02 00 AB CD \n"
            "CHECK:f:VXR_VOLDISKS:CHECK:f:VXR_VOLDISK:" +
                EmptyDriver("DiskDriver") + EmptyDriver("BusEDriver") + EmptyDriver("CtrlDriver") +
                "CHECK:DiskExtent:DISK_EXTENT:\tdisk #0:start=1048576:len=64420311040\n");
}

TEST_F(RecordDumpTest, ExtensionInItsOrder) {
  const auto extension = std::make_unique<VXR_BMEXTNSON>();
  const std::string text = Dump(VXRDbg_DumpBMExtnson, extension.get());
  const size_t architecture = text.find("VXR_ARCHITECT"), system = text.find("VXR_SYSINFO"),
               names = text.find("VXR_NETINFO"), volumes = text.find("VXR_VOLUMES:total 0 vxr vols\n");
  EXPECT_EQ(text.find("CHECK:f:VXR_BMEXTNSON\n"), 0u);
  EXPECT_TRUE(architecture < system && system < names && names < volumes) << text;
  EXPECT_NE(volumes, std::string::npos);
}

TEST_F(RecordDumpTest, HostileImageStaysWithinItsFields) {
  // Exactly the record on the heap and no NUL in it: a text or count that is believed reads past the end.
  const auto extension = std::make_unique<VXR_BMEXTNSON>();
  std::memset(static_cast<void *>(extension.get()), 'A', sizeof *extension);
  const std::string text = Dump(VXRDbg_DumpBMExtnson, extension.get());
  const std::string as(16, 'A');
  EXPECT_THAT(text, HasSubstr("VXR_VOLUMES:total 1094795585 vxr vols\n"));
  EXPECT_THAT(text, HasSubstr(":Label=" + as + ":FileSystem=" + as + "\n\tMntPnt = " + as + "\n"));
  EXPECT_THAT(text, HasSubstr("\tComputerName = " + as + "\n"));
  EXPECT_THAT(text, HasSubstr("\tUnique ID:1094795585 bytes:41 41 "));
  size_t volumes = 0;
  for (size_t at = text.find(":VXR_VOLUME\n"); at != std::string::npos; at = text.find(":VXR_VOLUME\n", at + 1))
    volumes++;
  EXPECT_EQ(volumes, 4u);
}

TEST_F(RecordDumpTest, FileTimesThatAreNoneAreLeftOut) {
  VXR_FILEINFO file{};
  std::strcpy(file.FileName, "C:\\a.sys");
  file.FileSize = Put64(5000000000);
  file.CreationTime = Put64(0x019DB1DED53E8000);
  file.LastAccessTime = Put64(0xFFFFFFFFFFFFFFFF);
  const std::string text = Dump(VXRDbg_DumpFileInfo, &file, nullptr);
  EXPECT_THAT(text, HasSubstr("CHECK:VXR_FILEINFO\n\tFileName = C:\\a.sys\n"));
  EXPECT_THAT(text, HasSubstr("\tFileSize = 5000000000 bytes\n\tCreationTime = 1970/01/01-00:00:00\n\tLastWriteTime"));
  EXPECT_THAT(text, Not(HasSubstr("LastAccessTime")));
}

TEST_F(RecordDumpTest, DeviceWithItsParents) {
  char instance[] = "scsi\\disk";
  VXR_DEVICE parent{}, disk{};
  disk.szInstanceID = instance;
  disk.pVXRDevParent = &parent;
  disk.guDevice = {0x4D36E967, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
  disk.VXRDevType = 2;
  disk.iDevEnum = 11;
  disk.hDevInst = 0x1F;
  const std::string none(16, '0');
  const std::string fields = "VXR_DEVICE [0x" + Address(&disk) + "]\n  szInstanceID =scsi\\disk\n" +
                             "  guDevice = 4D36E967-E325-11CE-BFC1-08002BE10318\n  pVXRDriver=0x" + none +
                             "\n  iBMDevIndex=0x0\n  VXRDevType=0x2\n  iDevEnum=0x11\n  hDevInst=0x0000001F\n" +
                             "  ##Parent Device Link List##\n  0x" + Address(&disk) + ":scsi\\disk --> 0x" +
                             Address(&parent) + "\n  0x" + Address(&parent) + ":N/A --> 0x" + none + "\n";
  EXPECT_EQ(Dump(VXRDbg_DumpDevice, &disk), "CHECK:f:" + fields);

  VXR_PARABLOCK block{};
  block.dwDevCnt = 0xFFFFFFFF;
  block.pVXRDevices[0] = &disk;
  EXPECT_EQ(Dump(VXRDbg_DumpDevices, &block),
            "CHECK:f:\n#### [00]:" + fields +
                "\n#### [01]:\n#### [02]:\n#### [03]:\n#### [04]:\n#### [05]:\n#### [06]:\n#### [07]:\n#### [08]:");
}

TEST_F(RecordDumpTest, DriverWithAndWithoutItsPlatformRecords) {
  VXR_DRIVER driver{};
  const std::string title = "VXR_DRIVER [0x" + Address(&driver) + "]\n";
  EXPECT_EQ(Dump(VXRDbg_DumpDriver, &driver),
            "CHECK:f:" + title + "\tVXR_DRIVER:pDrvInfoData is NULL\n" + "\tVXR_DRIVER:pDrvInfoDData is NULL\n");
  SP_DRVINFO_DATA_A info{};
  SP_DRVINFO_DETAIL_DATA_A detail{};
  driver.pDrvInfoData = &info;
  driver.pDrvInfoDetailData = &detail;
  const std::string text = Dump(VXRDbg_DumpDriver, &driver, nullptr);
  EXPECT_EQ(text.find(title + "CHECK:SP_DRVINFO_DATA:\n"), 0u) << text;
  EXPECT_THAT(text, HasSubstr("CHECK:SP_DRVINFO_DETAIL_DATA:\n\tInfDate = "));
}

TEST_F(RecordDumpTest, FileMap) {
  VXR_FILEMAP map{};
  map.Mapped = TRUE;
  map.Start = reinterpret_cast<void *>(0x123456789A);
  map.Size = 80332;
  map.hFile = INVALID_HANDLE_VALUE;
  std::strcpy(map.Name, "VAVXRFMap-00");
  std::memset(map.File, 'p', sizeof map.File);
  EXPECT_EQ(Dump(VXRDbg_DumpFileMap, &map, "VXREng_MapFile"),
            "CHECK:VXREng_MapFile:VXR_FILEMAP\n\tFile = " + std::string(264, 'p') +
                "\n\tName = VAVXRFMap-00\n\tSize = 80332\n\tStart= 0x3456789A\n\tOffset= 0x00000000\n"
                "\thFile = 0xFFFFFFFFFFFFFFFF\n\thMap  = 0x0000000000000000\n\tMapped= TRUE\n");
}

}  // namespace
