// The boot-sector repair on small disk images. Images are made and compared by their bytes, not by the code's records.
#include <fcntl.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <regex>

#include "platform/machine/base/fault.h"
#include "platform/machine/base/handles.h"
#include "tests/support/test_machine.h"

namespace {

constexpr char kDisk[] = R"(\\.\PhysicalDrive0)";
constexpr std::size_t kSecsPerTrack = 24, kTracksPerCyl = 26, kHiddenSect = 28, kTotalSect = 40;  // in a boot sector

// A disk whose only partition is in entry `index`, and whose boot sector agrees with it.
struct Plan {
  uint32_t bytes = 512;
  int index = 0;
  uint8_t type = 0x07;
  uint32_t first = 8, sectors = 40;
  uint64_t heads = 255, sectorsPerTrack = 63;  // the geometry
};

void Put(std::string *image, std::size_t at, uint32_t value, int size) {
  for (int i = 0; i < size; ++i) image->at(at + i) = static_cast<char>(value >> 8 * i);
}

void PutEntry(std::string *image, int index, uint8_t status, uint8_t type, uint32_t first, uint32_t sectors) {
  const std::size_t at = 446 + 16 * index;
  image->replace(at, 8,
                 std::string{static_cast<char>(status), 32, 0x61, 5, static_cast<char>(type), '\xFE', '\xFF', '\xFF'});
  Put(image, at + 8, first, 4);
  Put(image, at + 12, sectors, 4);
}

std::string MakeBootSector(const Plan &plan) {
  std::string sector(plan.bytes, '\x5A');
  Put(&sector, kSecsPerTrack, 63, 2);
  Put(&sector, kTracksPerCyl, 255, 2);
  Put(&sector, kHiddenSect, plan.first, 4);
  Put(&sector, kTotalSect, plan.sectors - 1, 4);
  Put(&sector, 510, 0xAA55, 2);
  return sector;
}

std::string MakeMbr(const Plan &plan) {
  std::string sector(plan.bytes, '\x33');
  sector.replace(446, 64, 64, '\0');
  PutEntry(&sector, plan.index, 0x80, plan.type, plan.first, plan.sectors);
  Put(&sector, 510, 0xAA55, 2);
  return sector;
}

// The disk up to one sector behind the boot sector.
std::string MakeImage(const Plan &plan) {
  const std::string between(std::size_t{plan.bytes} * (plan.first - 1), '\xC7');
  return MakeMbr(plan) + between + MakeBootSector(plan) + std::string(plan.bytes, '\x77');
}

struct BootVolumeTest : MachineTest {
  // Opens the machine with the plan's geometry and disk.img, and starts the log, whose own calls no fault is meant for.
  void OpenDisk(const Plan &plan) {
    Close();
    Open("[[disk]]\nnumber = 0\nimage = 'disk.img'\ngeometry = { cylinders = 1044, heads = " +
         std::to_string(plan.heads) + ", sectors = " + std::to_string(plan.sectorsPerTrack) +
         ", bytes = " + std::to_string(plan.bytes) + " }\n");
    VXRDbg_Initialize(5, 0, nullptr);
    log.clear();
  }
  void OpenDisk(const Plan &plan, const std::string &image) {
    WriteFile("disk.img", image);
    OpenDisk(plan);
  }
  bool Repair() {
    const bool repaired = VXREng_FixBootVolume(kDisk) != 0;
    EXPECT_EQ(machine::OpenHandles(), 0u);
    return repaired;
  }
  // What the log holds of lines that begin so, together.
  std::string LogOf(const std::string &prefix) const {
    std::string found;
    for (std::size_t at = 0; at < log.size();) {
      // A line goes on where the next begins with a tab, and with the empty lines behind it.
      std::size_t end = log.find('\n', at);
      while (end != std::string::npos && end + 1 < log.size() && (log[end + 1] == '\t' || log[end + 1] == '\n')) {
        end = log.find('\n', end + 1);
      }
      end = end == std::string::npos ? log.size() : end + 1;
      if (log.compare(at, prefix.size(), prefix) == 0) found += log.substr(at, end - at);
      at = end;
    }
    return found;
  }
};

// --- What is logged -------------------------------------------------------------------------------------------------

TEST_F(BootVolumeTest, TheWholeLogOfARepair) {
  const Plan plan{.first = 2048, .sectors = 204800, .heads = 16};
  std::string image = MakeImage({.first = 2048, .sectors = 4096});
  PutEntry(&image, 0, 0, 0x27, 1, 1);
  PutEntry(&image, 2, 0x80, 0x07, 2048, 204800);
  PutEntry(&image, 3, 0x80, 0x0C, 1, 4);  // active too, but not the first
  Put(&image, 2048 * 512 + kSecsPerTrack, 32, 2);
  Put(&image, 2048 * 512 + kHiddenSect, 63, 4);
  OpenDisk(plan, image);
  EXPECT_TRUE(Repair());
  EXPECT_EQ(log,
            "CHECK:VXREng_FixBootVolume:opening disk \\\\.\\PhysicalDrive0...\n"
            "CHECK:VXREng_FixBootVolume:IOCTL_DISK_GET_DRIVE_GEOMETRY:\n"
            "\tCylinder =1044 (0x414)\n\tTracks   =16 (0x00000010)\n\tSectors  =63 (0x0000003F)\n"
            "\tBytes    =512 (0x00000200)\n"
            "CHECK:VXREng_FixBootVolume:Reading MBR disk \\\\.\\PhysicalDrive0...\n"
            "CHECK:VXREng_FixBootVolume:Active partitin found:Index=2:Type=07:SecTotal=204800:SecRelative=2048\n"
            "\tCHS_s: cyl=0261 head=032 sect=33\n\tCHS_e: cyl=1023 head=254 sect=63\n"
            "\tTotalSectors =0x00032000 204800\n"
            "WARNG:VXREng_FixBootVolume:DiskGeo.SectorsPerTrack =63 !=  pPart->rel_sect =2048\n"
            "WARNG:VXREng_FixBootVolume:DiskGeo.TracksPerCylinder =16 !=  pPart->end.h + 1=255\n"
            "CHECK:VXREng_FixBootVolume:read boot sector at 2048:1048576 bytes\n"
            "CHECK:VXREng_FixBootVolume:Boot Volume BPB:\n\tSectorsPerTrack  =32\n\tTracksPerCylinder=255\n"
            "\tHiddenSectors    =63\n\tTotalSectors     =4095\n"
            "WARNG:VXREng_FixBootVolume:DiskGeo.SectorsPerTrack = 63 != BPB.SecsPerTrack=32, setting BPB...\n"
            "WARNG:VXREng_FixBootVolume:DiskGeo.TracksPerCylinder = 16 != BPB.TracksPerCyl=255, setting BPB...\n"
            "WARNG:VXREng_FixBootVolume:pPart->rel_sect = 2048 != BPB.HiddenSect=63, setting BPB...\n"
            "WARNG:VXREng_FixBootVolume:pPart->sec_total = 204800 != BPB.TotalSect=4095, setting BPB...\n"
            "CHECK:VXREng_FixBootVolume:patching the mismatched BPB in volume boot sector...\n");
}

TEST_F(BootVolumeTest, TheWholeLogWhenNothingIsToBeDone) {
  const Plan plan{.first = 63};
  OpenDisk(plan, MakeImage(plan));
  EXPECT_TRUE(Repair());
  EXPECT_THAT(log, testing::HasSubstr(":read boot sector at 63:32256 bytes\n"));
  EXPECT_THAT(log,
              testing::EndsWith("\tTotalSectors     =39\nCHECK:VXREng_FixBootVolume:no need to patch, leaving...\n"));
  EXPECT_EQ(LogOf("WARNG:"), "") << "geometry and entry agree";
}

// The warnings of a set field are shown even where the log tells failures only.
TEST_F(BootVolumeTest, ChangesAreLoggedAtTheLowestLevel) {
  const Plan plan{.heads = 16};
  OpenDisk(plan, MakeImage(plan));
  VXRDbg_SetLevel(0);
  log.clear();
  EXPECT_TRUE(Repair());
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 3) << log;
  EXPECT_EQ(log, LogOf("WARNG:"));
}

