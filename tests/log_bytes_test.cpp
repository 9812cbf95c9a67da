// The log of one series of calls, byte for byte as tests/data/log_bytes.log has it but for addresses, times and paths
// of the machine: every build writes the same. VXR_LOG_BYTES names a file that gets what was written, to look at or
// keep.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <sstream>

#include "device/class_repair.h"
#include "device/records.h"
#include "device/scan/disk_scan.h"
#include "device/scan/file_facts.h"
#include "device/scan/installed_driver.h"
#include "engine/base/files.h"
#include "engine/base/processes.h"
#include "engine/base/status.h"
#include "inf/field_reader.h"
#include "inf/search/driver_search.h"
#include "log/dump.h"
#include "log/log.h"
#include "log/record_dump.h"
#include "registry/mount/hive.h"
#include "registry/values.h"
#include "tests/support/test_machine.h"

namespace {

using LogBytes = MachineTest;

// A record whose fields all differ and whose texts have no end: a field shown in another's place, or beyond its own
// end, shows.
template <class Record>
std::unique_ptr<Record> Patterned() {
  auto record = std::make_unique<Record>();
  auto *bytes = reinterpret_cast<unsigned char *>(record.get());
  for (std::size_t i = 0; i < sizeof(Record); ++i) bytes[i] = static_cast<unsigned char>('A' + i % 23);
  return record;
}

template <class Record>
using Dumper = void (*)(const Record *, const char *);

// Dumps a record of zeros, one of the pattern, in which `name` may set what a dump has names for, and none.
template <class Record>
void Dump(Dumper<Record> dump, void (*name)(Record *) = nullptr) {
  dump(std::make_unique<Record>().get(), "test");
  const auto record = Patterned<Record>();
  if (name != nullptr) name(record.get());
  dump(record.get(), "test");
  dump(nullptr, "test");
}

void WriteLines() {
  VXRDbg_Log(0, "numbers %d %u %x %08X %I64u %I64X %ld\n", -7, 4000000000u, 0xBEEFu, 0xBEEFu, DWORD64{0xFEDCBA987654},
             DWORD64{0xFEDCBA987654}, -7);
  VXRDbg_Log(3, "texts [%s] [%8s] [%-8s] [%.2s] [%c] [%s] 100%%\n", "text", "text", "text", "text", 'c',
             static_cast<const char *>(nullptr));
  VXRDbg_Log(3, "wide [%S] [%C]\n", u"text", u'c');
  VXRDbg_Log(5, "address %p, ANSI \xE9\x80\n", static_cast<void *>(nullptr));
  VXRDbg_Log(-1, "never\n");
  VXRDbg_Log(6, "too high\n");
  const std::string longLine(3000, 'x');
  VXRDbg_Log(0, "%s\n", longLine.c_str());
  platform::SetLastError(ERROR_ACCESS_DENIED);
  const Caller test{"test"};
  test.Failed("Call", "message");
  test.Failed("Call", nullptr);
  test.Null("argument");
  VXRDbg_SetLevel(2);
  VXRDbg_Log(3, "not at level 2\n");
  VXRDbg_SetLevel(5);
}

void DumpValues() {
  constexpr GUID kGuid = {0x4D36E967, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
  VXRDbg_DumpGuid(&kGuid, "test");
  constexpr char kBytes[] = "one\0two\0\0\x01\x02\x03\xFF and more than thirty-two bytes of it";
  constexpr DWORD kTypes[] = {REG_NONE, REG_SZ, REG_EXPAND_SZ, REG_BINARY, REG_DWORD, REG_MULTI_SZ, 11, 77};
  for (const DWORD type : kTypes) {
    for (const DWORD size : {DWORD{2}, DWORD{8}, DWORD{9}, DWORD{sizeof kBytes}}) {
      VXRDbg_DumpRegValue(type, size, 1, kBytes, "test");
    }
  }
  for (DWORD property = 0; property < 40; ++property) VXRDbg_Log(0, "%s|\n", VXRDbg_GetPropertyName(property));
  VXRDbg_DumpMultiString(kBytes, "test", 1);
  VXRDbg_DumpMultiBinary(sizeof kBytes, kBytes, "test");
  const SYSTEMTIME time = {2026, 11, 3, 25, 1, 2, 3, 4};
  VXRDbg_DumpSystemTime(&time, "label");
  VXRDbg_DumpSystemTime(&time, nullptr);
  for (const DWORD high : {DWORD{0}, DWORD{0x01DC5E00}, DWORD{0xFFFFFFFF}}) {
    const FILETIME fileTime = {0x12345678, high};
    VXRDbg_DumpFileTime(&fileTime, "test");
  }
}

void DumpRecords() {
  Dump(VXRDbg_DumpStorageDeviceNumber);
  Dump(VXRDbg_DumpDiskExtent);
  Dump<OSVERSIONINFOEXA>(VXRDbg_DumpOsVersionInfo, [](OSVERSIONINFOEXA *os) {
    os->dwPlatformId = 1;
    os->wProductType = 2;
  });
  Dump(VXRDbg_DumpMemoryStatus);
  Dump(VXRDbg_DumpSystemInfo);
  Dump(VXRDbg_DumpDrvInfo);
  Dump(VXRDbg_DumpDevInstallParams);
  Dump(VXRDbg_DumpDevInfo);
  Dump(VXRDbg_DumpInfContext);
  Dump(VXRDbg_DumpExtHeader);
  Dump(VXRDbg_DumpSysInfo);
  Dump<VXR_SYSOSINFO>(VXRDbg_DumpSysOsInfo, [](VXR_SYSOSINFO *os) {
    os->PlatformId = VxrPut32(2);
    os->ProductType = VxrPut32(1);
  });
  Dump(VXRDbg_DumpNetInfo);
  Dump(VXRDbg_DumpVolDisk);  // with drivers, services and files
  Dump<VXR_VOLUME>(VXRDbg_DumpVolume, [](VXR_VOLUME *volume) {
    // What a device's name would be of the pattern depends on the code page.
    std::memcpy(volume->Device, u"\x14\\Device\\X\0", 24);
    volume->UniqIdLen = VxrPut32(5);
    volume->VolDisks.DiskCount = VxrPut32(0);
  });
  Dump<VXR_DRIVER>(VXRDbg_DumpDriver, [](VXR_DRIVER *driver) {
    static SP_DRVINFO_DATA_A info;
    driver->pDrvInfoData = &info;
    driver->pDrvInfoDetailData = nullptr;
  });
  Dump<VXR_DEVICE>(VXRDbg_DumpDevice, [](VXR_DEVICE *device) {
    static char instance[] = "instance";
    static VXR_DEVICE parent;
    device->szInstanceID = instance;
    device->pVXRDevParent = &parent;
  });
  Dump(VXRDbg_DumpFileMap);
  for (DWORD type = 0; type < 7; ++type) {
    const VXR_ARCHITECT architecture = {VxrPut32(type), VxrPut32(6 - type)};
    VXRDbg_DumpArchitect(&architecture, "test");
  }
  const struct {
    WORD length;
    BYTE id[3];
  } id = {3, {0x01, 0x02, 0xAB}};
  VXRDbg_DumpUniqueId(reinterpret_cast<const MOUNTDEV_UNIQUE_ID *>(&id), "test");
}

void UseFiles() {
  for (const char *path : {"X:\\file.txt", "X:\\none", "X:\\none\\file", "X:\\*.txt", "X:\\dir\\", ""}) {
    VXREng_FileExists(path);
  }
  VXREng_FileExists(nullptr);
  VXREng_FileExistsInDir("X:\\dir", "file");
  VXREng_FileExistsInDir("X:\\dir", std::string(300, 'n').c_str());
  for (const char *path : {"X:\\file.txt", "X:\\none", "X:\\empty", "X:\\dir"}) {
    const HeapPtr<VXR_FILEMAP> map = VXREng_MapFile(path);
    VXREng_UnmapFile(map.get());
  }
  for (const char *target : {"X:\\copy", "X:\\none\\copy", "X:\\hidden"}) VXREng_CopyFile("X:\\file.txt", target, TRUE);
  DWORD exitCode = 0;
  for (const char *command : {"cmd.exe /c copy /y X:\\file.txt X:\\second", "cmd.exe /c copy /y X:\\none X:\\second",
                              "no-such-program.exe"}) {
    VXREng_ExecCommand(command, &exitCode);
  }
}

void UseRegistry() {
  DWORD type = 0, size = 0;
  for (const char *value : {"HCDIR", "None"}) {
    VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, "SOFTWARE\\Varnelt\\Halcyra", value, &type, &size);
  }
  VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, "SOFTWARE\\Varnelt\\None", "Value", &type, &size);
  for (const char *key : {"SOFTWARE\\Varnelt\\New", "\\SOFTWARE\\Varnelt"}) {
    VXRReg_SetRegistryValue(HKEY_LOCAL_MACHINE, key, "Value", "text", REG_SZ, 5);
  }
  VXRReg_SetRegValueToHive(99, "key", "Value", "text", REG_SZ, 5);  // no key type
}

