// The file search and its patterns.
#include <cstring>

#include "platform/machine/base/handles.h"
#include "platform/machine/text/wildcard.h"
#include "tests/support/test_machine.h"

namespace {

using namespace platform;

TEST(WildcardTest, MatchesAsWindowsDoes) {
  const struct {
    const char *pattern;
    std::vector<const char *> matches, others;
  } cases[] = {
      {"*", {"a", "a.b", ".", "..", "a.b.c", ""}, {}},
      {"*.*", {"a", "a.b", "."}, {}},
      {"*.inf", {"a.inf", "A.INF", ".inf", "a.b.inf"}, {"a.inf2", "ainf", "a.in", "a.inf.bak", "inf"}},
      {"*.", {"readme", ""}, {"a.b", "a.b.c"}},
      {"oem?.inf", {"oem1.inf", "OEM.inf"}, {"oem12.inf", "oe.inf"}},
      {"oem??.inf", {"oem1.inf", "oem.inf", "oem12.inf"}, {"oem123.inf"}},
      {"?", {"a"}, {"ab", "a.b"}},
      {"a?c", {"abc"}, {"ac", "a.c"}},
      {"foo.*", {"foo", "foo.", "foo.txt", "foo.a.b"}, {"foot", "fo"}},
      {"a*b*c", {"abc", "aXbYc", "abbcc"}, {"ab", "acb", "abcd"}},
      {"*a", {"a", "aa", "ba", "b.a"}, {"ab"}},
      {"*sys*", {"SYSTEM", "a.sys", "mysystem.ini"}, {"sy.s"}},
      {"\xC3\xA4*", {"\xC3\x84rger", "\xC3\xA4"}, {"arger"}},
  };
  for (const auto &c : cases) {
    const machine::NamePattern pattern = machine::MakePattern(c.pattern);
    for (const char *name : c.matches) EXPECT_TRUE(machine::MatchesPattern(pattern, name)) << c.pattern << " " << name;
    for (const char *name : c.others) EXPECT_FALSE(machine::MatchesPattern(pattern, name)) << c.pattern << " " << name;
  }
}

TEST(WildcardTest, ManyStarsTakeNoLongTime) {
  std::string stars;
  for (int i = 0; i < 100; ++i) stars += "*a";
  EXPECT_FALSE(machine::MatchesPattern(machine::MakePattern(stars + "b"), std::string(200, 'a')));
}

class SearchTest : public MachineTest {
 protected:
  // The name found, or "error N"; leaves no handle open.
  std::string Find(const char *pattern) {
    const std::size_t before = machine::OpenHandles();
    std::memset(&data, 0xEE, sizeof data);
    const HANDLE search = FindFirstFileA(pattern, &data);
    if (search == INVALID_HANDLE_VALUE) return "error " + std::to_string(GetLastError());
    EXPECT_TRUE(FindClose(search));
    EXPECT_EQ(machine::OpenHandles(), before);
    return data.cFileName;
  }

  WIN32_FIND_DATAA data;
};

TEST_F(SearchTest, StaysOnTheDrive) {
  WriteFile("restored/Windows/inf/Mshdc.INF", "12345");
  WriteFile("secret/a.txt", "");
  std::filesystem::create_symlink("../secret", Host("restored/out"));
  std::filesystem::create_symlink("Windows/inf/Mshdc.INF", Host("restored/link.inf"));
  Open();
  const struct {
    const char *pattern, *expected;
  } cases[] = {
      {R"(D:\out\*)", "error 5"},       {R"(D:\out\a.txt)", "error 5"}, {R"(D:\LINK.inf)", "LINK.inf"},
      {R"(D:\..\secret\*)", "error 5"}, {nullptr, "error 3"},
  };
  for (const auto &c : cases) EXPECT_EQ(Find(c.pattern), c.expected) << (c.pattern ? c.pattern : "null");
  EXPECT_EQ(FindFirstFileA(R"(D:\*)", nullptr), INVALID_HANDLE_VALUE);
}

}  // namespace
