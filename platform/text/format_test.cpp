#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/text/shell_word.h"
#include "tests/support/own_code_page.h"

namespace {

// What is left of `size` bytes of buffer, and the count.
std::string Format(int *count, std::size_t size, const char *format, ...) {
  std::vector<char> buffer(size, '\x7F');
  va_list arguments;
  va_start(arguments, format);
  *count = platform::FormatText(buffer.data(), size, format, arguments);
  va_end(arguments);
  return size == 0 ? "" : std::string(buffer.data(), strnlen(buffer.data(), size));
}

template <typename... Arguments>
std::string Text(const char *format, Arguments... arguments) {
  int count = 0;
  const std::string text = Format(&count, 256, format, arguments...);
  EXPECT_EQ(count, static_cast<int>(text.size())) << format;
  return text;
}

void *Address(std::uintptr_t number) { return reinterpret_cast<void *>(number); }

TEST(FormatText, Numbers) {
  EXPECT_EQ(Text("%d|%i|%u", -5, 7, 4294967295u), "-5|7|4294967295");
  EXPECT_EQ(Text("%5d|%-5d|%05d|%+d|% d", 42, 42, 42, 42, 42), "   42|42   |00042|+42| 42");
  EXPECT_EQ(Text("%05d|%+05d|%-05d|", -42, 42, 42), "-0042|+0042|42   |");
  EXPECT_EQ(Text("%.3d|%6.3d|%-6.3d", 7, 7, 7), "007|   007|007   ");
  EXPECT_EQ(Text("[%.0d][%.0d][%.d]", 0, 1, 0), "[][1][]");
  EXPECT_EQ(Text("%x|%X|%08X|%#x|%#X|%#x", 0xbeefu, 0xbeefu, 0xbeefu, 0xbeefu, 0xbeefu, 0u),
            "beef|BEEF|0000BEEF|0xbeef|0XBEEF|0");
  EXPECT_EQ(Text("%#08x|%#o|%o|%#o", 0xbeu, 8u, 8u, 0u), "0x0000be|010|10|0");
  EXPECT_EQ(Text("%*d|%-*d|%*d|%.*d", 4, 1, 4, 1, -4, 1, 3, 1), "   1|1   |1   |001");
  EXPECT_EQ(Text("%.*d|%.*s", -1, 1, -1, "all"), "1|all");
}

TEST(FormatText, SizesOfNumbers) {
  const std::uint64_t big = 0xFEDCBA9876543210;
  EXPECT_EQ(Text("%I64u %I64X %I64x", big, big, big), "18364758544493064720 FEDCBA9876543210 fedcba9876543210");
  EXPECT_EQ(Text("%0I64u|%020I64u|%I64d", std::uint64_t{7}, std::uint64_t{7}, std::int64_t{-7}),
            "7|00000000000000000007|-7");
  EXPECT_EQ(Text("%llu|%lld|%Iu", big, std::int64_t{INT64_MIN}, big),
            "18364758544493064720|-9223372036854775808|18364758544493064720");
  EXPECT_EQ(Text("%ld|%lu|%lX|%I32d", -1, 4294967295u, 0xFFFFFFFFu, -2), "-1|4294967295|FFFFFFFF|-2");
  EXPECT_EQ(Text("%hd|%hu|%hhd", 0x18000, 0x1FFFF, 0x1FF), "-32768|65535|511") << "hh is no more than h";
}

TEST(FormatText, Addresses) {
  EXPECT_EQ(Text("%p", Address(0x7ffe12ab)), "000000007FFE12AB");
  EXPECT_EQ(Text("0x%08p|%p", Address(0xABC), nullptr), "0x0000000000000ABC|0000000000000000");
  EXPECT_EQ(Text("%20p|%-20p|", Address(1), Address(2)), "    0000000000000001|0000000000000002    |");
}

TEST(FormatText, Texts) {
  EXPECT_EQ(Text("%s|%6s|%-6s|%.2s|%6.2s", "abc", "abc", "abc", "abc", "abc"), "abc|   abc|abc   |ab|    ab");
  const char *none = nullptr;
  EXPECT_EQ(Text("%s|%8s|%.3s|%S", none, none, none, none), "(null)|  (null)|(nu|(null)");
  EXPECT_EQ(Text("%c%C%5c|%-3c|", 'a', u'b', 'c', 'd'), "ab    c|d  |");
  EXPECT_EQ(Text("100%%", 1), "100%");
  const char open[2] = {'o', 'k'};  // not terminated: the precision says how much there is
  EXPECT_EQ(Text("%.2s|%.*s", open, 1, open), "ok|o");
}

TEST(FormatText, WideTexts) {
  EXPECT_EQ(Text("%S|%ls|%ws|%hS|%hs", u"wide", u"wide", u"wide", "narrow", "narrow"), "wide|wide|wide|narrow|narrow");
  EXPECT_EQ(Text("%.2S|%6.2S|%-6S|", u"wide", u"wide", u"wide"), "wi|    wi|wide  |");
  EXPECT_EQ(Text("%C|%hC", u'x', 'x'), "x|x");
  // UTF-16 inside a byte stream begins at any address.
  char bytes[1 + sizeof u"text"];
  std::memcpy(bytes + 1, u"text", sizeof u"text");
  EXPECT_EQ(Text("%S", bytes + 1), "text");
}

TEST(FormatText, UnusualConversions) {
  EXPECT_EQ(Text("%06.3d", 7), "   007");
  EXPECT_EQ(Text("%5% %y %", 1), "% y ");
}

// What the code page lacks costs one character, not the line, and never becomes a similar letter.
TEST(FormatText, WideTextsByCodePage) {
  EXPECT_EQ(Text("%lc|%S|%S|%S|", u'\u0E01', u"a\u0E01b", u"\u0100", u"x\U00010000y\xDC00"), "?|a?b|?|x??y?|");
  EXPECT_EQ(Text("%4S|%-4S|%.1S", u"\u0E01", u"\u0E01", u"\U00010000"), "   ?|?   |?");
  if (UseCodePage(1252)) {
    EXPECT_EQ(Text("%S|%C", u"\u00E9", u'\u00E9'), "\xE9|\xE9");
    EXPECT_EQ(Text("%S|%lc|%S", u"\u20AC\u0160", u'\u20AC', u"\u65E5"), "\x80\x8A|\x80|?");
  }
  if (UseCodePage(932)) {
    EXPECT_EQ(Text("%S|%.3S|%.1S|%5S|", u"\u65E5\u672C", u"\u65E5\u672C", u"\u65E5\u672C", u"\u65E5"),
              "\x93\xFA\x96\x7B|\x93\xFA||   \x93\xFA|");
    EXPECT_EQ(Text("%C|%S", u'\u20AC', u"\u00E9"), "?|?");
  }
  UseCodePage(machine::kDefaultCodePage);
}

TEST(FormatText, CutTexts) {
  struct {
    std::size_t size;
    const char *text;
    int count;
  } cases[] = {{7, "abc123", 6}, {6, "abc12", -1}, {4, "abc", -1}, {2, "a", -1}, {1, "", -1}, {0, "", -1}};
  for (const auto &c : cases) {
    int count = 0;
    EXPECT_EQ(Format(&count, c.size, "%s%d", "abc", 123), c.text) << c.size;
    EXPECT_EQ(count, c.count) << c.size;
  }
  int count = 0;
  EXPECT_EQ(Format(&count, 8, "%2000000000d|%.2000000000d", 1, 1), "       ");
  EXPECT_EQ(count, -1);
}

TEST(ShellWord, IsNeitherAnOptionNorCutNorExpanded) {
  const char *cases[][2] = {
      {"/mnt/a", "/mnt/a"}, {"-img", "./-img"},   {"=ls", "'=ls'"},     {"", "''"},
      {"a b", "'a b'"},     {"a'b", "'a'\\''b'"}, {"-a b", "'./-a b'"}, {"a\n%", "\"$(printf 'a\\012%%')\""}};
  for (const auto &[path, word] : cases) EXPECT_EQ(machine::ShellWord(path), word);
}

}  // namespace