void ReadInf() {
  OpenInfFile("X:\\none.inf");
  const InfFile inf = OpenInfFile("X:\\fields.inf");
  INFCONTEXT context = {};
  DWORD size = 0;
  for (const char *section : {"Section", "None"}) {
    VXRDev_FindInfSection(inf.get(), section, "NTamd64", nullptr, nullptr, &context);
  }
  platform::SetupFindFirstLineA(inf.get(), "Section", "key", &context);
  for (const DWORD type : {VXRINF_TYPE_SZ, VXRINF_TYPE_MSZ, VXRINF_TYPE_INT, VXRINF_TYPE_BIN}) {
    for (const DWORD field : {0, 1, 2}) VXRDev_GetInfLineField(inf.get(), field, &context, &size, type);
  }
  VXRDev_GetInfLineField(inf.get(), 9, &context, &size, VXRINF_TYPE_SZ);
  VXRDev_GetInfLineField(inf.get(), 1, nullptr, &size, VXRINF_TYPE_SZ);
}

void UseExports() {
  VXREng_FixBootVolume("\\\\.\\PhysicalDrive77");
  VXREng_FixBootVolume(nullptr);
  char window = 0;
  for (void *shown : {static_cast<void *>(&window), static_cast<void *>(nullptr)}) {
    VXREng_SetStatusWnd(shown, 0);  // of no kind that the window would be called for
    VXREng_StatusMsg(0, "status %d\n", 1);
    VXREng_StatusMsg(58, "failed %s\n", "text");
  }
}