// --- What is set ----------------------------------------------------------------------------------------------------

struct Difference {
  const char *name;
  Plan plan;
  std::function<void(std::string *sector)> damage;
  std::function<void(std::string *sector)> repair = {};  // none: back to what agrees
  const char *warning = "";                              // the fields that are named in it; "": nothing is to be set
};

std::vector<Difference> Differences() {
  const auto damage = [](std::size_t at, uint32_t value, int size) {
    return [=](std::string *sector) { Put(sector, at, value, size); };
  };
  const auto damageAll = [](std::string *sector) {
    sector->replace(24, 8, "\1\2\3\4\5\6\7\10"), Put(sector, 40, 0, 4);
  };
  const auto keepTotal = [](std::string *sector) { Put(sector, 40, 0, 4); };
  const auto nothing = [](std::string *) {};
  const Plan large{.bytes = 4096}, fat{.type = 0x0C};
  return {
      {"nothing", {}, nothing},
      {"sectors a track", {}, damage(24, 17, 2), {}, "SecsPerTrack"},
      {"sectors a track, high byte", {}, damage(25, 1, 1), {}, "SecsPerTrack"},
      {"heads", {}, damage(26, 16, 2), {}, "TracksPerCyl"},
      {"hidden sectors, highest byte", {}, damage(31, 1, 1), {}, "HiddenSect"},
      {"total one too many", {}, damage(40, 40, 4), {}, "TotalSect"},
      {"total, highest byte", {}, damage(43, 1, 1), {}, "TotalSect"},
      {"all four", {}, damageAll, {}, "SecsPerTrack TracksPerCyl HiddenSect TotalSect"},
      {"large sectors, all four", large, damageAll, {}, "SecsPerTrack TracksPerCyl HiddenSect TotalSect"},
      {"FAT keeps other fields there", fat, damageAll, keepTotal, "SecsPerTrack TracksPerCyl HiddenSect"},
      {"extended", {.type = 0x0F}, damageAll, keepTotal, "SecsPerTrack TracksPerCyl HiddenSect"},
      {"second entry", {.index = 1, .type = 0x0B}, damage(26, 16, 2), {}, "TracksPerCyl"},
      {"third entry", {.index = 2, .type = 0x0E}, damage(26, 16, 2), {}, "TracksPerCyl"},
      {"fourth entry", {.index = 3}, damage(26, 16, 2), {}, "TracksPerCyl"},
      {"heads agree in their low half", {.heads = 0x100FF}, nothing},
      {"sectors a track never agree beyond it", {.sectorsPerTrack = 0x1003F}, nothing, {}, "SecsPerTrack"},
      {"an empty partition's total wraps round", {.sectors = 0}, nothing},
      {"and is set to the largest number", {.sectors = 0}, damage(40, 0, 4), {}, "TotalSect"},
  };
}

