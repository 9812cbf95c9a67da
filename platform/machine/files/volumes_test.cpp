// Drives and volumes: roots, facts, names, requests.
#include <cstring>

#include "tests/support/handles_test.h"

namespace {

using namespace platform;

constexpr const char *kDrives = R"(
[[drive]]
root = 'C:\'
type = 'fixed'
path = 'restored'
label = 'System'
file_system = 'NTFS'
serial = 0xDEADBEEF
flags = 0x700FF
max_component = 200
guid_path = '\\?\Volume{6f1c2a30-55d1-11df-9a3e-806e6f6e6963}\'
device_name = '\Device\Vol'
unique_id = '01 02 03'
extents = [{ disk = 0, start = 1048576, length = 64420311040 }, { disk = 7, start = 0, length = 512 }]

[[drive]]
root = 'B:\'
type = 'cdrom'
guid_path = '\\?\Volume{00000000-0000-0000-0000-00000000000b}'
)";
constexpr const char *kVolumeC = R"(\\?\Volume{6F1C2A30-55D1-11DF-9A3E-806E6F6E6963})";
constexpr const char *kVolumeB = R"(\\?\Volume{00000000-0000-0000-0000-00000000000b})";

class VolumesTest : public HandlesTest {
 protected:
  static HANDLE OpenVolume(const char *name, DWORD access = 0, DWORD disposition = OPEN_EXISTING) {
    return CreateFileA(name, access, FILE_SHARE_READ, nullptr, disposition, 0, nullptr);
  }
};

TEST_F(VolumesTest, RootsComeByLetter) {
  Open(kDrives);
  constexpr char kRoots[] = "B:\\\0C:\\\0D:\\\0X:\\\0";
  char buffer[32];
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(GetLogicalDriveStringsA(0, nullptr), 17u);
  EXPECT_EQ(GetLogicalDriveStringsA(16, buffer), 17u);
  EXPECT_EQ(buffer[0], '#');
  EXPECT_EQ(GetLogicalDriveStringsA(17, buffer), 16u);
  EXPECT_EQ(std::memcmp(buffer, kRoots, 17), 0);
  EXPECT_EQ(buffer[17], '#');
}

TEST_F(VolumesTest, TellTheirFacts) {
  Open(kDrives);
  char label[16] = {}, fileSystem[16] = {};
  DWORD serial = 0, longest = 0, flags = 0;
  ASSERT_TRUE(GetVolumeInformationA("c:\\", label, 16, &serial, &longest, &flags, fileSystem, 16));
  EXPECT_STREQ(label, "System");
  EXPECT_STREQ(fileSystem, "NTFS");
  EXPECT_EQ(serial, 0xDEADBEEF);
  EXPECT_EQ(longest, 200u);
  EXPECT_EQ(flags, 0x700FFu);
  const struct {
    const char *root;
    DWORD labelSize, fileSystemSize, error;
  } cases[] = {
      {"C:\\", 7, 5, NO_ERROR},
      {"C:\\", 6, 5, ERROR_BAD_LENGTH},
      {"C:\\", 7, 4, ERROR_BAD_LENGTH},
      {"C:\\", 0, 16, ERROR_BAD_LENGTH},
      {"B:\\", 16, 16, ERROR_NOT_READY},
      {"Q:\\", 16, 16, ERROR_PATH_NOT_FOUND},
      {"C:\\Windows\\", 16, 16, ERROR_PATH_NOT_FOUND},
      {"\\", 16, 16, ERROR_PATH_NOT_FOUND},
      {"C:", 16, 16, ERROR_INVALID_NAME},
      {"", 16, 16, ERROR_INVALID_NAME},
      {nullptr, 16, 16, ERROR_INVALID_NAME},
  };
  for (const auto &c : cases) {
    label[0] = '#';
    const BOOL told =
        GetVolumeInformationA(c.root, label, c.labelSize, nullptr, nullptr, nullptr, fileSystem, c.fileSystemSize);
    EXPECT_EQ(told ? NO_ERROR : GetLastError(), c.error) << (c.root ? c.root : "null") << ' ' << c.labelSize;
    EXPECT_EQ(label[0] != '#', c.error == NO_ERROR);
  }
  EXPECT_TRUE(GetVolumeInformationA("C:\\", nullptr, 0, nullptr, nullptr, nullptr, nullptr, 0));
}

TEST_F(VolumesTest, NamesEndInABackslash) {
  Open(kDrives);
  const struct {
    const char *root;
    DWORD size, error;
  } cases[] = {{"C:\\", 50, NO_ERROR},
               {"b:\\", 50, NO_ERROR},
               {"C:\\", 49, ERROR_FILENAME_EXCED_RANGE},
               {"B:\\", 49, ERROR_FILENAME_EXCED_RANGE},
               {"X:\\", 64, ERROR_FILE_NOT_FOUND},
               {"Q:\\", 64, ERROR_PATH_NOT_FOUND},
               {"C:", 64, ERROR_INVALID_NAME}};
  for (const auto &c : cases) {
    char name[64] = "";
    const BOOL told = GetVolumeNameForVolumeMountPointA(c.root, name, c.size);
    EXPECT_EQ(told ? NO_ERROR : GetLastError(), c.error) << c.root << ' ' << c.size;
    EXPECT_EQ(std::strlen(name), c.error == NO_ERROR ? 49u : 0u);
    EXPECT_EQ(name[48], c.error == NO_ERROR ? '\\' : '\0');
  }
}

