// Extension files of the protected example machine: every byte of one, what failures leave out, and what a restore run
// makes of one.

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>

#include "device/scan/file_facts.h"
#include "platform/machine/base/fault.h"
#include "tests/support/extension_format.h"
#include "tests/support/fault_loop.h"
#include "tests/support/protected_machine.h"
#include "tests/support/restore_job.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr char kEverything[] = "C:dcb D:dc E:dc/dc";

// --- Every byte -----------------------------------------------------------------------------------------------------

uint64_t Ticks(int64_t seconds, int64_t nanoseconds) {
  return static_cast<uint64_t>((seconds + 11644473600) * 10000000 + nanoseconds / 100);
}

// A driver as it is recorded; the files' paths below C:.
struct ExpectedDriver {
  std::vector<const char *> facts;  // fields, without what follows from the next ones
  const char *imageFile, *imageVersion, *infFile;
};

const ExpectedDriver kDiskDriver = {
    {"guid=4D36E967-E325-11CE-BFC1-08002BE10318", "type=0", "description=Disk drive", "manufacturer=Generic",
     "provider=Generic", "svc.name=disk", "svc.group=SCSI Class", R"(svc.image=system32\DRIVERS\disk.sys)", "svc.tag=2",
     // 63 of 75 characters
     "img.description=Disk driver, for fixed and removable disks of every kind and of",
     "img.product=Generic storage drivers", "img.company=Generic", "inf.section=disk_install"},
    R"(WINDOWS\system32\DRIVERS\disk.sys)",
    "5.2.3790.1830",
    R"(WINDOWS\inf\disk.inf)"};
const ExpectedDriver kAdapterDriver = {
    {"guid=4D36E97B-E325-11CE-BFC1-08002BE10318", "type=2", "description=Granite Peak SAS 4-port",
     R"(instance=PCI\VEN_1000&DEV_0054&SUBSYS_30101000&REV_02\3&61AAA01&0&50)", "manufacturer=Granite Peak",
     "provider=Granite Peak", "svc.name=granite", "svc.group=SCSI miniport",
     R"(svc.image=system32\drivers\granite.sys)", "svc.tag=33", "img.description=Granite Peak SAS miniport",
     "img.product=Granite Peak SAS", "img.company=Granite Peak", "inf.section=G_Inst"},
    R"(WINDOWS\system32\drivers\granite.sys)",
    "1.28.3.0",
    R"(WINDOWS\inf\granite.inf)"};
const ExpectedDriver kChannelDriver = {
    {"guid=4D36E96A-E325-11CE-BFC1-08002BE10318", "type=1", "description=IDE Channel",
     R"(instance=PCIIDE\IDEChannel\4&2617AEAE&0&0)", "manufacturer=Generic", "provider=Generic", "svc.name=atapi",
     "svc.group=SCSI miniport", R"(svc.image=system32\DRIVERS\atapi.sys)", "svc.tag=25",
     "img.description=IDE channel driver", "img.product=Generic storage drivers", "img.company=Generic",
     "inf.section=atapi_Inst"},
    R"(WINDOWS\system32\DRIVERS\atapi.sys)",
    "5.2.3790.3959",
    R"(WINDOWS\inf\idecore.inf)"};
const ExpectedDriver kExtenderDriver = {
    {"guid=4D36E96A-E325-11CE-BFC1-08002BE10318", "type=1", "description=Lantern 7111 IDE Controller",
     R"(instance=PCI\VEN_8086&DEV_7111&SUBSYS_00000000&REV_01\3&61AAA01&0&39)", "manufacturer=Lantern",
     "provider=Generic", "svc.name=pciide", "svc.group=System Bus Extender", "svc.image=pciide.sys", "svc.tag=3",
     "img.description=PCI IDE bus driver", "img.product=Generic storage drivers", "img.company=Generic",
     "inf.section=lantern_Inst"},
    R"(WINDOWS\system32\drivers\pciide.sys)",
    "5.2.3790.0",
    R"(WINDOWS\inf\idecore.inf)"};