TEST_F(BootVolumeTest, SetsWhatDiffersAndNothingElse) {
  for (const Difference &difference : Differences()) {
    SCOPED_TRACE(difference.name);
    const Plan &plan = difference.plan;
    std::string sector = MakeBootSector(plan);
    std::string image = MakeImage(plan), wanted = image;
    const std::size_t at = std::size_t{plan.first} * plan.bytes;
    if (difference.repair) difference.repair(&sector);
    wanted.replace(at, sector.size(), sector);
    sector = MakeBootSector(plan);
    difference.damage(&sector);
    image.replace(at, sector.size(), sector);
    OpenDisk(plan, image);
    const timespec longAgo[] = {{1, 0}, {1, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, Host("disk.img").c_str(), longAgo, 0), 0);

    EXPECT_TRUE(Repair());
    EXPECT_TRUE(ReadFile("disk.img") == wanted) << "a byte differs from what was wanted";
    std::string named;
    const std::string warnings = LogOf("WARNG:");
    const std::regex field("BPB\\.(\\w+)=[0-9]+, setting BPB");
    for (std::sregex_iterator match(warnings.begin(), warnings.end(), field), end; match != end; ++match) {
      named += (named.empty() ? "" : " ") + (*match)[1].str();
    }
    EXPECT_EQ(named, difference.warning);
    struct stat status = {};
    ASSERT_EQ(stat(Host("disk.img").c_str(), &status), 0);
    EXPECT_EQ(status.st_mtime == 1, named.empty()) << "written when nothing was set, or the reverse";

    log.clear();
    EXPECT_TRUE(Repair());
    EXPECT_TRUE(ReadFile("disk.img") == wanted);
  }
}

// At 8 GiB the low half of the boot sector's offset is 0, where the MBR is.
TEST_F(BootVolumeTest, ReachesBeyondFourGibibytes) {
  const Plan plan{.first = 16777216};
  constexpr std::streamoff kOffset = 8589934592;
  const std::string mbr = MakeMbr(plan), wanted = MakeBootSector(plan);
  std::string damaged = wanted;
  Put(&damaged, kHiddenSect, 63, 4);
  {
    std::ofstream file(Host("disk.img"), std::ios::binary);
    file << mbr;
    file.seekp(kOffset) << damaged << damaged;
  }
  OpenDisk(plan);
  EXPECT_TRUE(Repair());
  EXPECT_THAT(log, testing::HasSubstr(":read boot sector at 16777216:0 bytes\n"));
  std::ifstream file(Host("disk.img"), std::ios::binary);
  std::string head(1024, 'x'), tail(1025, 'x');
  file.read(head.data(), 1024).seekg(kOffset).read(tail.data(), 1025);
  EXPECT_EQ(file.gcount(), 1024);
  EXPECT_TRUE(head == mbr + std::string(512, '\0')) << "the MBR, or the sector behind it, was written";
  EXPECT_TRUE(tail.substr(0, 1024) == wanted + damaged);
}

