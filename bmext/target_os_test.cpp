#include "bmext/target_os.h"

#include <cstring>

#include "bmext/load.h"
#include "engine/base/strings.h"
#include "tests/support/test_machine.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class TargetOsTest : public MachineTest {
 protected:
  ~TargetOsTest() override {
    // What is current must not outlive the test: a refused image leaves none.
    VXR_EXTHEADER none = {};
    VXRExt_Initialize(0, &none);
  }
  // Makes an extension with these numbers current and asks for its decorations.
  std::vector<std::string> Decorations(DWORD major, DWORD minor, DWORD product, DWORD suite, DWORD architecture) {
    image.Header.Magic = VxrPut32(VXR_EXT_MAGIC_HOT);
    VXR_SYSOSINFO *os = &image.Extension.SysInfo.SysOs;
    os->MajorVersion = VxrPut32(major);
    os->MinorVersion = VxrPut32(minor);
    os->ProductType = VxrPut32(product);
    os->SuiteMask = VxrPut32(suite);
    os->ProcessorArchitecture = VxrPut32(architecture);
    EXPECT_TRUE(VXRExt_Initialize(0, &image));
    log.clear();
    const HeapText list = VXRExt_GetTargetOS();
    std::vector<std::string> texts;
    for (int i = 1; const char *text = VXREng_GetSubString(i, list.get()); ++i) texts.emplace_back(text);
    return texts;
  }

  VXR_EXTIMAGE image = {};
};

TEST_F(TargetOsTest, ListRunsFromTheMostSpecificToTheMostGeneral) {
  Open();
  EXPECT_THAT(Decorations(5, 1, 1, 0x100, 0),
              ElementsAre("ntx86.5.1.0x1.0x100", "nt.5.1.0x1.0x100", "ntx86.5.1.0x1", "nt.5.1.0x1", "ntx86.5.1",
                          "nt.5.1", "ntx86.5", "nt.5", "ntx86", "nt"));
  EXPECT_THAT(log, HasSubstr("CHECK:MultiStrCat:append ntx86.5.1.0x1.0x100("));
  EXPECT_THAT(log, HasSubstr("\t\t[(10):nt]\n"));
  EXPECT_THAT(Decorations(5, 2, 3, 0x112, 9),
              ElementsAre("ntamd64.5.2.0x3.0x112", "nt.5.2.0x3.0x112", "ntamd64.5.2.0x3", "nt.5.2.0x3", "ntamd64.5.2",
                          "nt.5.2", "ntamd64.5", "nt.5", "ntamd64", "nt"));
  EXPECT_EQ(Decorations(6, 0, 1, 0, 6).at(0), "ntia64.6.0.0x1.0x0");
  EXPECT_EQ(Decorations(5, 0, 0, 0, 0).size(), 10u);
  // 35 characters: the longest that fit.
  EXPECT_EQ(Decorations(10, 10, 0x12345678, 0x12345678, 9).at(0), "ntamd64.10.10.0x12345678.0x12345678");
}

TEST_F(TargetOsTest, UnsupportedSystemsHaveNoList) {
  Open();
  struct {
    DWORD major, minor, product, architecture;
    const char *line;
  } const rows[] = {
      {4, 9, 1, 0, "WARNG:VXRExt_GetTargetOS:major version:0x4 too low to support target os!\n"},
      {0, 0, 1, 0, "WARNG:VXRExt_GetTargetOS:major version:0x0 too low to support target os!\n"},
      {6, 1, 1, 5, "ERROR:VXRExt_GetTargetOS:unknwon processor arch type= 5\n"},
      {6, 1, 1, 57, "ERROR:VXRExt_GetTargetOS:unknwon processor arch type= 57\n"},
      {4294967295, 4294967295, 1, 9, "ERROR:VXRExt_GetTargetOS:version numbers too large for a decoration"},
      {100, 10, 0x12345678, 9, "ERROR:VXRExt_GetTargetOS:version numbers too large for a decoration"},
  };
  for (const auto &row : rows) {
    EXPECT_TRUE(Decorations(row.major, row.minor, row.product, 0x12345678, row.architecture).empty());
    EXPECT_THAT(log, HasSubstr(row.line));
  }
  image.Header.Magic = VxrPut32(0);
  EXPECT_FALSE(VXRExt_Initialize(0, &image));
  EXPECT_EQ(VXRExt_GetTargetOS(), nullptr);
  EXPECT_THAT(log, HasSubstr("ERROR:VXRExt_GetTargetOS:VXRExt_GetSysOsInfo():failed!"));
}

}  // namespace