// The file but for its drivers.
constexpr const char *kExpected[] = {
    "hal=3", "kernel=3", R"(system=C:\WINDOWS\system32)", R"(windows=C:\WINDOWS)", "major=5", "minor=2", "build=3790",
    "platform=2", "sp_major=2", "suite=0x112", "product=3", "processors=4", "processor_type=8664", "level=15",
    "revision=0x2505", "arch=9", "page_size=4096", "memory=6442450944", "volumes=3", "boot_volume=0", "system_volume=0",
    "computer=FILESERVER-12", "netbios=FILESERVER-12", "dns_hostname=fileserver-12", "dns_domain=corp.example",
    "physical_netbios=FILESERVER-12", "physical_dns_hostname=fileserver-12", "physical_dns_domain=corp.example",
    // C:
    R"(vol0.mount=C:\)", R"(vol0.guid_path=\\?\Volume{c0a1b2c3-1f00-11de-8a55-806e6f6e6963})",
    R"(vol0.device=\Device\HarddiskVolume1)", "vol0.unique_id=4ED17A0C007E000000000000", "vol0.label=SYSTEM",
    "vol0.backup_name=System drive of FILESERVER-12", "vol0.serial=0x5C0A1B2C", "vol0.type=0x403", "vol0.disks=1",
    "vol0.disk0.number=0", "vol0.disk0.start=32256", "vol0.disk0.length=80015491584",
    R"(vol0.disk0.disk.instance=IDE\DiskLANTERN_L80______________________________3.06____\5&1C2D3E4F&0&0.0.0)",
    // D:
    R"(vol1.mount=D:\)", R"(vol1.guid_path=\\?\Volume{d0a1b2c3-1f00-11de-8a55-806e6f6e6963})",
    R"(vol1.device=\Device\HarddiskVolume2)", "vol1.unique_id=4ED17A1C007E000000000000", "vol1.label=ORDERS",
    "vol1.backup_name=Orders", "vol1.serial=0x1D0A1B2C", "vol1.type=0x400", "vol1.disks=1", "vol1.disk0.number=1",
    "vol1.disk0.start=32256", "vol1.disk0.length=73400320000",
    R"(vol1.disk0.disk.instance=SCSI\Disk&Ven_GRANITE&Prod_PEAK_146&Rev_2.1\4&1F2E3D4C&0&000000)",
    // E:
    R"(vol2.mount=E:\)", R"(vol2.guid_path=\\?\Volume{e0a1b2c3-1f00-11de-8a55-806e6f6e6963})",
    R"(vol2.device=\Device\HarddiskDmVolumes\Server12Dg0\Volume1)",
    "vol2.unique_id=444D494F3A49443A112233445566778899AABBCCDDEEFF00", "vol2.label=ARCHIVE",
    "vol2.backup_name=No BM File Name", "vol2.serial=0x2E0A1B2C", "vol2.type=0x400", "vol2.disks=2",
    "vol2.disk0.number=1", "vol2.disk0.start=73400352256", "vol2.disk0.length=36700160000", "vol2.disk1.number=2",
    "vol2.disk1.start=32256", "vol2.disk1.length=110100480000",
    R"(vol2.disk0.disk.instance=SCSI\Disk&Ven_GRANITE&Prod_PEAK_146&Rev_2.1\4&1F2E3D4C&0&000000)",
    R"(vol2.disk1.disk.instance=SCSI\Disk&Ven_GRANITE&Prod_PEAK_146&Rev_2.1\4&1F2E3D4C&0&000100)"};

