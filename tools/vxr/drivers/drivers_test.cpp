// How the command line's texts name systems and PCI functions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/architecture.h"
#include "rescue/windows_ids.h"
#include "tools/vxr/drivers/target_text.h"

namespace {

using testing::ElementsAre;

std::string ReadTarget(const std::string &text) {
  VXRDRV_TARGET t = {};
  std::string problem;
  if (!ParseTarget(text, &t, &problem)) return problem.substr(0, problem.find(';'));
  std::string all = ArchitectureName(t.architecture);
  for (const std::uint32_t number : {t.major, t.minor, t.build, t.product, t.suite})
    all += " " + std::to_string(number);
  return all;
}

TEST(TargetText, IsReadWholeOrNotAtAll) {
  const std::string form = "give MAJOR.MINOR[.BUILD]-ARCH[-PRODUCT[-SUITE]], such as 10.0.19045-amd64";
  const std::string product = " is no product", suite = " is no suite";
  for (const auto &[text, expected] : std::initializer_list<std::pair<const char *, std::string>>{
           {"10.0.19045-amd64", "amd64 10 0 19045 1 0"},
           {"6.1-X86", "x86 6 1 0 1 0"},
           {"5.2.3790-ia64-3-0x112", "ia64 5 2 3790 3 274"},
           {"10.0.22000-Arm64-2-274", "arm64 10 0 22000 2 274"},
           {"10.0.19045.1-amd64", form},
           {"10-amd64", form},
           {"10.0", form},
           {"-10.0-amd64", form},
           {"10.0.4294967296-amd64", form},
           {"10.0.-amd64", form},
           {"10.0-amd64-1-0-0", form},
           {"", form},
           {"4.0-x86", "Windows before 5.0 reads no such INF files"},
           {"10.0-x64", "\"x64\" is no architecture"},
           {"10.0-amd64-0", "\"0\"" + product},
           {"10.0-amd64-4", "\"4\"" + product},
           {"10.0-amd64-", "\"\"" + product},
           {"10.0-amd64-1-", "\"\"" + suite},
           {"10.0-amd64-1-0x", "\"0x\"" + suite},
       }) {
    EXPECT_EQ(ReadTarget(text), expected) << text;
  }
}

TEST(PciIds, AreThoseOfWindows) {
  rescue::PciFunction function;
  ASSERT_TRUE(rescue::ParsePciFunction("8086:2822:1028:04f7:05 0x010400", &function));
  EXPECT_THAT(rescue::HardwareIds(function),
              ElementsAre("PCI\\VEN_8086&DEV_2822&SUBSYS_04F71028&REV_05", "PCI\\VEN_8086&DEV_2822&SUBSYS_04F71028",
                          "PCI\\VEN_8086&DEV_2822&CC_010400", "PCI\\VEN_8086&DEV_2822&CC_0104"));
  EXPECT_THAT(rescue::CompatibleIds(function),
              ElementsAre("PCI\\VEN_8086&DEV_2822&REV_05", "PCI\\VEN_8086&DEV_2822", "PCI\\VEN_8086&CC_010400",
                          "PCI\\VEN_8086&CC_0104", "PCI\\VEN_8086", "PCI\\CC_010400", "PCI\\CC_0104"));
  ASSERT_TRUE(rescue::ParsePciFunction("8086:2822  0104", &function));
  EXPECT_THAT(rescue::HardwareIds(function), ElementsAre("PCI\\VEN_8086&DEV_2822&CC_0104"));
  ASSERT_TRUE(rescue::ParsePciFunction("8086:2822", &function));
  EXPECT_THAT(rescue::HardwareIds(function), ElementsAre("PCI\\VEN_8086&DEV_2822"));
  EXPECT_THAT(rescue::CompatibleIds(function), ElementsAre("PCI\\VEN_8086&DEV_2822", "PCI\\VEN_8086"));
  for (const char *text : {"", "8086", "8086:", "8086:282", "8086:2822:1028", "8086:2822:1028:04F7:5", "8086:2822:::05",
                           "8086:2822:1028:04F7:05:01", "8086:2822 ", "8086:2822 01", "8086:2822 01040", "8086:282G",
                           "8086:2822 0104 00", "+086:2822", "0x86:2822"}) {
    EXPECT_FALSE(rescue::ParsePciFunction(text, &function)) << text;
  }
}

}  // namespace