// --- What fails -----------------------------------------------------------------------------------------------------

struct BadDisk {
  const char *name;
  Plan plan;
  std::function<void(std::string *image)> bend;
  const char *error;  // a regular expression of what follows the function's name
  uint32_t told = 0;  // bytes a sector that the geometry tells; 0: the plan's
};

const std::vector<BadDisk> &BadDisks() {
  const auto set = [](std::size_t at, uint8_t value) {
    return [=](std::string *image) { image->at(at) = static_cast<char>(value); };
  };
  const auto cut = [](std::size_t size) { return [=](std::string *image) { image->resize(size); }; };
  const auto nothing = [](std::string *) {};
  static const char kMbrMagic[] = "IS_MAGICOK\\(\\):failed!EC:msg=MBR magic not found!!!\n\n";
  static const char kBootMagic[] = "IS_MAGICOK\\(\\):failed!EC:msg=Boot sector magic not found!!!\n\n";
  static const char kNotActive[] = "IS_ACTIVE\\(\\):failed!EC:msg=Active partitin not found\n";
  static const char kNotWindows[] = "IS_WINPART\\(\\):failed!EC:msg=Not a Windows Partition!\n\n";
  static const char kMbrRead[] = "ReadFile\\(\\):failed!EC:msg=MBR read failure\n";
  static const char kBootRead[] = "ReadFile\\(\\):failed!EC:msg=\\\\\\\\\\.\\\\PhysicalDrive0\n";
  static const char kBytes[] = "DiskGeo.BytesPerSector =\\d+ is not from 512 to 65536\n";
  const Plan large{.bytes = 4096};
  const std::size_t boot = 8 * 512, largeBoot = 8 * 4096;
  static const std::vector<BadDisk> kBadDisks = {
      {"MBR without 55", {}, set(510, 0x54), kMbrMagic},
      {"MBR without AA", {}, set(511, 0x55), kMbrMagic},
      {"large MBR with its mark at the end only", large,
       [](std::string *image) {
         Put(image, 4094, 0xAA55, 2);
         Put(image, 510, 0, 2);
       },
       kMbrMagic},
      {"boot sector without 55", {}, set(boot + 510, 0x54), kBootMagic},
      {"boot sector without AA", {}, set(boot + 511, 0x55), kBootMagic},
      {"large boot sector with its mark at the end only", large,
       [=](std::string *image) {
         Put(image, largeBoot + 4094, 0xAA55, 2);
         Put(image, largeBoot + 510, 0, 2);
       },
       kBootMagic},
      {"no active partition", {}, set(446, 0), kNotActive},
      {"another status", {}, set(446, 0x81), kNotActive},
      {"type 06", {.type = 0x06}, nothing, kNotWindows},
      {"the first active one is refused",
       {.index = 3},
       [](std::string *image) { PutEntry(image, 1, 0x80, 0x17, 8, 40); },
       kNotWindows},
      {"a partition at the MBR",
       {},
       [](std::string *image) { PutEntry(image, 0, 0x80, 0x07, 0, 40); },
       "pPart->rel_sect =0, the partition begins at the MBR\n"},
      {"empty disk", {}, cut(0), kMbrRead},
      {"less than a sector", {}, cut(511), kMbrRead},
      {"large sectors on a small disk", large, cut(512), kMbrRead},
      {"ends before the boot sector", {}, cut(boot), kBootRead},
      {"ends in the boot sector", {}, cut(boot + 511), kBootRead},
      {"beyond any disk", {}, [](std::string *image) { PutEntry(image, 0, 0x80, 0x07, 0xFFFFFFFF, 1); }, kBootRead},
      {"sectors of 511 bytes", {}, nothing, kBytes, 511},
  };
  return kBadDisks;
}

TEST_F(BootVolumeTest, RefusesABadDiskWithOneLineAndLeavesIt) {
  for (const BadDisk &bad : BadDisks()) {
    SCOPED_TRACE(bad.name);
    std::string image = MakeImage(bad.plan);
    // A field differs, so that a repair that goes on is seen.
    image.at(std::size_t{bad.plan.first} * bad.plan.bytes + kSecsPerTrack) = 17;
    bad.bend(&image);
    Plan plan = bad.plan;
    if (bad.told != 0) plan.bytes = bad.told;
    OpenDisk(plan, image);
    EXPECT_FALSE(Repair());
    const std::string error = std::regex_replace(bad.error, std::regex("EC"), "ec=\\d+:0x[0-9a-f]{8}");
    EXPECT_TRUE(std::regex_match(LogOf("ERROR:"), std::regex("ERROR:VXREng_FixBootVolume:" + error)))
        << LogOf("ERROR:");
    EXPECT_TRUE(ReadFile("disk.img") == image);
  }
}