// Keeps a log of its own, which it has ended when it returns.
void Record() { VXREng_CreateBMExtFile(nullptr, nullptr, nullptr); }

void AskQueries() {
  const auto image = Patterned<VXR_EXTIMAGE>();
  VXR_VOLUMES &volumes = image->Extension.Volumes;
  image->Header = {VxrPut32(VXR_EXT_MAGIC_HOT), VxrPut32(VXR_EXT_VERSION)};
  volumes.VolCount = VxrPut32(1);
  volumes.Vols[0].VolDisks.DiskCount = VxrPut32(1);
  const auto wrongVersion = std::make_unique<VXR_EXTIMAGE>(*image), wrongMagic = std::make_unique<VXR_EXTIMAGE>();
  wrongVersion->Header.Version = VxrPut32(2);
  const int32_t first = 0, second = 1;
  const struct {
    uint32_t queryClass, query, size;
    const int32_t *in;
    uint32_t inValue;
    const void *head;
  } rows[] = {
      {VXREQ_Volume, VXREQV_VolCount, 4, nullptr, 0, nullptr},
      {VXREQ_Volume, VXREQV_VolCount, 4, nullptr, 0, wrongMagic.get()},
      {VXREQ_Volume, VXREQV_VolCount, 4, nullptr, 0, wrongVersion.get()},
      {VXREQ_Volume, VXREQV_VolCount, 4, nullptr, 0, image.get()},
      {VXREQ_Volume, VXREQV_VolIndex, 4, nullptr, 'q', image.get()},
      {VXREQ_Volume, VXREQV_Label, 512, nullptr, 0, image.get()},
      {VXREQ_Volume, VXREQV_Label, 3, nullptr, 0, image.get()},
      {VXREQ_Volume, VXREQV_Label, 512, nullptr, 1, image.get()},
      {VXREQ_Volume, VXREQV_CtrlDriver | VXREQV_DiskNumber, 4, &first, 0, image.get()},
      {VXREQ_Volume, VXREQV_CtrlDriver | VXREQV_DiskNumber, 4, &second, 0, image.get()},
      {VXREQ_Volume, VXREQV_CtrlDriver | VXREQV_DiskNumber, 4, nullptr, 0, image.get()},
      {VXREQ_Volume, VXREQV_DiskNumber, 4, &first, 0, image.get()},
      {VXREQ_Volume, VXREQV_DiskDriver | 99, 4, &first, 0, image.get()},
      {VXREQ_System, VXREQS_WindowsPath, 512, nullptr, 0, image.get()},
      {VXREQ_Network, VXREQN_Name, 512, nullptr, 0, image.get()},
      {VXREQ_Architect, VXREQA_KernelType, 4, nullptr, 0, image.get()},
      {VXREQ_Architect, 9, 4, nullptr, 0, image.get()},
      {5, 0, 4, nullptr, 0, image.get()},
  };
  uint8_t answer[512] = {};
  for (const auto &row : rows) {
    uint32_t size = row.size;
    VXRExt_QueryData(row.queryClass, row.query, answer, &size, row.in, row.inValue, row.head);
  }
}

