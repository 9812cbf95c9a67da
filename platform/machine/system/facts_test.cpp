#include <cstring>

#include "platform/machine/base/file_time.h"
#include "platform/platform.h"
#include "platform/text/code_page.h"
#include "platform/text/program_name.h"
#include "tests/support/standard_machine.h"
#include "tests/support/test_machine.h"

namespace {

struct FactsTest : MachineTest {};

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

}  // namespace