TEST_F(BootVolumeTest, RefusesNoNameAndAnUnknownDisk) {
  OpenDisk({}, MakeImage({}));
  EXPECT_FALSE(VXREng_FixBootVolume(nullptr));
  EXPECT_EQ(log, "ERROR:VXREng_FixBootVolume:szDisk is NULL\n");
  log.clear();
  EXPECT_FALSE(VXREng_FixBootVolume("\\\\.\\PhysicalDrive1"));
  EXPECT_EQ(LogOf("ERROR:"),
            "ERROR:VXREng_FixBootVolume:CreateFile():failed!ec=2:0x00000002:msg=\\\\.\\PhysicalDrive1\n");
}

TEST_F(BootVolumeTest, EachFailingCallHasItsLine) {
  const struct {
    const char *call;
    unsigned nth;
    const char *error;
  } kFaults[] = {
      {"CreateFileA", 1, "CreateFile():failed!ec=1117:0x0000045d:msg=\\\\.\\PhysicalDrive0\n"},
      {"DeviceIoControl", 1, "DeviceIoControl():failed!ec=1117:0x0000045d:msg=IOCTL_DISK_GET_DRIVE_GEOMETRY\n"},
      {"HeapAlloc", 1, "AllocHeap(4096 bytes) failed for pMBR:ec=1117:0x0000045D\n"},
      {"ReadFile", 1, "ReadFile():failed!ec=1117:0x0000045d:msg=MBR read failure\n"},
      {"HeapAlloc", 2, "AllocHeap(4096 bytes) failed for pBoot:ec=1117:0x0000045D\n"},
      {"SetFilePointer", 1, "SetFilePointer():failed!ec=1117:0x0000045d:msg=Faile to move to boot sector\n"},
      {"ReadFile", 2, "ReadFile():failed!ec=1117:0x0000045d:msg=\\\\.\\PhysicalDrive0\n"},
      {"SetFilePointer", 2, "SetFilePointer():failed!ec=1117:0x0000045d:msg=Faile to move to boot sector\n"},
      {"WriteFile", 1, "WriteFile():failed!ec=1117:0x0000045d:msg=Writing boot sector back failed!\n"},
  };
  const Plan plan{.bytes = 4096, .heads = 16};
  const std::string image = MakeImage(plan);
  for (const auto &fault : kFaults) {
    SCOPED_TRACE(testing::Message() << fault.call << " " << fault.nth);
    OpenDisk(plan, image);
    machine::SetFaultPlan({fault.call, fault.nth, false, 1117});
    EXPECT_FALSE(Repair());
    EXPECT_EQ(machine::FaultsMet(), 1u);
    EXPECT_EQ(platform::GetLastError(), 1117u);
    machine::SetFaultPlan({});
    EXPECT_EQ(LogOf("ERROR:"), std::string("ERROR:VXREng_FixBootVolume:") + fault.error);
    EXPECT_TRUE(ReadFile("disk.img") == image);
  }
}

// Whatever platform call fails, the log's start included: the sector is old or new, and new when the repair says so.
TEST_F(BootVolumeTest, NoFailureTearsTheSector) {
  const Plan plan{.heads = 16};
  const std::string before = MakeImage(plan);
  std::string after = before;
  Put(&after, 8 * 512 + kTracksPerCyl, 16, 2);
  for (const bool onwards : {false, true}) {
    unsigned met = 1;
    for (unsigned n = 1; met > 0 && !HasFailure(); ++n) {
      SCOPED_TRACE(testing::Message() << "fault at platform call " << n << (onwards ? " and on" : ""));
      OpenDisk(plan, before);
      VXRDbg_Cleanup();
      log.clear();
      machine::SetFaultPlan({"*", n, onwards, 0});
      const bool repaired = Repair();
      met = machine::FaultsMet();
      machine::SetFaultPlan({});
      EXPECT_TRUE(ReadFile("disk.img") == (repaired ? after : before));
      EXPECT_EQ(LogOf("ERROR:VXREng_FixBootVolume:").empty(), repaired) << log;
      EXPECT_TRUE(repaired || met > 0);
    }
  }
}

}  // namespace
