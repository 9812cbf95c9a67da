// What vxr makes of the lines that a boot-sector repair writes.
#include "tools/vxr/boot/boot_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;

constexpr char kGeometry[] =
    "CHECK:VXREng_FixBootVolume:IOCTL_DISK_GET_DRIVE_GEOMETRY:\n\tCylinder =1044 (0x414)\n"
    "\tTracks   =255 (0x000000FF)\n\tSectors  =63 (0x0000003F)\n\tBytes    =512 (0x00000200)\n";
constexpr char kNtfs[] =
    "CHECK:VXREng_FixBootVolume:Active partitin found:Index=2:Type=07:SecTotal=204800:SecRelative=16777216\n"
    "\tCHS_s: cyl=0000 head=032 sect=33\n\tCHS_e: cyl=0012 head=254 sect=63\n\tTotalSectors =0x00032000 204800\n";
constexpr char kFat[] =
    "CHECK:VXREng_FixBootVolume:Active partitin found:Index=0:Type=0c:SecTotal=9:SecRelative=2048\n"
    "\tCHS_s: cyl=0000 head=032 sect=33\n\tCHS_e: cyl=0012 head=254 sect=63\n\tTotalSectors =0x00000009 9\n";
constexpr char kFields[] =
    "CHECK:VXREng_FixBootVolume:Boot Volume BPB:\n\tSectorsPerTrack  =63\n\tTracksPerCylinder=16\n"
    "\tHiddenSectors    =63\n\tTotalSectors     =204800\n";

BootReport Report(std::initializer_list<const char *> lines) {
  BootReport report;
  AddLogLine(&report, "*** LOG STARTS\n");
  AddLogLine(&report, "ERROR:Other:IS_ACTIVE():failed!ec=2:0x00000002:msg=of another function\n");
  for (const char *line : lines) AddLogLine(&report, line);
  return report;
}

TEST(BootReport, SaysWhatBecameOfEachField) {
  const BootReport report = Report(
      {kGeometry, kNtfs, "WARNG:VXREng_FixBootVolume:DiskGeo.SectorsPerTrack =63 !=  pPart->rel_sect =16777216\n",
       kFields, "WARNG:VXREng_FixBootVolume:DiskGeo.TracksPerCylinder = 255 != BPB.TracksPerCyl=16, setting BPB...\n",
       "WARNG:VXREng_FixBootVolume:pPart->rel_sect = 16777216 != BPB.HiddenSect=63, setting BPB...\n",
       "WARNG:VXREng_FixBootVolume:pPart->sec_total = 204800 != BPB.TotalSect=204800, setting BPB...\n",
       "CHECK:VXREng_FixBootVolume:patching the mismatched BPB in volume boot sector...\n"});
  EXPECT_THAT(DescribeRepair(report, "D"),
              ElementsAre("Disk D: 1044 cylinders, 255 heads, 63 sectors a track, 512 bytes a sector",
                          "Active partition: entry 3, type 0x07 (NTFS), 204800 sectors from sector 16777216, boot "
                          "sector 8,589,934,592 bytes into the disk",
                          "Sectors a track   63  agrees", "Heads             16 -> 255  set",
                          "Hidden sectors    63 -> 16777216  set", "Total sectors     204800 -> 204799  set",
                          "The boot sector was written."));
  EXPECT_EQ(report.error, "");
}

TEST(BootReport, EachFailureIsOneLineForPeople) {
  const struct {
    std::vector<const char *> before;
    const char *error, *text;
  } kCases[] = {
      {{}, "CreateFile():failed!ec=2:0x00000002:msg=D\n", "there is no such disk; give the device name"},
      {{}, "CreateFile():failed!ec=3:0x00000003:msg=D\n", "there is no such disk"},
      {{}, "CreateFile():failed!ec=5:0x00000005:msg=D\n", "(access is denied)"},
      {{}, "CreateFile():failed!ec=21:0x00000015:msg=D\n", "has no image"},
      {{}, "DeviceIoControl():failed!ec=1:0x00000001:msg=X\n", "or one without a geometry"},
      {{}, "DeviceIoControl():failed!ec=1117:0x0000045d:msg=X\n", "geometry cannot be read (system error 1117)"},
      {{kGeometry}, "DiskGeo.BytesPerSector =512 is not from 1 to 2\n", "cannot have 512 bytes"},
      {{kGeometry},
       "ReadFile():failed!ec=27:0x0000001b:msg=MBR read failure\n",
       "first sector cannot be read (the disk is too short)"},
      {{kGeometry}, "IS_MAGICOK():failed!ec=0:0x00000000:msg=MBR magic not found!!!\n\n", "no master boot record"},
      {{kGeometry}, "IS_ACTIVE():failed!ec=0:0x00000000:msg=Active partitin not found\n", "no partition is active"},
      {{kGeometry, kFat}, "IS_WINPART():failed!ec=0:0x00000000:msg=X\n\n", "(entry 1) has type 0x0C, which is not"},
      {{kGeometry, kFat}, "pPart->rel_sect =0, the partition begins at the MBR\n", "begins at the master boot record"},
      {{kGeometry, kNtfs},
       "SetFilePointer():failed!ec=131:0x00000083:msg=X\n",
       "boot sector 8,589,934,592 bytes into the disk cannot be read (system error 131)"},
      {{kGeometry, kNtfs}, "ReadFile():failed!ec=27:0x0000001b:msg=MBR read failure\n", "as large as its partition"},
      {{kGeometry, kNtfs}, "IS_MAGICOK():failed!ec=0:0x00000000:msg=X\n\n", "restore the partition first"},
      {{kGeometry, kNtfs, kFields},
       "WriteFile():failed!ec=19:0x00000013:msg=X\n",
       "could not be written (it is write-protected); it is as the disk left it, old or new"},
      {{kGeometry}, "AllocHeap(512 bytes) failed for pMBR:ec=8:0x00000008\n", "not repaired: AllocHeap(512 bytes)"},
  };
  for (const auto &c : kCases) {
    BootReport report;
    for (const char *line : c.before) AddLogLine(&report, line);
    AddLogLine(&report, std::string("ERROR:VXREng_FixBootVolume:") + c.error);
    AddLogLine(&report, "ERROR:VXREng_FixBootVolume:CreateFile():failed!ec=1:0x00000001:msg=a later one\n");
    const std::string text = ExplainFailure(report, "D");
    EXPECT_THAT(text, testing::HasSubstr(c.text));
    EXPECT_THAT(text, testing::StartsWith("D: "));
  }
}

// Lines that are cut short or hold other things than numbers tell nothing.
TEST(BootReport, OtherLinesChangeNothing) {
  for (const char *line : {"", "CHECK", "CHECK:VXREng_FixBootVolume:", "CHECK:VXREng_FixBootVolume:Boot Volume BPB:\n",
                           "CHECK:VXREng_FixBootVolume:opening disk WARNG:BPB.HiddenSect=1, setting BPB...\n",
                           "WARNG:VXREng_FixBootVolume:BPB.HiddenSect=1"}) {
    const BootReport report = Report({line});
    EXPECT_FALSE(report.geometry || report.partition || report.fields || report.hiddenSet) << line;
  }
}

}  // namespace
