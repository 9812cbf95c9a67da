// The file search and its patterns.
#include <cstring>

#include "platform/machine/base/handles.h"
#include "platform/machine/text/wildcard.h"
#include "tests/support/test_machine.h"

namespace {

using namespace platform;

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
