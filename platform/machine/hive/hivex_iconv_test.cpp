#include <gtest/gtest.h>
#include <iconv.h>

#include <cerrno>
#include <tuple>

#include "platform/text/code_page.h"

// Ours, built under names of their own.
extern "C" {
iconv_t own_iconv_open(const char *to, const char *from);
size_t own_iconv(iconv_t converter, char **in, size_t *inLeft, char **out, size_t *outLeft);
}

namespace {

TEST(HivexIconvTest, ConvertsAsTheCLibraryDoes) {
  const auto convert = [](auto function, iconv_t converter, std::string text, std::size_t room) {
    std::string result(room, '\0');
    char *in = text.data(), *out = result.data();
    std::size_t inLeft = text.size(), outLeft = room;
    iconv_t state = converter;
    function(state, nullptr, nullptr, nullptr, nullptr);
    errno = 0;
    const std::size_t returned = function(state, &in, &inLeft, &out, &outLeft);
    return std::tuple(returned, errno, inLeft, in - text.data(), out - result.data(), result);
  };
  const std::pair<const char *, const char *> ways[] = {
      {"UTF-8", "LATIN1"}, {"UTF-8", "UTF-16LE"}, {"LATIN1", "UTF-8"}, {"UTF-16LE", "UTF-8"}};
  for (const auto &[to, from] : ways) {
    const iconv_t own = own_iconv_open(to, from), system = iconv_open(to, from);
    for (unsigned unit = 0; unit < 0x10000; unit++) {
      const std::u16string texts[] = {{static_cast<char16_t>(unit)}, {u'a', static_cast<char16_t>(unit), 0xDE01, u'b'}};
      for (const std::u16string &units : texts) {
        std::string text(reinterpret_cast<const char *>(units.data()), 2 * units.size());
        if (from == std::string_view("UTF-8")) text = machine::Utf16ToUtf8(units);
        for (const std::size_t room : {12, 2}) {
          ASSERT_EQ(convert(own_iconv, own, text, room), convert(iconv, system, text, room)) << to << ' ' << unit;
        }
      }
    }
    iconv_close(system);
  }
  EXPECT_EQ(own_iconv_open("UTF-8", "CP1252"), reinterpret_cast<iconv_t>(-1));
}

}  // namespace