class GoldenTest : public ProtectedMachineTest {
 protected:
  void Put(const std::string &field) { EXPECT_TRUE(PutExtensionField(&expected, field)) << field; }
  // A file's name and its facts on the host, where the drivers folder has one spelling.
  void PutFile(const std::string &key, std::string path) {
    Put(key + "name=C:\\" + path);
    std::replace(path.begin(), path.end(), '\\', '/');
    if (const std::size_t at = path.find("DRIVERS"); at != std::string::npos) path.replace(at, 7, "drivers");
    struct statx facts = {};
    ASSERT_EQ(statx(AT_FDCWD, Host("protected/c/" + path).c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &facts), 0);
    const auto &born = facts.stx_mask & STATX_BTIME ? facts.stx_btime : facts.stx_mtime;
    EXPECT_GE(facts.stx_atime.tv_sec, 2500000000) << "the time of last access moved";
    Put(key + "created=" + std::to_string(Ticks(born.tv_sec, born.tv_nsec)));
    Put(key + "accessed=" + std::to_string(Ticks(facts.stx_atime.tv_sec, 0)));
    Put(key + "written=" + std::to_string(Ticks(facts.stx_mtime.tv_sec, 123456700)));
    Put(key + "size=" + std::to_string(facts.stx_size));
  }
  void PutDriver(const std::string &key, const ExpectedDriver &driver) {
    for (const char *fact : driver.facts) Put(key + fact);
    Put(key + "svc.type=1");
    Put(key + "img.version=" + driver.imageVersion);
    Put(key + "img.product_version=" + driver.imageVersion);
    PutFile(key + "img.", driver.imageFile);
    PutFile(key + "inf.", driver.infFile);
  }
  std::string expected = BlankExtension();
};

TEST_F(GoldenTest, EveryByteOfTheFile) {
  for (const char *field : kExpected) Put(field);
  for (const char *volume : {"vol0.", "vol1.", "vol2."}) {
    for (const char *field : {"file_system=NTFS", "longest_name=255", "flags=0x700FF", "most_disks=2"}) {
      Put(std::string(volume) + field);
    }
  }
  PutDriver("vol0.disk0.disk.", kDiskDriver);
  PutDriver("vol0.disk0.ctrl.", kChannelDriver);
  PutDriver("vol0.disk0.bus.", kExtenderDriver);
  for (const char *disk : {"vol1.disk0.", "vol2.disk0.", "vol2.disk1."}) {
    PutDriver(std::string(disk) + "disk.", kDiskDriver);
    PutDriver(std::string(disk) + "ctrl.", kAdapterDriver);
  }

  OpenProtected();
  WriteFile("protected/machine.bme", std::string(100000, 'x'));  // an older file, longer
  ASSERT_EQ(Record(), 0u);
  const std::string image = Image();
  ASSERT_EQ(image.size(), 80332u);
  for (std::size_t at = 0; at < image.size(); ++at) {
    if (image[at] == expected[at]) continue;
    FAIL() << "differs at " << at << ": \"" << TextAt(image, at) << "\", not \"" << TextAt(expected, at) << '"';
  }
  EXPECT_THAT(log, HasSubstr("CHECK:VXRExt_CreateBMExtFile:succesffully writen 8 bytes of VXR_EXTHEADER to " +
                             Host("protected/machine.bme").string() + " \n"));
  EXPECT_THAT(log, HasSubstr("FLUSH:VXRExt_BuildVXRVolumesHBM:drv=R:\\:not a disk\n"));
  EXPECT_THAT(log, HasSubstr("ERROR:VXRExt_BuildVXRVolDisksHBM:IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS():failed!ec=234:"));
}

// --- Kinds of machine -----------------------------------------------------------------------------------------------

void Replace(std::string *text, const std::string &from, const std::string &to) {
  const std::size_t at = text->find(from);
  ASSERT_NE(at, std::string::npos) << from;
  text->replace(at, from.size(), to);
}

std::string FixedDrive(const std::string &letter, const std::string &label = "MORE") {
  return "\n[[drive]]\nroot = '" + letter + ":\\'\ntype = 'fixed'\npath = 'd'\nlabel = '" + label +
         "'\nfile_system = 'NTFS'\nguid_path = '\\\\?\\Volume{" + letter +
         "}\\'\ndevice_name = '\\Device\\V'\nunique_id = '01'\nextents = [ { disk = 1, start = 1, length = 1 } ]\n";
}

class CreateTest : public ProtectedMachineTest {};

