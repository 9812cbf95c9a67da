#include "log/product.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/support/own_code_page.h"

namespace {

TEST(ProductTest, CutsOneTrailingBackslashThatIsACharacter) {
  const struct {
    const char *path;
    const char *cut;
    bool japanese = false;
  } cases[] = {
      {"C:\\Product\\", "C:\\Product"},
      {"C:\\Product", "C:\\Product"},
      {"C:\\\\", "C:\\"},
      {"", ""},
      {"\\", ""},
      {"C:\\\x95\x5C", "C:\\\x95\x5C", true},  // a two-byte character that ends in the backslash's value
      {"C:\\\x95\x5C\\", "C:\\\x95\x5C", true},
      {"C:\\\x95", "C:\\\x95", true},
  };
  for (const auto &c : cases) {
    if (!UseCodePage(932) && c.japanese) continue;
    char path[32] = "";
    std::copy_n(c.path, std::char_traits<char>::length(c.path), path);
    RemoveTrailingBackslash(path);
    EXPECT_STREQ(path, c.cut);
  }
  machine::SetCodePage(machine::kDefaultCodePage);
}

}  // namespace
