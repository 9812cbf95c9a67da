// Handles of files, what they transfer, attributes and times, mappings.
#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>

#include "platform/machine/base/fault.h"
#include "platform/machine/base/file_time.h"
#include "tests/support/handles_test.h"

namespace {

using namespace platform;

class FilesTest : public HandlesTest {
 protected:
  bool IsReadOnlyOnHost(const std::string &relative) const {
    struct stat status = {};
    EXPECT_EQ(stat(Host(relative).c_str(), &status), 0);
    return (status.st_mode & 0222) == 0;
  }
};

TEST_F(FilesTest, PipesAreNotOpened) {
  ASSERT_EQ(mkfifo(Host("restored/pipe").c_str(), 0600), 0);
  Open();
  EXPECT_EQ(OpenError(R"(D:\pipe)", GENERIC_READ, OPEN_EXISTING), ERROR_ACCESS_DENIED);
}

TEST_F(FilesTest, TellsSizeAndTimes) {
  WriteFile("restored/large.bin", "");
  std::filesystem::resize_file(Host("restored/large.bin"), 0x300000001ull);
  constexpr time_t k2100 = 4102444800, k1970 = 0;
  const timespec times[] = {{k1970, 500}, {k2100, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, Host("restored/large.bin").c_str(), times, 0), 0);
  Open();
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  ASSERT_TRUE(GetFileAttributesExA(R"(D:\LARGE.bin)", GetFileExInfoStandard, &data));
  EXPECT_EQ(data.dwFileAttributes, FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(data.nFileSizeHigh, 3u);
  EXPECT_EQ(data.nFileSizeLow, 1u);
  EXPECT_EQ(machine::TicksOf(data.ftLastAccessTime), 116444736000000005u);
  EXPECT_EQ(machine::TicksOf(data.ftLastWriteTime), 157469184000000000u);
  EXPECT_GT(machine::TicksOf(data.ftCreationTime), 116444736000000005u);
  EXPECT_LE(machine::TicksOf(data.ftCreationTime), 157469184000000000u);
  ASSERT_TRUE(GetFileAttributesExA(R"(D:\)", GetFileExInfoStandard, &data));
  EXPECT_EQ(data.dwFileAttributes, FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(data.nFileSizeLow, 0u);
  EXPECT_FALSE(GetFileAttributesExA(R"(D:\absent)", GetFileExInfoStandard, &data));
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  EXPECT_FALSE(GetFileAttributesExA(R"(D:\)", static_cast<GET_FILEEX_INFO_LEVELS>(1), &data));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(FilesTest, KeepsAttributes) {
  WriteFile("restored/a.sys", "a");
  Open();
  constexpr const char *kFile = R"(D:\A.SYS)";
  EXPECT_EQ(GetFileAttributesA(kFile), FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(GetFileAttributesA(R"(D:\)"), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(GetFileAttributesA(R"(D:\absent)"), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  EXPECT_FALSE(SetFileAttributesA(R"(D:\no\a)", 0));
  EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);

  ASSERT_TRUE(SetFileAttributesA(kFile, FILE_ATTRIBUTE_READONLY));
  EXPECT_TRUE(IsReadOnlyOnHost("restored/a.sys"));
  EXPECT_NE(GetFileAttributesA(kFile) & FILE_ATTRIBUTE_READONLY, 0u);
  constexpr DWORD kAll = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
  ASSERT_TRUE(SetFileAttributesA(kFile, kAll));
  EXPECT_EQ(GetFileAttributesA(kFile), kAll);
  ASSERT_TRUE(SetFileAttributesA(kFile, FILE_ATTRIBUTE_NORMAL));
  EXPECT_EQ(GetFileAttributesA(kFile), FILE_ATTRIBUTE_NORMAL);
  EXPECT_FALSE(IsReadOnlyOnHost("restored/a.sys"));
  EXPECT_EQ(ReadFile("restored/a.sys"), "a");

  std::filesystem::permissions(Host("restored/a.sys"), std::filesystem::perms::owner_read);
  EXPECT_EQ(GetFileAttributesA(kFile) & FILE_ATTRIBUTE_READONLY, FILE_ATTRIBUTE_READONLY)
      << "the host may take the permission away";
}

TEST_F(FilesTest, AFaultyCloseLeavesNothingOpen) {
  WriteFile("restored/map.bin", "0123456789");
  Open();
  const HANDLE file = CreateFileA(R"(D:\map.bin)", GENERIC_ALL, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  const HANDLE mapping = CreateFileMappingA(file, nullptr, PAGE_READWRITE, 0, 0, nullptr);
  void *view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0);
  WIN32_FIND_DATAA data;
  const HANDLE search = FindFirstFileA(R"(D:\map.bin)", &data);
  EXPECT_EQ(machine::OpenHandles(), handlesBefore + 4);
  machine::SetFaultPlan({"*", 1, true, ERROR_GEN_FAILURE});
  EXPECT_FALSE(UnmapViewOfFile(view));
  EXPECT_FALSE(CloseHandle(mapping));
  EXPECT_FALSE(CloseHandle(file));
  EXPECT_FALSE(FindClose(search));
  machine::SetFaultPlan({});
}

}  // namespace
