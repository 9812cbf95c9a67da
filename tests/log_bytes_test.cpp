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

#include "engine/base/files.h"
#include "engine/base/processes.h"
#include "engine/base/status.h"
#include "inf/field_reader.h"
#include "log/dump.h"
#include "log/log.h"
#include "log/record_dump.h"
#include "registry/values.h"
#include "tests/support/test_machine.h"

namespace {

using LogBytes = MachineTest;

// A record all of whose bytes are that number.
template <class Record>
std::unique_ptr<Record> Filled(int byte) {
  auto record = std::make_unique<Record>();
  std::memset(static_cast<void *>(record.get()), byte, sizeof(Record));
  return record;
}

// Dumps a record of zeros and one of a text without end.
template <class Record>
void Dump(void (*dump)(const Record *, const char *)) {
  for (const int byte : {0, int{'X'}}) dump(Filled<Record>(byte).get(), "test");
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
  LogFailure("Call", "message", "test");
  LogFailure("Call", nullptr, "test");
  LogNull("argument", "test");
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
  Dump(VXRDbg_DumpOsVersionInfo);
  Dump(VXRDbg_DumpMemoryStatus);
  Dump(VXRDbg_DumpSystemInfo);
  Dump(VXRDbg_DumpDrvInfo);
  Dump(VXRDbg_DumpDevInstallParams);
  Dump(VXRDbg_DumpDevInfo);
  Dump(VXRDbg_DumpInfContext);
  Dump(VXRDbg_DumpExtHeader);
  Dump(VXRDbg_DumpArchitect);
  Dump(VXRDbg_DumpSysInfo);
  Dump(VXRDbg_DumpSysOsInfo);
  Dump(VXRDbg_DumpNetInfo);
  Dump(VXRDbg_DumpVolDisk);
  Dump(VXRDbg_DumpFileInfo);
  VXRDbg_DumpVolume(Filled<VXR_VOLUME>(0).get(), "test");
  VXRDbg_DumpDevDrv(Filled<VXR_DEVDRV>(0).get(), "test");
  VXRDbg_DumpService(Filled<VXR_SERVICE>(0).get(), "test");
  VXRDbg_DumpDriver(Filled<VXR_DRIVER>(0).get(), "test");
  VXRDbg_DumpDevice(Filled<VXR_DEVICE>(0).get(), "test");
  VXRDbg_DumpFileMap(Filled<VXR_FILEMAP>(0).get(), "test");
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
  VXREng_CreateBMExtFile(nullptr, nullptr, nullptr);
  VXREng_StatusMsg(0, "status %d\n", 1);
  VXREng_StatusMsg(58, "failed %s\n", "text");
  uint8_t answer[512] = {};
  const auto file = Filled<VXR_BMEXTNSON>(0);
  for (const void *head : {static_cast<const void *>(file.get()), static_cast<const void *>(nullptr)}) {
    for (const uint32_t code : {0u, 2u, 99u}) {
      uint32_t size = sizeof answer;
      VXRExt_QueryData(0, code, answer, &size, nullptr, 0, head);
    }
  }
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
      {"(0x|\\b)[0-9A-F]{16}\\b", "$1ADDRESS"},
      {"(Start= 0x)[0-9A-F]{8}", "$1ADDRESS"},
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
  for (void (*part)() : {WriteLines, DumpValues, DumpRecords, UseFiles, UseRegistry, ReadInf, UseExports}) {
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
