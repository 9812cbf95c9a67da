#include "engine/paths/path_catalogue.h"

#include <cstring>

#include "bmext/load.h"
#include "engine/base/parameters.h"
#include "restore/settings.h"
#include "tests/support/test_machine.h"

namespace {

using testing::HasSubstr;

class PathCatalogueTest : public MachineTest {
 protected:
  PathCatalogueTest() {
    block.szWindowsPath = windows;
    block.szSystemPath = system;
    block.szVrnltPath = product;
    settings.szRootPath = root;
    settings.szInfDir = infDir;
    gpVXRParaBlock = &block;
    gpVXRBMRestore = &settings;
  }
  ~PathCatalogueTest() override {
    // What is current must not outlive the test: a refused image leaves none.
    VXR_EXTHEADER none = {};
    VXRExt_Initialize(0, &none);
    gpVXRParaBlock = nullptr;
    gpVXRBMRestore = nullptr;
  }
  void TakeExtension(const char *systemPath, const char *windowsPath) {
    std::strcpy(image.Extension.SysInfo.SystemPath, systemPath);
    std::strcpy(image.Extension.SysInfo.WindowsPath, windowsPath);
    image.Header.Magic = VxrPut32(VXR_EXT_MAGIC_HOT);
    ASSERT_TRUE(VXRExt_Initialize(0, &image));
  }

  char windows[16] = "X:\\Windows", system[32] = "X:\\Windows\\System32", product[8] = "C:\\P";
  char infDir[16] = "X:\\drivers", root[8] = "E:\\";
  VXR_PARABLOCK block = {};
  VXR_BMRESTORE settings = {};
  VXR_EXTIMAGE image = {};
};

TEST_F(PathCatalogueTest, EveryIdHasItsPath) {
  Open();
  TakeExtension("C:\\WINDOWS\\system32", "C:\\WINDOWS");
  struct {
    DWORD id;
    const char *named, *bare;
  } const rows[] = {
      {VXR_DIR_RLMINF, "X:\\drivers\\n", "X:\\drivers"},
      {VXR_DIR_VXRDRV, "C:\\P\\vxr.dir\\2k3\\drv\\n", "C:\\P\\vxr.dir\\2k3\\drv"},
      {VXR_FILE_REGIMPORT, "C:\\P\\profiles.dir\\vxrimport.reg", "C:\\P\\profiles.dir\\vxrimport.reg"},
      {VXR_FILE_DKPART, "C:\\P\\profiles.dir\\vxrdkpart.txt", "C:\\P\\profiles.dir\\vxrdkpart.txt"},
      {4, nullptr, nullptr},
      {VXR_DIR_PRODUCT, "C:\\P\\n", "C:\\P"},
      {VXR_DIR_WININF, "E:\\WINDOWS\\inf\\n", "E:\\WINDOWS\\inf"},
      {VXR_DIR_WINDRV, "E:\\WINDOWS\\system32\\drivers\\n", "E:\\WINDOWS\\system32\\drivers"},
      {VXR_DIR_WINCFG, "E:\\WINDOWS\\system32\\config\\n", "E:\\WINDOWS\\system32\\config"},
      {VXR_DIR_WINSYS, "E:\\WINDOWS\\system32\\n", "E:\\WINDOWS\\system32"},
      {VXR_DIR_WPEINF, "X:\\Windows\\inf\\n", "X:\\Windows\\inf"},
      {VXR_DIR_WPEDRV, "X:\\Windows\\System32\\drivers\\n", "X:\\Windows\\System32\\drivers"},
      {VXR_DIR_WPESYS, "X:\\Windows\\System32\\n", "X:\\Windows\\System32"},
      {VXR_STR_SERVICES, "n.Services", nullptr},
      {14, nullptr, nullptr},
      {0xFFFFFFFF, nullptr, nullptr},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.id);
    for (const char *name : {"n", static_cast<const char *>(nullptr)}) {
      const char *expected = name == nullptr ? row.bare : row.named;
      log.clear();
      const HeapText path = VXREng_GetStringAs(row.id, name);
      EXPECT_STREQ(path.get(), expected);
      if (expected != nullptr) {
        ASSERT_NE(path, nullptr);
        EXPECT_EQ(path.get()[std::strlen(expected) + 1], '\0') << "not closed as a multi-string";
      } else {
        EXPECT_THAT(log, HasSubstr("CHECK:VXREng_GetStringAs:AllocHeap(0 bytes) failed for type "));
      }
      EXPECT_THAT(log,
                  testing::EndsWith("FLUSH:VXREng_GetStringAs:___LEAVE___\nFLUSH:VXREng_GetStringAs:___LEAVE___\n"));
    }
  }
  log.clear();
  VXREng_GetStringAs(14, nullptr);
  EXPECT_THAT(log, HasSubstr("CHECK:VXREng_GetStringAs:UNKNOWN!\n"));
  VXREng_GetStringAs(VXR_DIR_WINCFG, "system");
  EXPECT_THAT(log, HasSubstr("VXR_DIR_WINCFG:E:\\WINDOWS\\system32\\config\\system:C:\\WINDOWS\\system32\n"));

  gpVXRBMRestore = nullptr;
  EXPECT_STREQ(VXREng_GetStringAs(VXR_DIR_WINSYS, nullptr).get(), "C:\\WINDOWS\\system32");
  EXPECT_EQ(VXREng_GetStringAs(VXR_DIR_RLMINF, nullptr), nullptr);
  gpVXRParaBlock = nullptr;
  for (DWORD id = 0; id < 16; ++id) EXPECT_EQ(VXREng_GetStringAs(id, "n"), nullptr);
  EXPECT_THAT(log, HasSubstr("ERROR:VXREng_GetStringAs:gpVXRParaBlock is NULL\n"));
}

}  // namespace
