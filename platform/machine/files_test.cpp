// Handles of files and disks, attributes, mappings.
#include <sys/stat.h>

#include <cstring>

#include "platform/machine/fault.h"
#include "platform/machine/handles.h"
#include "tests/support/test_machine.h"

namespace {

using namespace platform;

constexpr const char *kDisks =
    "[[disk]]\nnumber = 2\ngeometry = { cylinders = 10, heads = 255, sectors = 63, bytes = 512 }\n"
    "interface = '\\\\?\\scsi#disk&ven_acme#4&1a2b3c&0&000000#{53f56307-b6bf-11d0-94f2-00a0c91efb8b}'\n";

class FilesTest : public MachineTest {
 protected:
  FilesTest() : handlesBefore(machine::OpenHandles()) {}
  ~FilesTest() override { EXPECT_EQ(machine::OpenHandles(), handlesBefore); }

  // NO_ERROR when the file could be opened, which also closes it again.
  static DWORD OpenError(const char *name, DWORD access, DWORD disposition, DWORD attributes = 0) {
    const HANDLE handle = CreateFileA(name, access, 0, nullptr, disposition, attributes, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return GetLastError();
    EXPECT_TRUE(CloseHandle(handle));
    return NO_ERROR;
  }

  bool IsReadOnlyOnHost(const std::string &relative) const {
    struct stat status = {};
    EXPECT_EQ(stat(Host(relative).c_str(), &status), 0);
    return (status.st_mode & 0222) == 0;
  }

  std::size_t handlesBefore;
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
    EXPECT_EQ(WaitForSingleObject(handle, INFINITE), WAIT_FAILED);
    EXPECT_EQ(MapViewOfFile(handle, FILE_MAP_READ, 0, 0, 0), nullptr);
  }
  WIN32_FIND_DATAA data;
  const HANDLE search = FindFirstFileA(R"(X:\*)", &data);
  EXPECT_FALSE(CloseHandle(search)) << "searches end by FindClose";
  EXPECT_TRUE(FindClose(search));
  EXPECT_FALSE(FindClose(search));
}

TEST_F(FilesTest, DisksAnswerTheirNumber) {
  Open(kDisks);
  const char *const names[] = {R"(\\.\PhysicalDrive2)", R"(\\.\PHYSICALDRIVE2)",
                               R"(\\?\SCSI#Disk&Ven_ACME#4&1a2b3c&0&000000#{53f56307-b6bf-11d0-94f2-00a0c91efb8b})"};
  for (const char *name : names) {
    const HANDLE disk = CreateFileA(name, 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(disk, INVALID_HANDLE_VALUE) << name;
    STORAGE_DEVICE_NUMBER number = {};
    DWORD returned = 0;
    EXPECT_TRUE(
        DeviceIoControl(disk, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number, sizeof number, &returned, nullptr));
    EXPECT_EQ(returned, 12u);
    EXPECT_EQ(number.DeviceType, 7u);
    EXPECT_EQ(number.DeviceNumber, 2u);
    EXPECT_EQ(number.PartitionNumber, 0u);
    EXPECT_FALSE(DeviceIoControl(disk, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number, 11, &returned, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_FALSE(DeviceIoControl(disk, 0x12345, nullptr, 0, &number, sizeof number, &returned, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_FUNCTION);
    EXPECT_TRUE(CloseHandle(disk));
  }
  for (const char *name : {R"(\\.\PhysicalDrive0)", R"(\\.\PhysicalDrive02)", R"(\\.\PhysicalDrive2\Partition1)",
                           R"(\\.\PhysicalDrive)", R"(\\.\PhysicalDrive4294967298)", R"(\\?\scsi#other)", R"(\\?\)"}) {
    EXPECT_EQ(OpenError(name, 0, OPEN_EXISTING), ERROR_FILE_NOT_FOUND) << name;
  }
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
