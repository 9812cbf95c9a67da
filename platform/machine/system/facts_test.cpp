#include <cstring>

#include "platform/machine/base/file_time.h"
#include "platform/platform.h"
#include "platform/text/code_page.h"
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

}  // namespace