TEST_F(CreateTest, SystemOnAnotherMediumIsRecordedAsCold) {
  OpenProtected([](std::string *toml) { Replace(toml, "type = 'fixed'", "type = 'cdrom'"); });
  ASSERT_EQ(Record(), 0u);
  const std::string image = Image();
  EXPECT_EQ(image.substr(0, 4), "CbMe");
  EXPECT_EQ(NumberAt(image, 20), 1u);
  EXPECT_EQ(Recorded(image), "D:dc E:dc/dc");
  EXPECT_EQ(NumberAt(image, 616), 0xFFFFFFFFu);
  EXPECT_EQ(NumberAt(image, 620), 0xFFFFFFFFu);
  EXPECT_EQ(TextAt(image, 80176), "FILESERVER-12");
  for (const char *line : {"FIXME:VXRExt_BuildVXRSysInfoCBM:Cold BM:TO-BE-IMPLEMENTED:Fake it as HBM!\n",
                           "CHECK:VXRExt_BuildVXRVolumes:Cold Bare Metal:call VXRExt_BuildVXRVolumesCBM\n",
                           "CHECK:VXRExt_BuildVXRVolumesCBM:CBM:TO-BE-IMPLEMENTED:fake it with HBM...\n",
                           "FIXME:VXRExt_BuildVXRNetInfoCBM:Cold BM:TO-BE-IMPLEMENTED:Fake it by HBM\n"}) {
    EXPECT_THAT(log, HasSubstr(line));
  }
}

TEST_F(CreateTest, FourVolumesAtMostInTheOrderOfTheirLetters) {
  constexpr char kReached[] = "ERROR:VXRExt_BuildVXRVolumesHBM:max 4 vxr vols reached!\n";
  WriteFile("protected/d/boot.ini", "of another system");
  struct {
    const char *what;
    std::string more, letters;  // of volumes 0 to 3
    uint64_t bootIndex;
    bool full, sawLast;
  } const rows[] = {
      {"one that fails makes room for the next", FixedDrive("G"), "CDEG", 3, true, true},
      {"the fifth is not looked at", FixedDrive("G") + FixedDrive("H"), "CDEG", 3, true, false},
      {"a label that does not fit", FixedDrive("G", "SIXTEEN LETTERS!"), std::string("CDE\0", 4), 1, false, true},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    OpenProtected([&](std::string *toml) { *toml += row.more; });
    log.clear();
    ASSERT_EQ(Record(), 0u);
    const std::string image = Image();
    std::string letters;
    for (const std::size_t at : {624, 20512, 40400, 60288}) letters += image[at];
    EXPECT_EQ(letters, row.letters);
    EXPECT_EQ(NumberAt(image, 616), row.bootIndex) << "the last one counts";
    EXPECT_EQ(NumberAt(image, 620), 0u);
    EXPECT_EQ(log.find(kReached) != std::string::npos, row.full);
    EXPECT_THAT(log, Not(HasSubstr("checking mnpnt = H:")));
    if (!row.full) {
      EXPECT_EQ(image.substr(60288, 19888), std::string(19888, '\0')) << "what failed left something behind";
    }
    Close();
  }
}

TEST_F(CreateTest, IncludesFileListsTheLastFileAndKeepsTheRest) {
  OpenProtected();
  ASSERT_EQ(Record(), 0u);
  ASSERT_EQ(VXREng_CreateBMExtFile("D:\\other.bme", "C:\\backup\\includes.ini", nullptr), 0u);
  EXPECT_EQ(ReadFile("protected/c/backup/includes.ini"),
            "; What else goes with the backup\r\n[Backup]\r\nName=nightly\r\n"
            "[BMExtension]\r\nItemCount=1\r\nItem0=D:\\other.bme\r\n");
  EXPECT_EQ(ReadFile("protected/d/other.bme").size(), 80332u);
  EXPECT_EQ(VXRExt_CreateBMExtFile(nullptr, nullptr, nullptr), 9u);
  EXPECT_THAT(log, HasSubstr("ERROR:VXRExt_CreateBMExtFile:szFile is NULL\n"));
}

