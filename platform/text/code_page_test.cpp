#include "platform/text/code_page.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <string>
#include <unordered_map>

#include "platform/platform.h"

namespace {

struct CodePageTest : testing::Test {
  ~CodePageTest() override { machine::SetCodePage(machine::kDefaultCodePage); }
};

TEST_F(CodePageTest, ConvertsBothWays) {
  struct {
    unsigned page;
    std::string ansi, utf8;
    std::u16string utf16;
  } cases[] = {
      {1252, "caf\xE9 \x80", "caf\u00E9 \u20AC", u"caf\u00E9 \u20AC"},
      {1251, "\xC4\xE8\xF1\xEA", "\u0414\u0438\u0441\u043A", u"\u0414\u0438\u0441\u043A"},
      {932, "\x93\xFA\x96\x7B\\\xB1~", "\u65E5\u672C\\\uFF71~", u"\u65E5\u672C\\\uFF71~"},
      {932, "\xFA\x40\x87\x54", "\u2170\u2160", u"\u2170\u2160"},  // two of several codes for one character
      {936, "\xD6\xD0", "\u4E2D", u"\u4E2D"},
      {949, "\xC7\xD1", "\uD55C", u"\uD55C"},
      {950, "\xA4\xA4", "\u4E2D", u"\u4E2D"},
      {1252, "\x81\x8D", "\u0081\u008D", u"\u0081\u008D"},  // bytes that the page leaves undefined come back
      {437, "\x80", "\u00C7", u"\u00C7"},
  };
  for (const auto &c : cases) {
    EXPECT_TRUE(machine::KnownCodePage(c.page));
    EXPECT_EQ(machine::AnsiToUtf8(c.ansi, c.page), c.utf8) << c.page;
    EXPECT_EQ(machine::AnsiToUtf16(c.ansi, c.page), c.utf16) << c.page;
    EXPECT_EQ(machine::Utf8ToAnsi(c.utf8, c.page), c.ansi) << c.page;
    EXPECT_EQ(machine::Utf16ToAnsi(c.utf16, c.page), c.ansi) << c.page;
    EXPECT_EQ(machine::Utf8ToUtf16(c.utf8), c.utf16);
    EXPECT_EQ(machine::Utf16ToUtf8(c.utf16), c.utf8);
  }
  for (unsigned page : {0u, 37u, 1200u, 1361u, 54936u, 65000u, 65001u, 99999u}) {
    EXPECT_FALSE(machine::KnownCodePage(page)) << page;
  }
}

// What iconv makes of one character; empty when it knows none.
std::string Convert(iconv_t converter, std::string text) {
  char result[8];
  char *in = text.data(), *out = result;
  std::size_t inLeft = text.size(), outLeft = sizeof result;
  const bool whole = iconv(converter, &in, &inLeft, &out, &outLeft) == 0 && inLeft == 0;
  // A letter is kept back on some pages, for an accent that may follow.
  if (whole && out == result) iconv(converter, nullptr, nullptr, &out, &outLeft);
  if (whole) return {result, out};
  iconv(converter, nullptr, nullptr, nullptr, nullptr);
  return {};
}

std::string Utf16Bytes(std::u16string_view text) {
  return {reinterpret_cast<const char *>(text.data()), 2 * text.size()};
}

TEST_F(CodePageTest, EveryCharacterOfEveryPageIsAsIconvHasIt) {
  unsigned pages = 0;
  for (unsigned page = 1; page < 0x10000; page++) {
    if (!machine::KnownCodePage(page)) continue;
    pages++;
    const std::string name = "CP" + std::to_string(page);
    std::unordered_map<std::string, std::string> decoded;
    const iconv_t decoder = iconv_open("UTF-16LE", name.c_str()), encoder = iconv_open(name.c_str(), "UTF-16LE");
    for (unsigned code = 0; code < 0x10000; code++) {
      if (code > 0xFF && (!machine::IsLeadByte(static_cast<unsigned char>(code >> 8), page) || (code & 0xFF) < 0x40)) {
        continue;
      }
      std::string bytes(1, static_cast<char>(code));
      if (code > 0xFF) bytes.insert(bytes.begin(), static_cast<char>(code >> 8));
      const std::string &character = decoded[bytes] = Convert(decoder, bytes);
      const bool isLead = code <= 0xFF && machine::IsLeadByte(static_cast<unsigned char>(code), page);
      const char16_t unknown = code > 0xFF || isLead ? u'?' : static_cast<char16_t>(code);
      const std::string expected = character.size() == 2 && !isLead ? character : Utf16Bytes({&unknown, 1});
      ASSERT_EQ(Utf16Bytes(machine::AnsiToUtf16(bytes, page)), expected) << page << ' ' << code;
    }
    for (unsigned unit = 0; unit < 0x10000; unit++) {
      const auto character = static_cast<char16_t>(unit);
      const std::string ours = machine::Utf16ToAnsi({&character, 1}, page),
                        theirs = Convert(encoder, Utf16Bytes({&character, 1}));
      // What iconv only makes do with is replaced, and so is what two bytes of a one-byte page would make together.
      const auto back = decoded.find(theirs);
      if (back != decoded.end() && back->second == Utf16Bytes({&character, 1})) {
        ASSERT_EQ(ours, theirs) << page << ' ' << unit;
      } else if (ours != "?") {
        ASSERT_EQ(machine::AnsiToUtf16(ours, page), std::u16string(1, character)) << page;
      }
    }
    iconv_close(encoder);
    iconv_close(decoder);
  }
  EXPECT_EQ(pages, 29u);
}

TEST_F(CodePageTest, ReplacesWhatCannotBeConverted) {
  EXPECT_EQ(machine::Utf8ToAnsi("\u4E2D\U0001F600.", 1252), "???.");
  EXPECT_EQ(machine::Utf16ToAnsi(u"\u4E2D\U0001F600.", 1252), "???.");
  const char16_t halves[] = {0xD83D, u'x', 0xDE00, 0};
  EXPECT_EQ(machine::Utf16ToAnsi(halves, 1252), "?x?");
  EXPECT_EQ(machine::Utf16ToUtf8(halves), "?x?");
  // Bytes that are no UTF-8: a stray one, one too many, too few, longer than need be, a surrogate, beyond the end.
  EXPECT_EQ(machine::Utf8ToAnsi("\x80|\xC3|\xE2\x82|\xC0\x80|\xED\xA0\x80|\xF4\x90\x80\x80", 1252),
            "?|?|??|??|???|????");
  EXPECT_EQ(machine::Utf8ToUtf16("\U0001F600\xE2\x82"), u"\U0001F600??");
  EXPECT_EQ(machine::Utf16ToUtf8(u"\U0001F600"), "\U0001F600");
}

TEST_F(CodePageTest, TakesALeadByteWithoutItsTrailAlone) {
  EXPECT_EQ(machine::AnsiToUtf8("a\x93", 932), "a?");
  EXPECT_EQ(machine::AnsiToUtf8("\x93\"x", 932), "?\"x");
  EXPECT_EQ(machine::AnsiToUtf8(std::string("\x93\0x", 3), 932), std::string("?\0x", 3));
  EXPECT_EQ(machine::AnsiToUtf8("\x83\x5C", 932), "\u30BD");  // a backslash as the second byte is no separator
}

TEST_F(CodePageTest, LeadBytesFollowTheMachine) {
  EXPECT_FALSE(platform::IsDBCSLeadByte(0x93));
  machine::SetCodePage(932);
  for (const auto &[byte, leads] :
       {std::pair(0x80, 0), {0x81, 1}, {0x9F, 1}, {0xA0, 0}, {0xDF, 0}, {0xE0, 1}, {0xFC, 1}, {0xFD, 0}, {0x41, 0}}) {
    EXPECT_EQ(platform::IsDBCSLeadByte(static_cast<BYTE>(byte)), leads) << byte;
  }
}

TEST_F(CodePageTest, ChangesCase) {
  struct {
    unsigned page;
    std::string lower, upper;
  } cases[] = {
      {1252, "az09[`{\xE0\xFE\xFF\x9A\x9C\x9E", "AZ09[`{\xC0\xDE\x9F\x8A\x8C\x8E"},
      {1252, "\xF7\xDF\xB5", "\xF7\xDF\xB5"},  // division sign, sharp s, micro: no capitals in the page
      {1251, "\xE0\xFF\xB8\x90\xB3", "\xC0\xDF\xA8\x80\xB2"},
      {1253, "\xE1\xF9\xDC\xFC", "\xC1\xD9\xA2\xBC"},
      {1250, "\xB9\x9C\xBF\xE8", "\xA5\x8C\xAF\xC8"},
      {932, "\x82\x81\x82\x9A|\x83\xBF|\x84\x70|\x61", "\x82\x60\x82\x79|\x83\x9F|\x84\x40|\x41"},
  };
  for (const auto &c : cases) {
    machine::SetCodePage(c.page);
    std::string text = c.lower;
    EXPECT_EQ(platform::CharUpperBuffA(text.data(), static_cast<DWORD>(text.size())), text.size());
    EXPECT_EQ(text, c.upper) << c.page;
    platform::CharLowerBuffA(text.data(), static_cast<DWORD>(text.size()));
    EXPECT_EQ(text, c.lower) << c.page;
    EXPECT_EQ(machine::CompareNoCase(c.lower, c.upper), 0) << c.page;
  }
  // The second byte of a pair is not a letter.
  machine::SetCodePage(932);
  EXPECT_EQ(machine::ToUpper("\x8B\x61"), "\x8B\x61");
  EXPECT_NE(machine::CompareNoCase("\x8B\x61", "\x8B\x41"), 0);
  EXPECT_EQ(platform::CharUpperBuffA(nullptr, 4), 0u);
}

}  // namespace
