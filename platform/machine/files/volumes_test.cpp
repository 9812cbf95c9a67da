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