// What is missing is named, whoever is called.
void GiveNothing() {
  VXR_DEVICE device = {};
  VXR_FILEINFO facts = {};
  VXR_DEVDRV installed = {};
  SP_DEVINFO_DATA data = {};
  UINT length = 1;
  const WORD codePage[2] = {};
  VXRDev_ScanDiskDevices(nullptr);
  VXRDev_FixDevRegistry(VXR_DEVTYPE_HDC, nullptr);
  VXRDev_GetVXRDevDriver(0, "x", nullptr);
  VXRDev_GetVXRDevDriver(0, nullptr, &installed);
  VXRDev_GetVXRDevDriverDetail(INVALID_HANDLE_VALUE, &data, &installed);
  VXRDev_GetVXRDevDriverDetail(nullptr, nullptr, &installed);
  VXRDev_GetVXRDevDriverDetail(nullptr, &data, nullptr);
  VXRDev_GetVXRFileInfo(nullptr, nullptr, nullptr, &facts);
  VXRDev_GetVXRFileInfo("x", nullptr, nullptr, nullptr);
  VXRDev_GetFileVersionField(nullptr, "x", &length, codePage);
  VXRDev_GetFileVersionField("x", nullptr, &length, codePage);
  VXRDev_GetFileVersionField("x", "x", &length, nullptr);
  VXRDev_GetDriverInfDirs(nullptr, &device);
  VXRDev_GetDriverInfDirs("X:\\drivers\0", nullptr);
  VXRDev_LocateDriverInf(INVALID_HANDLE_VALUE, "X:\\drivers", "a.inf", "id", nullptr);
  VXRDev_ValidateInfFile(nullptr, &device.guDevice);
  VXRDev_ValidateInfFile("X:\\none.inf", nullptr);
  VXRReg_LoadHiveFile(nullptr, "X:\\hive");
  VXRReg_LoadHiveFile("X:\\Windows", nullptr);
  VXRReg_LoadHive(0, nullptr);
  VXRDbg_DumpRegValue(REG_SZ, 0, 0, "", "test");
  VXRDev_FreeDriver(nullptr);
  VXRDev_FreeDevice(nullptr);
  VXRDev_FreeDevices(nullptr);
}

// What differs between machines and runs, replaced by its name.
std::string Normalised(std::string text) {
  const struct {
    const char *pattern, *name;
  } rows[] = {
      {"[0-9]{4}/[0-9]{2}/[0-9]{2}@[0-9:]+", "TIME"},
      {"-vxr-[0-9]{8}\\.log", "-vxr-DATE.log"},
      // A registry call tells its error by its result; whether it leaves a last error is the system's business.
      {"(rc=[0-9]+[ :]ec=)[0-9]+", "$1CODE"},
      // Not the numbers behind REG_QWORD and a tab, nor what a record of the pattern holds for an address.
      {"(0x|[^\\t\\w])(?!(?:[45][0-9A-F]){8})[0-9A-F]{16}\\b", "$1ADDRESS"},
      {"(hWnd = 0x)(?!0{8})[0-9a-f]{8}", "$1ADDRESS"},
      {"(Start= 0x)(?!(?:[45][0-9A-F]){4})[0-9A-F]{8}", "$1ADDRESS"},
  };
  for (const auto &row : rows) text = std::regex_replace(text, std::regex(row.pattern), row.name);
  return text;
}

std::vector<std::string> LinesIn(const std::string &text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST_F(LogBytes, AreThoseOfEveryBuild) {
  WriteFile("ram/file.txt", "text");
  WriteFile("ram/empty", "");
  WriteFile("ram/hidden", "old");
  WriteFile("ram/dir/file", "");
  WriteFile(
      "ram/fields.inf",
      "[Version]\r\nSignature=\"$Windows NT$\"\r\n[Section]\r\nkey = %token%, 12, 0A\r\n[Strings]\r\ntoken = 7\r\n");
  Open();
  platform::SetFileAttributesA("X:\\hidden", FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE);
  std::string written;
  for (void (*part)() : {WriteLines, DumpValues, DumpRecords, UseFiles, UseRegistry, ReadInf, UseExports, GiveNothing,
                         Record, AskQueries}) {
    VXRDbg_Cleanup();
    VXRDbg_Initialize(2, 0, nullptr);
    part();
    VXRDbg_Cleanup();
    for (const auto &entry : std::filesystem::directory_iterator(Host("ram/Halcyra/logs.dir"))) {
      written += ReadFile("ram/Halcyra/logs.dir/" + entry.path().filename().string());
    }
  }
  std::ifstream golden(VXR_SOURCE_DIR "/tests/data/log_bytes.log", std::ios::binary);
  const std::string expected(std::istreambuf_iterator<char>(golden), {});
  const std::string normalised = Normalised(written);
  if (const char *name = std::getenv("VXR_LOG_BYTES")) std::ofstream(name, std::ios::binary) << normalised;
  const std::vector<std::string> got = LinesIn(normalised), wanted = LinesIn(expected);
  for (std::size_t i = 0; i < std::min(got.size(), wanted.size()); ++i)
    ASSERT_EQ(got[i], wanted[i]) << "line " << i + 1;
  EXPECT_EQ(normalised.size(), expected.size());
}

}  // namespace
