#include "platform/machine/setup/decoration.h"

#include <gtest/gtest.h>

namespace machine {
namespace {

System SystemOf(DWORD architecture, DWORD major, DWORD minor, DWORD servicePack = 0) {
  System system;
  system.processorArchitecture = architecture;
  system.osMajor = major;
  system.osMinor = minor;
  system.osBuild = 7601;
  system.servicePackMajor = servicePack;
  system.product = 1;
  system.suite = 0x110;
  return system;
}

constexpr DWORD kX86 = 0, kIa64 = 6, kAmd64 = 9;

TEST(Decoration, FitsBySystem) {
  const System win7 = SystemOf(kAmd64, 6, 1, 1);
  const System win7x86 = SystemOf(kX86, 6, 1, 1);
  const System xp64 = SystemOf(kAmd64, 5, 2);  // before the service pack
  const System xp64sp1 = SystemOf(kAmd64, 5, 2, 1);
  const System itanium = SystemOf(kIa64, 6, 0);
  const struct {
    const char *decoration;
    const System &system;
    bool fits;
  } cases[] = {
      {"NTamd64", win7, true},
      {"ntAMD64.6.1", win7, true},
      {"NTamd64.6.0", win7, true},
      {"NTamd64.5.9", win7, true},
      {"NTamd64.6.2", win7, false},
      {"NTamd64.7", win7, false},
      {"NTamd64.6", win7, true},
      {"NTamd64.0x6.0x1", win7, true},
      {"NTx86", win7, false},
      {"NTia64", win7, false},
      {"NTia64", itanium, true},
      {"NT", win7, false},
      {"NT", win7x86, true},
      {"NT", xp64, true},
      {"NT", xp64sp1, false},
      {"NT.6.1", win7x86, true},
      {"NT.6.1", win7, false},
      {"NTamd64.6.1.1", win7, true},
      {"NTamd64.6.1.0x1", win7, true},
      {"NTamd64.6.1.3", win7, false},
      {"NTamd64...1", win7, true},
      {"NTamd64...3", win7, false},
      {"NTamd64.6.1..0x10", win7, true},
      {"NTamd64.6.1..0x110", win7, true},
      {"NTamd64.6.1..0x2", win7, false},
      {"NTamd64.6.1..0x12", win7, false},
      {"NTamd64.6.1...7601", win7, true},
      {"NTamd64.6.1...7602", win7, false},
      {"NTamd64.6.0...9999", win7, true},
  };
  for (const auto &one : cases) {
    Decoration decoration;
    ASSERT_TRUE(ParseDecoration(one.decoration, &decoration)) << one.decoration;
    EXPECT_EQ(Fits(decoration, one.system), one.fits) << one.decoration;
  }
}

TEST(Decoration, RefusesOtherForms) {
  for (const char *text : {"", "n", "amd64", "NT$ARCH$", "NTmips", "NT.x", "NTamd64.6.1.1.1.1.1", "NTamd64.-1",
                           "NTamd64.0x", "NTamd64.6 .1", "NTamd64.99999999999"}) {
    Decoration decoration;
    EXPECT_FALSE(ParseDecoration(text, &decoration)) << text;
  }
}

}  // namespace
}  // namespace machine