// --- Failures -------------------------------------------------------------------------------------------------------

struct Failure {
  const char *call;
  unsigned nth;
  DWORD error;
  const char *line;      // in the log
  const char *recorded;  // null: no file; else what the image holds
  uint32_t result = 0;
  std::size_t size = 80332;
};

constexpr Failure kFailures[] = {
    // The system and its names.
    {"GetVersionExA", 1, 0, "ERROR:VXRExt_BuildVXRSysInfoHBM:GetVersionEx():failed!", kEverything},
    {"GlobalMemoryStatusEx", 1, 0, "ERROR:VXRExt_BuildVXRSysInfoHBM:GlobalMemoryStatusEx():failed!", kEverything},
    {"GetComputerNameA", 1, 0, "HOT BM:ADD-MORE-HERE!", kEverything},
    {"GetDriveTypeA", 1, 0, "ERROR:VXRExt_BuildVXRSysInfo:VXRDev_GetBootMediaType():failed!", nullptr, 9},
    {"GlobalMemoryStatusEx", 2, 0, "ERROR:VXRExt_CreateBMExtension:VXRDev_GetArchInfo():failed!", nullptr, 9},
    {"GetLogicalDriveStringsA", 1, 8, "GetLogicalDriveStrings():failed!ec=8:0x00000008:msg=faield to get size!\n",
     nullptr, 9},
    {"GetLogicalDriveStringsA", 2, 8, "GetLogicalDriveStrings():failed!ec=8:0x00000008:msg=No drives found!\n", nullptr,
     9},
    // A volume.
    {"GetVolumeInformationA", 1, 21, "GetVolumeInformation():failed!ec=21:0x00000015:msg=C:\\\n", "D:dc E:dc/dc"},
    {"GetVolumeNameForVolumeMountPointA", 2, 2, "GetVolumeNameForVolumeMountPoint():failed!ec=2:0x00000002:msg=D:\\\n",
     "C:dcb E:dc/dc"},
    {"CreateFileA", 1, 5,
     "CreateFile():failed!ec=5:0x00000005:msg=\\\\?\\Volume{c0a1b2c3-1f00-11de-8a55-806e6f6e6963}\n", "D:dc E:dc/dc"},
    {"DeviceIoControl", 1, 1, "IOCTL_MOUNTDEV_QUERY_UNIQUE_ID():failed!ec=1:0x00000001:msg=None\n", "D:dc E:dc/dc"},
    {"DeviceIoControl", 2, 1, "IOCTL_MOUNTDEV_QUERY_DEVICE_NAME():failed!ec=1:0x00000001:msg=None\n", "D:dc E:dc/dc"},
    {"DeviceIoControl", 3, 122, "VolDisksHBM:input buffer is too small!\tneed 0 extents!\n", "D:dc E:dc/dc"},
    // A disk of a volume.
    {"DeviceIoControl", 4, 1, "ERROR:VXRExt_BuildVXRVolDisk:VXRDev_GetDiskDevicePath:failed for disk 0!\n",
     "C: D:dc E:dc/dc"},
    {"SetupDiBuildDriverInfoList", 1, 31, "Detail:SetupDiBuildDriverInfoList():failed!ec=31:0x0000001f:msg=None\n",
     "C: D:dc E:dc/dc"},
    {"SetupDiEnumDriverInfoA", 2, 259, "Detail:SetupDiEnumDriverInfo():failed!ec=259:0x00000103:msg=None\n",
     "C:d D:dc E:dc/dc"},
    {"SetupDiGetDriverInfoDetailA", 1, 31,
     "SetupDiGetDriverInfoDetail():failed!ec=31:0x0000001f:msg=failed to get size!", "C: D:dc E:dc/dc"},
    {"SetupDiGetDriverInfoDetailA", 2, 31, "SetupDiGetDriverInfoDetail():failed!ec=31:0x0000001f:msg=None\n",
     "C: D:dc E:dc/dc"},
    {"CM_Get_Parent", 2, 0, "ERROR:VXRExt_BuildVXRVolDisk:VXRDev_GetVXRDevDriver():failed!", "C:dc D:dc E:dc/dc"},
    // Files.
    {"GetFileAttributesExA", 1, 5,
     "FileInfo:GetFileAttributesEx():failed!ec=5:0x00000005:msg=C:\\WINDOWS\\inf\\disk.inf\n", kEverything},
    {"GetFileVersionInfoSizeA", 2, 5,
     "GetFileVersionInfoSize():failed!ec=5:0x00000005:msg=C:\\WINDOWS\\system32\\DRIVERS\\disk.sys\n", kEverything},
    {"GetFileVersionInfoA", 1, 8,
     "GetFileVersionInfo():failed!ec=8:0x00000008:msg=C:\\WINDOWS\\system32\\DRIVERS\\disk.sys\n", kEverything},
    // Writing.
    {"WriteFile", 1, 112, "WriteFile():failed!ec=112:0x00000070:msg=Failed to write bm ext. header\n", "", 9, 0},
    {"FlushFileBuffers", 1, 112, "FlushFileBuffers():failed!ec=112:", "", 9, 8},
    {"WriteFile", 2, 112, "ERROR:VXRExt_CreateBMExtFile:WriteFile():failed!ec=112:", "", 9, 8},
    {"FlushFileBuffers", 2, 112, "FlushFileBuffers():failed!ec=112:", kEverything, 9},
    {"WritePrivateProfileStringA", 1, 5,
     "WritePrivateProfileString():failed!ec=5:0x00000005:msg=C:\\backup\\includes.ini\n", kEverything, 9},
    {"WritePrivateProfileStringA", 2, 5,
     "VXRExt_UpdateBMIncludesFile():failed!ec=5:0x00000005:msg=C:\\backup\\includes.ini\n", kEverything, 9},
};

