#include "log/product.h"

#include "tests/support/test_machine.h"

namespace {

class ProductTest : public MachineTest {};

TEST_F(ProductTest, CutsOneTrailingBackslashThatIsACharacter) {
  Open("",
       "[system]\nsystem_directory = 'X:\\Windows\\System32'\nwindows_directory = 'X:\\Windows'\n"
       "os = { major = 6, minor = 1, build = 7601, platform = 2 }\nprocessor = { count = 2, architecture = 9 }\n"
       "memory = 8589934592\ncode_page = 932\n");
  const struct {
    const char *path;
    const char *cut;
  } cases[] = {
      {"C:\\Product\\", "C:\\Product"},   {"C:\\Product", "C:\\Product"}, {"C:\\\\", "C:\\"}, {"", ""}, {"\\", ""},
      {"C:\\\x95\x5C", "C:\\\x95\x5C"},  // a two-byte character that ends in the backslash's value
      {"C:\\\x95\x5C\\", "C:\\\x95\x5C"}, {"C:\\\x95", "C:\\\x95"}};
  for (const auto &c : cases) {
    char path[32] = "";
    std::copy_n(c.path, std::char_traits<char>::length(c.path), path);
    RemoveTrailingBackslash(path);
    EXPECT_STREQ(path, c.cut);
  }
}

}  // namespace
