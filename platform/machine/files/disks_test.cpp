// Disks: their names, requests, and transfers to and from their images.
#include <signal.h>
#include <sys/resource.h>

#include <cstring>

#include "platform/machine/base/fault.h"
#include "tests/support/handles_test.h"

namespace {

using namespace platform;

constexpr const char *kDisk2 =
    "[[disk]]\nnumber = 2\ngeometry = { cylinders = 10, heads = 255, sectors = 63, bytes = 512 }\n"
    "interface = '\\\\?\\scsi#disk&ven_acme#4&1a2b3c&0&000000#{53f56307-b6bf-11d0-94f2-00a0c91efb8b}'\n";
constexpr const char *kDisk0 = "[[disk]]\nnumber = 0\nimage = 'disk.img'\n";
constexpr DWORD kSector = 512;

class DisksTest : public HandlesTest {
 protected:
  DisksTest() {
    std::string image;
    for (char letter = 'a'; letter <= 'h'; letter++) image.append(kSector, letter);
    WriteFile("disk.img", image);
  }

  static HANDLE OpenDisk(DWORD access, DWORD disposition = OPEN_EXISTING, const char *name = R"(\\.\PhysicalDrive0)") {
    return CreateFileA(name, access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, disposition, 0, nullptr);
  }
};

TEST_F(DisksTest, DisksAnswerTheirNumber) {
  Open(std::string(kDisk2) + "[[disk]]\nnumber = 1\n");
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
  const HANDLE bare = OpenDisk(0, OPEN_EXISTING, R"(\\.\PhysicalDrive1)");
  DISK_GEOMETRY geometry;
  DWORD returned = 7;
  EXPECT_FALSE(DeviceIoControl(bare, IOCTL_DISK_GET_DRIVE_GEOMETRY, nullptr, 0, &geometry, 24, &returned, nullptr))
      << "nobody described it";
  EXPECT_EQ(GetLastError(), ERROR_INVALID_FUNCTION);
  EXPECT_TRUE(CloseHandle(bare));
  for (const char *name : {R"(\\.\PhysicalDrive0)", R"(\\.\PhysicalDrive02)", R"(\\.\PhysicalDrive2\Partition1)",
                           R"(\\.\PhysicalDrive)", R"(\\.\PhysicalDrive4294967298)", R"(\\?\scsi#other)", R"(\\?\)"}) {
    EXPECT_EQ(OpenError(name, 0, OPEN_EXISTING), ERROR_FILE_NOT_FOUND) << name;
  }
}

TEST_F(DisksTest, OpenTheirImages) {
  WriteFile("locked.img", "");
  WriteFile("gone.img", "");
  std::filesystem::permissions(Host("locked.img"), std::filesystem::perms::owner_read);
  Open(std::string(kDisk0) + kDisk2 +
       "[[disk]]\nnumber = 3\nimage = 'locked.img'\n[[disk]]\nnumber = 4\nimage = 'gone.img'\n");
  std::filesystem::remove(Host("gone.img"));
  const struct {
    const char *name;
    DWORD access, disposition, error;
  } cases[] = {
      {R"(\\.\PhysicalDrive0)", GENERIC_ALL, OPEN_EXISTING, NO_ERROR},
      {R"(\\.\PhysicalDrive0)", GENERIC_ALL, OPEN_ALWAYS, ERROR_INVALID_PARAMETER},
      {R"(\\.\PhysicalDrive0)", GENERIC_ALL, CREATE_ALWAYS, ERROR_INVALID_PARAMETER},
      {R"(\\.\PhysicalDrive2)", GENERIC_READ, OPEN_EXISTING, ERROR_NOT_READY},
      {R"(\\.\PhysicalDrive3)", GENERIC_READ, OPEN_EXISTING, NO_ERROR},
      {R"(\\.\PhysicalDrive4)", 0, OPEN_EXISTING, NO_ERROR},
      {R"(\\.\PhysicalDrive4)", GENERIC_READ, OPEN_EXISTING, ERROR_FILE_NOT_FOUND},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(OpenError(c.name, c.access, c.disposition), c.error) << c.name << " access " << c.access;
  }
  EXPECT_THAT(OpenError(R"(\\.\PhysicalDrive3)", GENERIC_WRITE, OPEN_EXISTING),
              testing::AnyOf(ERROR_WRITE_PROTECT, ERROR_ACCESS_DENIED))
      << "as the superuser or not";
}

TEST_F(DisksTest, RefuseOtherThanWholeSectorsOfTheirs) {
  std::filesystem::resize_file(Host("disk.img"), 8 * kSector + 100);
  Open(
      "[[disk]]\nnumber = 0\nimage = 'disk.img'\n[[disk]]\nnumber = 1\nimage = 'disk.img'\n"
      "geometry = { cylinders = 1, heads = 1, sectors = 1, bytes = 4096 }\n");
  const struct {
    const char *name;
    LONG position;
    DWORD size, error;
  } cases[] = {
      {R"(\\.\PhysicalDrive0)", 0, 511, ERROR_INVALID_PARAMETER},
      {R"(\\.\PhysicalDrive0)", 1, 512, ERROR_INVALID_PARAMETER},
      {R"(\\.\PhysicalDrive0)", 7 * 512, 1024, ERROR_SECTOR_NOT_FOUND},
      {R"(\\.\PhysicalDrive0)", 8 * 512, 512, ERROR_SECTOR_NOT_FOUND},
      {R"(\\.\PhysicalDrive0)", 0x7FFFFE00, 0xFFFFFE00, ERROR_SECTOR_NOT_FOUND},
      {R"(\\.\PhysicalDrive0)", 7 * 512, 512, NO_ERROR},
      {R"(\\.\PhysicalDrive1)", 0, 512, ERROR_INVALID_PARAMETER},
      {R"(\\.\PhysicalDrive1)", 512, 4096, ERROR_INVALID_PARAMETER},
      {R"(\\.\PhysicalDrive1)", 4096, 4096, ERROR_SECTOR_NOT_FOUND},
      {R"(\\.\PhysicalDrive1)", 0, 4096, NO_ERROR},
  };
  const std::string before = ReadFile("disk.img");
  std::string buffer(4096, '#');
  for (const auto &c : cases) {
    const HANDLE disk = OpenDisk(GENERIC_ALL, OPEN_EXISTING, c.name);
    for (const bool writes : {false, true}) {
      if (writes && c.error == NO_ERROR) continue;
      DWORD count = 7;
      SetFilePointer(disk, c.position, nullptr, FILE_BEGIN);
      const BOOL done = writes ? platform::WriteFile(disk, buffer.data(), c.size, &count, nullptr)
                               : platform::ReadFile(disk, buffer.data(), c.size, &count, nullptr);
      EXPECT_EQ(done ? NO_ERROR : GetLastError(), c.error) << c.name << ' ' << c.position << ' ' << c.size;
      EXPECT_EQ(count, c.error == NO_ERROR ? c.size : 0);
      const DWORD reached = static_cast<DWORD>(c.position) + count;
      EXPECT_EQ(SetFilePointer(disk, 0, nullptr, FILE_CURRENT), reached);
    }
    EXPECT_TRUE(CloseHandle(disk));
  }
  EXPECT_EQ(ReadFile("disk.img"), before);
}

// A host that takes no more than part of a write stands for a disk that breaks in the middle of one.
TEST_F(DisksTest, ABrokenWriteSaysHowFarItCame) {
  Open(kDisk0);
  const HANDLE disk = OpenDisk(GENERIC_ALL);
  const std::string before = ReadFile("disk.img"), written(2 * kSector, 'X');
  SetFilePointer(disk, 2 * kSector, nullptr, FILE_BEGIN);
  rlimit old = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
  const rlimit low = {3 * kSector + 100, old.rlim_max};
  const auto oldHandler = signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &low), 0);
  DWORD count = 0;
  const BOOL done = platform::WriteFile(disk, written.data(), 2 * kSector, &count, nullptr);
  const DWORD error = GetLastError();
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &old), 0);
  signal(SIGXFSZ, oldHandler);
  EXPECT_FALSE(done);
  EXPECT_EQ(error, ERROR_FILE_TOO_LARGE);
  EXPECT_EQ(count, kSector + 100);
  EXPECT_EQ(SetFilePointer(disk, 0, nullptr, FILE_CURRENT), 2 * kSector);
  EXPECT_EQ(ReadFile("disk.img"), std::string(before).replace(2 * kSector, count, count, 'X'));
  EXPECT_TRUE(CloseHandle(disk));
}

}  // namespace
