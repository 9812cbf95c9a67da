#include "bmext/load.h"

#include <cstring>
#include <memory>

#include "engine/base/parameters.h"
#include "engine/base/status.h"
#include "tests/support/test_machine.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

using Image = VXR_EXTIMAGE;

// Job 5, with the values that a test gives it.
class LoadTest : public MachineTest {
 protected:
  LoadTest() {
    block.szJobKey = key;
    gpVXRParaBlock = &block;
  }
  ~LoadTest() override {
    // What is current must not outlive the test: a refused image leaves none.
    VXR_EXTHEADER none = {};
    VXRExt_Initialize(0, &none);
    gpVXRParaBlock = nullptr;
    hStatusWnd = nullptr;
  }
  void OpenJob(const std::string &values) {
    Close();
    Open("[registry.'SOFTWARE\\Varnelt\\Relmar\\5']\nOther = 1\n" + values);
    hStatusWnd = static_cast<HWND>(window);
    dwWndFlags = 2;
    dwError = 0;
  }
  static std::unique_ptr<Image> MakeImage(uint32_t magic, const char *systemPath) {
    auto image = std::make_unique<Image>();
    std::memset(image.get(), 0, sizeof(Image));
    image->Header = {VxrPut32(magic), VxrPut32(VXR_EXT_VERSION)};
    image->Extension.SysInfo.SysOs.MajorVersion = VxrPut32(5);
    std::strcpy(image->Extension.SysInfo.SystemPath, systemPath);
    return image;
  }
  static std::string Bytes(const Image &image) { return {reinterpret_cast<const char *>(&image), sizeof(image)}; }

  char key[32] = "SOFTWARE\\Varnelt\\Relmar\\5";
  VXR_PARABLOCK block = {};
};

TEST_F(LoadTest, OverrideTakesTheFirstByteOfItsData) {
  struct {
    const char *values;
    DWORD major, architecture;
  } const rows[] = {
      {"HAL = '9'\n", 5, 57},
      {"OSVerMaj = 262\n", 6, 6},
      {"OSVerMaj = { type = 3, hex = 'FF 01' }\n", 255, 6},
      {"OSVerMaj = { type = 3, hex = '' }\nHAL = ''\n", 5, 0},  // a text is never without its terminator
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.values);
    OpenJob(row.values);
    auto image = MakeImage(VXR_EXT_MAGIC_HOT, "C:\\WINDOWS\\system32");
    image->Extension.SysInfo.SysOs.ProcessorArchitecture = VxrPut32(6);
    ASSERT_TRUE(VXRExt_Initialize(5, image.get()));
    EXPECT_EQ(VxrGet32(VXRExt_GetSysOsInfo()->MajorVersion), row.major);
    EXPECT_EQ(VxrGet32(VXRExt_GetSysOsInfo()->ProcessorArchitecture), row.architecture);
  }
}

TEST_F(LoadTest, FileIsMappedAndOverriddenOnDisk) {
  OpenJob("BMEFile = 'X:\\machine.bme'\nRootPath = 'E:\\'\nOSVerMin = 1\n");
  const auto image = MakeImage(VXR_EXT_MAGIC_COLD, "C:\\WINDOWS\\system32");
  image->Header.Version = VxrPut32(2);
  image->Extension.SysInfo.BootMedia = VxrPut32(VXR_BOOTMEDIA_RAM);
  WriteFile("ram/machine.bme", Bytes(*image));
  ASSERT_TRUE(VXRExt_Initialize(5, nullptr));
  EXPECT_STREQ(VXRExt_GetSystemPath(), "C:\\WINDOWS\\system32");
  EXPECT_STREQ(VXRExt_GetWindowsPath(), "E:\\");
  EXPECT_EQ(VXRExt_GetBootMedia(), DWORD{VXR_BOOTMEDIA_RAM});
  EXPECT_THAT(statusLines, Contains("Found Bare Metal extension with Magic = 0x654d6243 Version = 0x00000002\n"));
  EXPECT_TRUE(VXRExt_Cleanup());
  EXPECT_EQ(OpenHandles(), 0u);
  EXPECT_EQ(VXRExt_GetSysOsInfo(), nullptr);
  EXPECT_EQ(VXRExt_GetSystemPath(), nullptr);
  EXPECT_EQ(VXRExt_GetWindowsPath(), nullptr);
  EXPECT_EQ(VXRExt_GetBootMedia(), DWORD{VXR_BOOTMEDIA_UNKNOWN});

  std::strcpy(image->Extension.SysInfo.WindowsPath, "E:\\");
  image->Extension.SysInfo.SysOs.MinorVersion = VxrPut32(1);
  EXPECT_TRUE(ReadFile("ram/machine.bme") == Bytes(*image)) << "more than the overrides changed, or less";
}

TEST_F(LoadTest, HostsImageTakesTheFilesPlaceAndTheOverrides) {
  OpenJob("BMEFile = 'X:\\none.bme'\nHAL = 9\nRootPath = 'D:\\R'\n");
  const auto image = MakeImage(VXR_EXT_MAGIC_HOT, "");
  ASSERT_TRUE(VXRExt_Initialize(5, image.get()));
  EXPECT_THAT(log, Not(HasSubstr("BMEFile")));
  EXPECT_STREQ(image->Extension.SysInfo.SystemPath, "D:\\R\\system32");
  EXPECT_STREQ(image->Extension.SysInfo.WindowsPath, "D:\\R");
  EXPECT_EQ(VxrGet32(image->Extension.SysInfo.SysOs.ProcessorArchitecture), 9u);
  EXPECT_TRUE(VXRExt_Cleanup());
  EXPECT_STREQ(VXRExt_GetSystemPath(), "D:\\R\\system32");

  const auto wrong = MakeImage(0, "");
  EXPECT_FALSE(VXRExt_Initialize(5, wrong.get()));
  EXPECT_EQ(VXRExt_GetSystemPath(), nullptr);
  EXPECT_FALSE(VXRExt_CheckHeader(nullptr));
  EXPECT_THAT(log, HasSubstr("ERROR:VXRExt_CheckHeader:pBMEHead is NULL\n"));
}

TEST_F(LoadTest, PathsOfAHostileImageEndAtTheirField) {
  OpenJob("RootPath = 'D:'\n");
  const auto image = MakeImage(VXR_EXT_MAGIC_HOT, "");
  std::memset(image->Extension.SysInfo.SystemPath, 's', 260);
  std::memset(image->Extension.SysInfo.WindowsPath, 'w', 260);
  ASSERT_TRUE(VXRExt_Initialize(5, image.get()));
  EXPECT_EQ(VXRExt_GetSystemPath(), std::string(260, 's'));
  EXPECT_EQ(VXRExt_GetWindowsPath(), std::string(260, 'w'));
}

}  // namespace
