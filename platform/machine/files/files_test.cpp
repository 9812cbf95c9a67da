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

TEST_F(FilesTest, OpensByDisposition) {
  WriteFile("restored/old.txt", "old");
  WriteFile("restored/locked.txt", "locked");
  WriteFile("restored/hidden.txt", "hidden");
  Open();
  ASSERT_TRUE(SetFileAttributesA(R"(D:\locked.txt)", FILE_ATTRIBUTE_READONLY));
  ASSERT_TRUE(SetFileAttributesA(R"(D:\hidden.txt)", FILE_ATTRIBUTE_HIDDEN));
  const struct {
    const char *name;
    DWORD access, disposition, expected;
  } cases[] = {
      {R"(D:\old.txt)", GENERIC_ALL, OPEN_EXISTING, NO_ERROR},
      {R"(D:\absent.txt)", GENERIC_READ, OPEN_EXISTING, ERROR_FILE_NOT_FOUND},
      {R"(D:\absent.txt)", GENERIC_WRITE, TRUNCATE_EXISTING, ERROR_FILE_NOT_FOUND},
      {R"(D:\old.txt)", GENERIC_WRITE, CREATE_NEW, ERROR_FILE_EXISTS},
      {R"(D:\Windows)", GENERIC_READ, CREATE_NEW, NO_ERROR},
      {R"(D:\)", GENERIC_READ, OPEN_EXISTING, ERROR_ACCESS_DENIED},
      {R"(D:\old.txt)", GENERIC_READ, 0, ERROR_INVALID_PARAMETER},
      {R"(D:\old.txt)", GENERIC_READ, 6, ERROR_INVALID_PARAMETER},
      {R"(D:\locked.txt)", GENERIC_READ, OPEN_EXISTING, NO_ERROR},
      {R"(D:\locked.txt)", GENERIC_WRITE, OPEN_EXISTING, ERROR_ACCESS_DENIED},
      {R"(D:\locked.txt)", GENERIC_ALL, OPEN_ALWAYS, ERROR_ACCESS_DENIED},
      {R"(D:\locked.txt)", GENERIC_READ, CREATE_ALWAYS, ERROR_ACCESS_DENIED},
      {R"(D:\hidden.txt)", GENERIC_WRITE, OPEN_EXISTING, NO_ERROR},
      {R"(D:\hidden.txt)", GENERIC_WRITE, CREATE_ALWAYS, ERROR_ACCESS_DENIED},
      {R"(D:\no\file.txt)", GENERIC_WRITE, CREATE_ALWAYS, ERROR_PATH_NOT_FOUND},
      {nullptr, GENERIC_READ, OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(OpenError(c.name, c.access, c.disposition), c.expected)
        << (c.name ? c.name : "null") << " disposition " << c.disposition;
  }
  EXPECT_EQ(ReadFile("restored/locked.txt"), "locked");
  EXPECT_EQ(ReadFile("restored/hidden.txt"), "hidden");
  EXPECT_EQ(OpenError(R"(D:\hidden.txt)", GENERIC_WRITE, CREATE_ALWAYS, FILE_ATTRIBUTE_HIDDEN), NO_ERROR);
  EXPECT_EQ(ReadFile("restored/hidden.txt"), "");
}

TEST_F(FilesTest, PipesAreNotOpened) {
  ASSERT_EQ(mkfifo(Host("restored/pipe").c_str(), 0600), 0);
  Open();
  EXPECT_EQ(OpenError(R"(D:\pipe)", GENERIC_READ, OPEN_EXISTING), ERROR_ACCESS_DENIED);
}

TEST_F(FilesTest, TellsSizes) {
  WriteFile("restored/five.txt", "12345");
  WriteFile("restored/large.bin", "");
  std::filesystem::resize_file(Host("restored/large.bin"), 0x1FFFFFFFFull);
  Open();
  const HANDLE five = CreateFileA(R"(D:\five.txt)", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  const HANDLE large = CreateFileA(R"(D:\large.bin)", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  DWORD high = 7;
  EXPECT_EQ(GetFileSize(five, &high), 5u);
  EXPECT_EQ(high, 0u);
  SetLastError(ERROR_ACCESS_DENIED);
  EXPECT_EQ(GetFileSize(large, &high), 0xFFFFFFFFu);
  EXPECT_EQ(high, 1u);
  EXPECT_EQ(GetLastError(), NO_ERROR);
  EXPECT_TRUE(CloseHandle(five));
  EXPECT_TRUE(CloseHandle(large));
  EXPECT_EQ(GetFileSize(five, nullptr), INVALID_FILE_SIZE);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST_F(FilesTest, ForeignHandlesAreInvalid) {
  Open();
  int stranger = 0;
  for (const HANDLE handle : {HANDLE{nullptr}, INVALID_HANDLE_VALUE, static_cast<HANDLE>(&stranger)}) {
    SetLastError(NO_ERROR);
    EXPECT_FALSE(CloseHandle(handle));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(FindClose(handle));
    EXPECT_EQ(GetFileSize(handle, nullptr), INVALID_FILE_SIZE);
    EXPECT_FALSE(platform::ReadFile(handle, &stranger, 1, nullptr, nullptr));
    EXPECT_EQ(SetFilePointer(handle, 0, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
    EXPECT_EQ(WaitForSingleObject(handle, INFINITE), WAIT_FAILED);
    EXPECT_EQ(MapViewOfFile(handle, FILE_MAP_READ, 0, 0, 0), nullptr);
  }
  WIN32_FIND_DATAA data;
  const HANDLE search = FindFirstFileA(R"(X:\*)", &data);
  EXPECT_FALSE(CloseHandle(search)) << "searches end by FindClose";
  EXPECT_TRUE(FindClose(search));
  EXPECT_FALSE(FindClose(search));
}

TEST_F(FilesTest, TransfersAtThePosition) {
  WriteFile("restored/a.txt", "0123456789");
  Open();
  const HANDLE file = CreateFileA(R"(D:\a.txt)", GENERIC_ALL, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  char buffer[16] = {};
  DWORD count = 99;
  EXPECT_TRUE(platform::ReadFile(file, buffer, 4, &count, nullptr));
  EXPECT_EQ(std::string(buffer, count), "0123");
  EXPECT_TRUE(platform::WriteFile(file, "xy", 2, &count, nullptr));
  EXPECT_TRUE(platform::ReadFile(file, buffer, sizeof buffer, &count, nullptr));
  EXPECT_EQ(std::string(buffer, count), "6789");
  EXPECT_TRUE(platform::ReadFile(file, buffer, sizeof buffer, &count, nullptr)) << "the end is no failure";
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(SetFilePointer(file, 2, nullptr, FILE_END), 12u);
  EXPECT_TRUE(platform::WriteFile(file, "z", 1, &count, nullptr));
  EXPECT_TRUE(FlushFileBuffers(file));
  EXPECT_EQ(ReadFile("restored/a.txt"), std::string("0123xy6789\0\0z", 13));
  EXPECT_FALSE(platform::ReadFile(file, nullptr, 1, &count, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_NOACCESS);
  EXPECT_TRUE(CloseHandle(file));
}

TEST_F(FilesTest, TransfersNeedTheirRight) {
  WriteFile("restored/a.txt", "0123456789");
  Open();
  const struct {
    DWORD access;
    bool reads, writes;
  } cases[] = {{0, false, false}, {GENERIC_READ, true, false}, {GENERIC_WRITE, false, true}, {GENERIC_ALL, true, true}};
  for (const auto &c : cases) {
    const HANDLE file = CreateFileA(R"(D:\a.txt)", c.access, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    char byte = 0;
    const auto denied = [](BOOL done) { return !done && GetLastError() == ERROR_ACCESS_DENIED; };
    EXPECT_EQ(denied(platform::ReadFile(file, &byte, 1, nullptr, nullptr)), !c.reads) << c.access;
    EXPECT_EQ(denied(platform::WriteFile(file, "0", 1, nullptr, nullptr)), !c.writes) << c.access;
    EXPECT_EQ(denied(FlushFileBuffers(file)), !c.writes) << c.access;
    EXPECT_TRUE(CloseHandle(file));
  }
}

TEST_F(FilesTest, MovesByBothHalves) {
  WriteFile("restored/a.txt", "0123456789");
  Open();
  const HANDLE file = CreateFileA(R"(D:\a.txt)", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  constexpr LONG kAlone = 0x1234;  // no high half is given
  const struct {
    DWORD method;
    LONG low, high;
    DWORD error;
    LONG64 position;  // after the move, each from where the one before left it
  } cases[] = {
      {FILE_BEGIN, 4, kAlone, NO_ERROR, 4},
      {FILE_CURRENT, 3, kAlone, NO_ERROR, 7},
      {FILE_CURRENT, -8, kAlone, ERROR_NEGATIVE_SEEK, 7},
      {FILE_BEGIN, -1, kAlone, ERROR_NEGATIVE_SEEK, 7},
      {FILE_END, -2, kAlone, NO_ERROR, 8},
      {3, 0, kAlone, ERROR_INVALID_PARAMETER, 8},
      {FILE_BEGIN, -1, 0, NO_ERROR, 0xFFFFFFFF},
      {FILE_CURRENT, 1, kAlone, ERROR_INVALID_PARAMETER, 0xFFFFFFFF},
      {FILE_CURRENT, 1, 0, NO_ERROR, LONG64{1} << 32},
      {FILE_CURRENT, -1, -1, NO_ERROR, 0xFFFFFFFF},
      {FILE_BEGIN, 0, 2, NO_ERROR, LONG64{2} << 32},
      {FILE_BEGIN, 0, static_cast<LONG>(0x80000000), ERROR_NEGATIVE_SEEK, LONG64{2} << 32},
      {FILE_BEGIN, -1, 0x7FFFFFFF, NO_ERROR, INT64_MAX},
      {FILE_CURRENT, 1, 0, ERROR_INVALID_PARAMETER, INT64_MAX},
  };
  for (const auto &c : cases) {
    const std::string which = testing::PrintToString(&c - cases);
    LONG high = c.high;
    SetLastError(ERROR_GEN_FAILURE);
    const DWORD low = SetFilePointer(file, c.low, high == kAlone ? nullptr : &high, c.method);
    EXPECT_EQ(low == INVALID_SET_FILE_POINTER ? GetLastError() : NO_ERROR, c.error) << which;
    if (c.error == NO_ERROR) {
      EXPECT_EQ(low, static_cast<DWORD>(c.position)) << which;
      EXPECT_EQ(high, c.high == kAlone ? kAlone : static_cast<LONG>(c.position >> 32)) << which;
    }
    LONG reached = 0;
    EXPECT_EQ(SetFilePointer(file, 0, &reached, FILE_CURRENT), static_cast<DWORD>(c.position)) << which;
    EXPECT_EQ(reached, static_cast<LONG>(c.position >> 32)) << which;
  }
  EXPECT_TRUE(CloseHandle(file));
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

TEST_F(FilesTest, MappingsReachTheFile) {
  WriteFile("restored/map.bin", "0123456789");
  Open();
  const HANDLE file = CreateFileA(R"(D:\map.bin)", GENERIC_ALL, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  const HANDLE mapping = CreateFileMappingA(file, nullptr, PAGE_READWRITE, 0, 0, "name");
  ASSERT_NE(mapping, nullptr);
  EXPECT_TRUE(CloseHandle(file)) << "the mapping holds the file by itself";
  auto *view = static_cast<char *>(MapViewOfFile(mapping, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0));
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(std::string(view, 10), "0123456789");
  std::memcpy(view + 3, "xyz", 3);
  EXPECT_EQ(MapViewOfFile(mapping, FILE_MAP_READ, 0, 1, 0), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_MAPPED_ALIGNMENT);
  for (const SIZE_T length : {SIZE_T{11}, ~SIZE_T{0}}) {
    EXPECT_EQ(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, length), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  }
  EXPECT_EQ(MapViewOfFile(mapping, FILE_MAP_READ, 0xFFFFFFFF, 0, 1), nullptr);
  EXPECT_TRUE(CloseHandle(mapping));
  EXPECT_EQ(view[4], 'y') << "the view outlives its mapping's handle";
  EXPECT_FALSE(UnmapViewOfFile(view + 1));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS);
  EXPECT_TRUE(UnmapViewOfFile(view));
  EXPECT_FALSE(UnmapViewOfFile(view));
  EXPECT_EQ(ReadFile("restored/map.bin"), "012xyz6789");
}

TEST_F(FilesTest, RefusesMappings) {
  WriteFile("restored/empty.bin", "");
  WriteFile("restored/map.bin", "0123456789");
  Open();
  const HANDLE empty = CreateFileA(R"(D:\empty.bin)", GENERIC_ALL, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(CreateFileMappingA(empty, nullptr, PAGE_READWRITE, 0, 0, nullptr), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_FILE_INVALID);
  const HANDLE readOnly = CreateFileA(R"(D:\map.bin)", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(CreateFileMappingA(readOnly, nullptr, PAGE_READWRITE, 0, 0, nullptr), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  const HANDLE mapping = CreateFileMappingA(readOnly, nullptr, PAGE_READONLY, 0, 0, nullptr);
  EXPECT_EQ(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  for (const HANDLE handle : {empty, readOnly, mapping}) EXPECT_TRUE(CloseHandle(handle));
}

#ifdef VXR_FAULT_POINTS
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
#endif

}  // namespace
