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

}  // namespace