TEST_F(CreateTest, FailuresAreLoggedAndCostNoMoreThanTheyMust) {
  for (const Failure &failure : kFailures) {
    SCOPED_TRACE(testing::Message() << failure.call << ' ' << failure.nth);
    OpenProtected();
    log.clear();
    std::filesystem::remove(Host("protected/machine.bme"));
    machine::SetFaultPlan({failure.call, failure.nth, false, failure.error});
    EXPECT_EQ(Record(), failure.result);
    EXPECT_EQ(machine::FaultsMet(), 1u);
    machine::SetFaultPlan({});
    EXPECT_THAT(log, HasSubstr(failure.line));
    EXPECT_EQ(std::filesystem::exists(Host("protected/machine.bme")), failure.recorded != nullptr);
    if (failure.recorded != nullptr) {
      EXPECT_EQ(Image().size(), failure.size);
      if (failure.size == 80332) {
        EXPECT_EQ(Recorded(Image()), failure.recorded);
      }
    }
    Close();
  }
}

TEST_F(CreateTest, PathsThatCannotBeWrittenAreNamed) {
  OpenProtected();
  EXPECT_EQ(VXREng_CreateBMExtFile("C:\\none\\x.bme", "C:\\backup\\includes.ini", nullptr), 9u);
  EXPECT_THAT(log, HasSubstr("ERROR:VXRExt_CreateBMExtFile:CreateFile():failed!ec=3:0x00000003:msg=C:\\none\\x.bme\n"));
  EXPECT_THAT(ReadFile("protected/c/backup/includes.ini"), Not(HasSubstr("BMExtension")));
}

TEST_F(CreateTest, NoMemoryForAVersionBlockIsNamed) {
  OpenProtected();
  VXRDbg_Initialize(5, 0, nullptr);
  VXR_FILEINFO facts = {};
  machine::SetFaultPlan({"HeapAlloc", 2, false, 0});  // the first is for the file's full name
  EXPECT_FALSE(VXRDev_GetVXRFileInfo("C:\\WINDOWS\\system32\\DRIVERS\\disk.sys", nullptr, nullptr, &facts));
  machine::SetFaultPlan({});
  EXPECT_THAT(log, testing::ContainsRegex("GetFileVersionInfoSize.*:dwSize=[0-9]+\nERROR:VXRDev_GetVXRFileInfo:"
                                          "AllocHeap.[0-9]+ bytes. failed for pVerInfo:ec=8:0x00000008\n"));
}