TEST_F(VolumesTest, OpenByGuidPath) {
  Open(kDrives);
  const struct {
    std::string name;
    DWORD access, disposition, error;
  } cases[] = {
      {kVolumeC, 0, OPEN_EXISTING, NO_ERROR},
      {kVolumeB, 0, OPEN_EXISTING, NO_ERROR},
      {kVolumeC, GENERIC_READ, OPEN_EXISTING, ERROR_ACCESS_DENIED},
      {kVolumeC, 0, OPEN_ALWAYS, ERROR_INVALID_PARAMETER},
      {std::string(kVolumeC) + "\\", 0, OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
      {std::string(kVolumeB) + "\\", 0, OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
      {std::string(kVolumeC) + "\\\\", 0, OPEN_EXISTING, ERROR_FILE_NOT_FOUND},
      {R"(\\?\Volume{00000000-0000-0000-0000-000000000000})", 0, OPEN_EXISTING, ERROR_FILE_NOT_FOUND},
      {R"(\\?\)", 0, OPEN_EXISTING, ERROR_FILE_NOT_FOUND},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(OpenError(c.name.c_str(), c.access, c.disposition), c.error) << c.name << ' ' << c.access;
  }
}

// An answer is cut where the buffer is: what fits of it is told, and no byte behind the buffer is touched.
TEST_F(VolumesTest, AnswerRequestsBySize) {
  Open(kDrives);
  const HANDLE volume = OpenVolume(kVolumeC);
  const std::string id("\3\0\1\2\3", 5);
  const std::string name("\x16\0\\\0D\0e\0v\0i\0c\0e\0\\\0V\0o\0l\0", 24);
  const std::string count("\2\0\0\0\0\0\0\0", 8);
  const std::string extents = count + std::string("\0\0\0\0\0\0\0\0\0\0\x10\0\0\0\0\0\0\xF0\xBF\xFF\xE\0\0\0", 24) +
                              std::string("\7\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\2\0\0\0\0\0\0", 24);
  const struct {
    DWORD code, size, error;
    std::string answer;
  } cases[] = {
      {IOCTL_MOUNTDEV_QUERY_UNIQUE_ID, 260, NO_ERROR, id},
      {IOCTL_MOUNTDEV_QUERY_UNIQUE_ID, 5, NO_ERROR, id},
      {IOCTL_MOUNTDEV_QUERY_UNIQUE_ID, 4, ERROR_MORE_DATA, id.substr(0, 2)},
      {IOCTL_MOUNTDEV_QUERY_UNIQUE_ID, 2, ERROR_MORE_DATA, id.substr(0, 2)},
      {IOCTL_MOUNTDEV_QUERY_UNIQUE_ID, 1, ERROR_INSUFFICIENT_BUFFER, ""},
      {IOCTL_MOUNTDEV_QUERY_DEVICE_NAME, 24, NO_ERROR, name},
      {IOCTL_MOUNTDEV_QUERY_DEVICE_NAME, 23, ERROR_MORE_DATA, name.substr(0, 2)},
      {IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, 56, NO_ERROR, extents},
      {IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, 55, ERROR_MORE_DATA, count},
      {IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, 32, ERROR_MORE_DATA, count},
      {IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, 31, ERROR_INSUFFICIENT_BUFFER, count},
      {IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, 7, ERROR_INSUFFICIENT_BUFFER, ""},
      {IOCTL_DISK_GET_DRIVE_GEOMETRY, 260, ERROR_INVALID_FUNCTION, ""},
  };
  for (const auto &c : cases) {
    std::string out(260, '#');
    DWORD returned = 99;
    const BOOL told = DeviceIoControl(volume, c.code, nullptr, 0, out.data(), c.size, &returned, nullptr);
    EXPECT_EQ(told ? NO_ERROR : GetLastError(), c.error) << std::hex << c.code << ' ' << c.size;
    EXPECT_EQ(returned, c.answer.size()) << std::hex << c.code << ' ' << c.size;
    EXPECT_EQ(out, c.answer + std::string(260 - c.answer.size(), '#')) << std::hex << c.code << ' ' << c.size;
    EXPECT_FALSE(DeviceIoControl(volume, c.code, nullptr, 0, nullptr, c.size, &returned, nullptr));
  }
  EXPECT_TRUE(CloseHandle(volume));
}

TEST_F(VolumesTest, DoNotKnowWhatIsNotDescribed) {
  Open(kDrives);
  const HANDLE volume = OpenVolume(kVolumeB);
  BYTE out[260];
  for (const DWORD code :
       {IOCTL_MOUNTDEV_QUERY_UNIQUE_ID, IOCTL_MOUNTDEV_QUERY_DEVICE_NAME, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS}) {
    EXPECT_FALSE(DeviceIoControl(volume, code, nullptr, 0, out, sizeof out, nullptr, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_FUNCTION);
  }
  Close();
  EXPECT_FALSE(DeviceIoControl(volume, IOCTL_MOUNTDEV_QUERY_UNIQUE_ID, nullptr, 0, out, sizeof out, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_NOT_READY) << "its machine is closed";
  EXPECT_TRUE(CloseHandle(volume));
}

}  // namespace
