#include <cstring>

#include "platform/machine/code_page.h"
#include "platform/platform.h"
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
  EXPECT_EQ(platform::GetWindowsDirectoryA(buffer, sizeof buffer), 10u);
  EXPECT_STREQ(buffer, "X:\\Windows");
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

constexpr char kMinimal[] = R"([system]
system_directory = 'X:\Windows\System32'
windows_directory = 'X:\Windows'
os = { major = 6, minor = 1 }
)";

TEST_F(FactsTest, AFixedClock) {
  Open("", std::string(kMinimal) + "clock = 2026-11-19T13:14:15+02:00\n");
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

TEST_F(FactsTest, ProgramName) {
  ASSERT_NE(platform::GetProgramName(), nullptr);
  EXPECT_THAT(platform::GetProgramName(), testing::EndsWith("machine_base_test"));
  EXPECT_THAT(platform::GetProgramName(), testing::Not(testing::HasSubstr("/")));
  Open("", std::string(kMinimal) + "program = 'C:\\Tools\\agent.exe'\n");
  EXPECT_STREQ(platform::GetProgramName(), "C:\\Tools\\agent.exe");
  Close();
  Open("", std::string(kMinimal) + "program = ''\n");
  EXPECT_EQ(platform::GetProgramName(), nullptr);
}

TEST_F(FactsTest, FailsWithoutAMachine) {
  platform::SetLastError(0);
  EXPECT_EQ(platform::GetSystemDirectoryA(nullptr, 0), 0u);
  EXPECT_EQ(platform::GetLastError(), ERROR_NOT_READY);
  EXPECT_EQ(platform::GetWindowsDirectoryA(nullptr, 0), 0u);
  EXPECT_EQ(platform::GetDriveTypeA("X:\\"), DRIVE_UNKNOWN);
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

// --- Settings files -------------------------------------------------------------------------------------------------

struct SettingsTest : MachineTest {
  int Read(const char *key, const char *section = "debugging", const char *file = "X:\\s.ini") {
    return static_cast<int>(platform::GetPrivateProfileIntA(section, key, -99, file));
  }
};

TEST_F(SettingsTest, ReadsNumbers) {
  WriteFile("ram/s.ini",
            "; [debugging]\r\nvxrcore=1\r\n[other]\r\nvxrcore=2\r\n\r\n"
            "[ Debugging ] trailing\r\n  VXRCore \t= 4 ; said so \r\n;key=7\r\nno equals\r\nkey=5\nlast=1\rneg=-4\n"
            "quoted=\"12\"\nhalf=\"9\nempty=\nword=abc\nplus=+3\nhuge=4294967298\nspaced = 1 2\nkey=6\n=8\n"
            "[debugging]\nlate=1\n[end");
  Open();
  struct {
    const char *key;
    int value;
  } cases[] = {{"vxrcore", 4}, {"VXRCORE", 4}, {"key", 5},  {"last", 1}, {"neg", -4},   {"quoted", 12},  {"half", 0},
               {"empty", 0},   {"word", 0},    {"plus", 3}, {"huge", 2}, {"spaced", 1}, {"absent", -99}, {"late", -99}};
  for (const auto &c : cases) EXPECT_EQ(Read(c.key), c.value) << c.key;
  EXPECT_EQ(Read("vxrcore", "OTHER"), 2);
  EXPECT_EQ(Read("vxrcore", "none"), -99);
  EXPECT_EQ(platform::GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(SettingsTest, ReadsOtherEncodings) {
  const std::u16string wide = u"\uFEFF[debugging]\r\nn\u00E4me=3\r\n";
  WriteFile("ram/wide.ini", std::string(reinterpret_cast<const char *>(wide.data()), wide.size() * 2) + "x");
  WriteFile("ram/utf8.ini", "\xEF\xBB\xBF[debugging]\nn\u00E4me=4\n");
  WriteFile("ram/Windows/plain.ini", "[debugging]\nn\xE4me=5\n");
  Open();
  EXPECT_EQ(Read("N\xC4ME", "debugging", "X:\\wide.ini"), 3);
  EXPECT_EQ(Read("n\xE4me", "debugging", "X:\\utf8.ini"), 4);
  EXPECT_EQ(Read("n\xE4me", "debugging", "plain.ini"), 5);  // a bare name is looked for in the Windows directory
}

TEST_F(SettingsTest, FallsBack) {
  Open();
  EXPECT_EQ(Read("key", "debugging", "X:\\none.ini"), -99);
  EXPECT_EQ(platform::GetLastError(), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Read("key", "debugging", "X:\\Windows"), -99);
  EXPECT_EQ(Read("key", nullptr), -99);
  EXPECT_EQ(platform::GetLastError(), ERROR_INVALID_PARAMETER);
}

}  // namespace