// Leaves C: with its IDE disk, F: with too many, and what is no disk: a pass for each call costs the square of their
// number.
void DropScsiDisks(std::string *toml) {
  for (const char *mark : {"root = 'D:", "root = 'E:", "'\\\\?\\scsi#disk", "'SCSI\\Disk", "'PCI\\VEN_1000"}) {
    for (std::size_t at; (at = toml->find(mark)) != std::string::npos;) {
      const std::size_t begin = toml->rfind("\n[", at);
      toml->erase(begin, toml->find("\n[", at) - begin);
    }
  }
}

class CreateFaultLoopTest : public ProtectedMachineTest, public testing::WithParamInterface<FaultLoop> {};

TEST_P(CreateFaultLoopTest, NoFailureCrashesLeaksOrSpoilsTheIncludesFile) {
  const std::string includes = ReadFile("protected/c/backup/includes.ini");
  const std::string updated = includes + "[BMExtension]\r\nItemCount=1\r\n";
  uint32_t result = 0;
  const auto prepare = [&] {
    WriteFile("protected/c/backup/includes.ini", includes);
    std::filesystem::remove(Host("protected/machine.bme"));
    OpenProtected(DropScsiDisks);
  };
  const auto check = [&](bool faulted) {
    Close();
    const std::string now = ReadFile("protected/c/backup/includes.ini");
    const std::string listed = updated + "Item0=" + Host("protected/machine.bme").string() + "\r\n";
    if (result == 0) {
      EXPECT_EQ(now, listed);
      EXPECT_EQ(std::filesystem::file_size(Host("protected/machine.bme")), 80332u);
    } else {
      EXPECT_EQ(result, 9u);
      // A new file whose directory could not be flushed is in place, and the write that put it there has failed.
      const bool unsure = log.find("WritePrivateProfileString():failed!") != std::string::npos;
      EXPECT_TRUE(now == includes || now == updated || (unsure && now == listed)) << now;
    }
    if (!faulted) {
      EXPECT_EQ(Recorded(Image()), "C:dcb");
    }
  };
  const unsigned calls = RunFaultLoop(GetParam(), &log, {prepare, [&] { result = Record(); }, check});
  RecordProperty("calls", static_cast<int>(calls));
}

INSTANTIATE_TEST_SUITE_P(Create, CreateFaultLoopTest, testing::ValuesIn(AllFaultLoops()), [](const auto &test) {
  return std::string(test.param.onwards ? "Onwards" : "Once") + std::to_string(test.param.share);
});

// --- The way back ---------------------------------------------------------------------------------------------------

class RoundTest : public RestoreJobTest {};

TEST_F(RoundTest, RestoreRunTakesTheRecordedSystemForItsOwn) {
  CopyExample("protected-5.2-x64", "protected", "c");
  OpenFile("protected/machine.toml");
  ASSERT_EQ(VXREng_CreateBMExtFile(Host("ram/machine.bme").c_str(), nullptr, nullptr), 0u);
  Close();
  log.clear();
  OpenJob([](std::string *toml) {
    Replace(toml, "HAL = 9\nOSVerMaj = 6\nOSVerMin = 1\n", "BMEFile = 'X:\\machine.bme'\n");
  });
  EXPECT_EQ(Run(true), 0u);
  EXPECT_THAT(statusLines, testing::Contains(HasSubstr("Found Bare Metal extension with Magic = 0x654d6248")));
  EXPECT_THAT(log, HasSubstr("ntamd64.5.2.0x3.0x112"));
  EXPECT_THAT(log, HasSubstr("System Path==>C:\\WINDOWS\\system32<==   WindowsPath==>C:\\WINDOWS<=="));
  EXPECT_EQ(ReadFile("restored/Windows/system32/drivers/FAST.SYS"), ReadFile("ram/drivers/fast.sys"));
}

}  // namespace
