#include <cstring>

#include "platform/machine/base/file_time.h"
#include "platform/platform.h"
#include "platform/text/code_page.h"
#include "platform/text/program_name.h"
#include "tests/support/standard_machine.h"
#include "tests/support/test_machine.h"

namespace {

struct FactsTest : MachineTest {};

TEST_F(FactsTest, DirectoriesAnswerBySize) {
  Open();
  char buffer[32];
  const UINT length = static_cast<UINT>(std::strlen("X:\\Windows\\System32"));
  EXPECT_EQ(platform::GetSystemDirectoryA(nullptr, 0), length + 1);
  buffer[0] = '#';
  EXPECT_EQ(platform::GetSystemDirectoryA(buffer, length), length + 1);
  EXPECT_EQ(buffer[0], '#');
  EXPECT_EQ(platform::GetSystemDirectoryA(buffer, length + 1), length);
  EXPECT_STREQ(buffer, "X:\\Windows\\System32");
  EXPECT_EQ(platform::GetSystemWindowsDirectoryA(buffer, sizeof buffer), 10u);
  buffer[0] = '#';
  EXPECT_EQ(platform::GetWindowsDirectoryA(buffer, sizeof buffer), 10u);
  EXPECT_STREQ(buffer, "X:\\Windows");
}

TEST_F(FactsTest, NamesAnswerBySize) {
  Open(
      "[names]\ncomputer = 'RESCUE'\ndns_hostname = 'rescue'\ndns_domain = 'lab.example'\n"
      "physical_netbios = 'NODE1'\nphysical_dns_fully_qualified = 'node1.a-long-domain.example'\n");
  const auto both = [](int format, char *buffer, DWORD *size) {
    return format < 0 ? platform::GetComputerNameA(buffer, size)
                      : platform::GetComputerNameExA(static_cast<COMPUTER_NAME_FORMAT>(format), buffer, size);
  };
  const struct {
    int format;  // -1: the plain name
    std::string name;
  } cases[] = {{-1, "RESCUE"},
               {0, "RESCUE"},
               {1, "rescue"},
               {2, "lab.example"},
               {3, "rescue.lab.example"},
               {4, "NODE1"},
               {5, "rescue"},
               {6, "lab.example"},
               {7, "node1.a-long-domain.example"}};
  for (const auto &c : cases) {
    const auto length = static_cast<DWORD>(c.name.size());
    char buffer[64] = "#";
    DWORD size = length;
    EXPECT_FALSE(both(c.format, buffer, &size));
    EXPECT_EQ(platform::GetLastError(), c.format < 0 ? ERROR_BUFFER_OVERFLOW : ERROR_MORE_DATA);
    EXPECT_EQ(size, length + 1);
    EXPECT_STREQ(buffer, "#");
    EXPECT_TRUE(both(c.format, buffer, &size)) << c.format;
    EXPECT_EQ(buffer, c.name);
    EXPECT_EQ(size, length);
  }
  DWORD size = 0;
  EXPECT_FALSE(both(0, nullptr, &size));
  EXPECT_EQ(size, 7u);
  EXPECT_FALSE(both(8, nullptr, &size));
  EXPECT_EQ(platform::GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(FactsTest, Version) {
  Open();
  OSVERSIONINFOEXA version = {};
  for (const DWORD size : {DWORD{0}, DWORD{148}, DWORD{157}}) {
    version.dwOSVersionInfoSize = size;
    EXPECT_FALSE(platform::GetVersionExA(&version));
    EXPECT_EQ(platform::GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  }
  version.dwOSVersionInfoSize = 156;
  ASSERT_TRUE(platform::GetVersionExA(&version));
  EXPECT_THAT((std::vector<DWORD>{version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber,
                                  version.dwPlatformId, version.wServicePackMajor, version.wServicePackMinor,
                                  version.wSuiteMask, version.wProductType}),
              testing::ElementsAre(6, 1, 7601, 2, 1, 0, 0x100, 1));
  EXPECT_STREQ(version.szCSDVersion, "Service Pack 1");
}

TEST_F(FactsTest, DriveTypes) {
  Open(R"([[drive]]
root = 'E:'
type = 'cdrom'
guid_path = '\\?\Volume{11111111-2222-3333-4444-555555555555}\'
)");
  struct {
    const char *root;
    UINT type;
  } cases[] = {{"X:\\", DRIVE_RAMDISK},
               {"d:", DRIVE_FIXED},
               {"E:\\", DRIVE_CDROM},
               {nullptr, DRIVE_RAMDISK},
               {"Q:\\", DRIVE_NO_ROOT_DIR},
               {"", DRIVE_NO_ROOT_DIR},
               {"X:\\Windows", DRIVE_NO_ROOT_DIR},
               {"\\\\?\\VOLUME{11111111-2222-3333-4444-555555555555}\\", DRIVE_CDROM}};
  for (const auto &c : cases) EXPECT_EQ(platform::GetDriveTypeA(c.root), c.type) << (c.root ? c.root : "null");
}

TEST_F(FactsTest, MemoryAndProcessors) {
  Open();
  MEMORYSTATUSEX memory{};
  EXPECT_FALSE(platform::GlobalMemoryStatusEx(&memory));
  EXPECT_EQ(platform::GetLastError(), ERROR_INVALID_PARAMETER);
  memory.dwLength = sizeof memory;
  EXPECT_TRUE(platform::GlobalMemoryStatusEx(&memory));
  EXPECT_EQ(memory.ullTotalPhys, DWORD64{8} << 30);
  EXPECT_LE(memory.ullAvailPhys, memory.ullTotalPhys);

  SYSTEM_INFO info;
  platform::GetSystemInfo(&info);
  EXPECT_EQ(info.wProcessorArchitecture, 9);
  EXPECT_EQ(info.dwNumberOfProcessors, 2u);
  EXPECT_EQ(info.dwActiveProcessorMask, 3u);
  EXPECT_EQ(info.dwProcessorType, 8664u);
  EXPECT_EQ(info.wProcessorRevision, 0x3A09);
  EXPECT_EQ(info.dwPageSize, 4096u);
}

TEST_F(FactsTest, AFixedClock) {
  Open("", std::string(kStandardSystem) + "clock = 2026-11-19T13:14:15+02:00\n");
  SYSTEMTIME time;
  platform::GetSystemTime(&time);
  EXPECT_EQ(time.wYear, 2026);
  EXPECT_EQ(time.wMonth, 11);
  EXPECT_EQ(time.wDay, 19);
  EXPECT_EQ(time.wDayOfWeek, 4);
  EXPECT_EQ(time.wHour, 11);
  EXPECT_EQ(time.wMinute, 14);
  EXPECT_EQ(time.wSecond, 15);
  EXPECT_EQ(time.wMilliseconds, 0);
}

TEST_F(FactsTest, FileTimes) {
  struct {
    DWORD64 ticks;
    SYSTEMTIME time;
  } cases[] = {{0, {1601, 1, 1, 1, 0, 0, 0, 0}},
               {116444736000000000, {1970, 1, 4, 1, 0, 0, 0, 0}},
               {125911584009990000, {2000, 1, 6, 1, 0, 0, 0, 999}},
               {133537247999999999, {2024, 2, 4, 29, 23, 59, 59, 999}},
               {INT64_MAX, {30828, 9, 4, 14, 2, 48, 5, 477}}};
  for (const auto &c : cases) {
    const FILETIME file = {static_cast<DWORD>(c.ticks), static_cast<DWORD>(c.ticks >> 32)};
    SYSTEMTIME time;
    ASSERT_TRUE(platform::FileTimeToSystemTime(&file, &time));
    EXPECT_EQ(std::memcmp(&time, &c.time, sizeof time), 0)
        << c.ticks << ": " << time.wYear << '-' << time.wMonth << '-' << time.wDay << " day " << time.wDayOfWeek << ' '
        << time.wHour << ':' << time.wMinute << ':' << time.wSecond << '.' << time.wMilliseconds;
  }
  const FILETIME beyond = {0, 0x80000000};
  SYSTEMTIME time;
  EXPECT_FALSE(platform::FileTimeToSystemTime(&beyond, &time));
  EXPECT_EQ(platform::GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(FactsTest, HostTimesBecomeFileTimes) {
  EXPECT_EQ(machine::TicksOf(machine::FileTimeOf(0, 199)), 116444736000000001u);
  EXPECT_EQ(machine::TicksOf(machine::FileTimeOf(INT64_MIN, 0)), 0u);
  EXPECT_LE(machine::TicksOf(machine::FileTimeOf(INT64_MAX, 999999999)), DWORD64{INT64_MAX});
}

TEST(ProgramNameTest, IsTakenAsTheRuntimeTakesIt) {
  const struct {
    std::string commandLine, name;
  } cases[] = {
      {R"("C:\My Tools\a.exe" "b c")", R"(C:\My Tools\a.exe)"}, {R"(C:\"My Tools"\a.exe b)", R"(C:\My Tools\a.exe)"},
      {R"("C:\My Tools"\a.exe b)", R"(C:\My Tools\a.exe)"},     {R"("C:\a b)", "C:\\a b"},
      {std::string(5000, 'x') + "\tb", std::string(5000, 'x')}, {" a.exe", ""},
  };
  for (const auto &c : cases) {
    char name[5001];
    platform::TakeProgramName(c.commandLine, name, sizeof name);
    EXPECT_EQ(name, c.name) << c.commandLine;
  }
}

TEST_F(FactsTest, ProgramName) {
  ASSERT_NE(platform::GetProgramName(), nullptr);
  EXPECT_THAT(platform::GetProgramName(), testing::EndsWith("machine_base_test"));
  EXPECT_THAT(platform::GetProgramName(), testing::Not(testing::HasSubstr("/")));
  Open("", std::string(kStandardSystem) + "program = 'C:\\Tools\\agent.exe'\n");
  EXPECT_STREQ(platform::GetProgramName(), "C:\\Tools\\agent.exe");
  Close();
  Open("", std::string(kStandardSystem) + "program = ''\n");
  EXPECT_EQ(platform::GetProgramName(), nullptr);
}

TEST_F(FactsTest, FailsWithoutAMachine) {
  platform::SetLastError(0);
  EXPECT_EQ(platform::GetSystemDirectoryA(nullptr, 0), 0u);
  EXPECT_EQ(platform::GetLastError(), ERROR_NOT_READY);
  EXPECT_EQ(platform::GetWindowsDirectoryA(nullptr, 0), 0u);
  EXPECT_EQ(platform::GetDriveTypeA("X:\\"), DRIVE_UNKNOWN);
  EXPECT_EQ(platform::GetLogicalDriveStringsA(0, nullptr), 0u);
  EXPECT_FALSE(platform::GetVolumeNameForVolumeMountPointA("X:\\", nullptr, 0));
  EXPECT_EQ(platform::GetLastError(), ERROR_NOT_READY);
  EXPECT_EQ(platform::GetPrivateProfileIntA("a", "b", -7, "X:\\a.ini"), static_cast<UINT>(-7));
  MEMORYSTATUSEX memory{sizeof memory, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_FALSE(platform::GlobalMemoryStatusEx(&memory));
  SYSTEM_INFO info;
  platform::GetSystemInfo(&info);
  EXPECT_EQ(info.dwNumberOfProcessors, 0u);
  SYSTEMTIME time{};
  platform::GetSystemTime(&time);
  EXPECT_GE(time.wYear, 2024);
}

}  // namespace
