#include "engine/base/strings.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/machine/base/fault.h"
#include "tests/support/own_code_page.h"

namespace {

// Japanese text, where the two-byte characters so and hyou have a backslash for their trail byte.
#define SO "\x83\x5C"
#define HYOU "\x95\x5C"
// Full-width letters: the small a's and the capital's trail bytes are no letters of their own case.
#define WIDE_SMALL_A "\x82\x81"
#define WIDE_CAPITAL_A "\x82\x60"

class StringsTest : public testing::Test {
 protected:
  ~StringsTest() override { machine::SetCodePage(machine::kDefaultCodePage); }
};

int Sign(int value) { return (value > 0) - (value < 0); }

TEST_F(StringsTest, MultiStringIsWalkedToItsClosingText) {
  const char three[] = "a\0bb\0c\0";
  EXPECT_EQ(VXREng_GetSubStringCount(three), 3);
  EXPECT_STREQ(VXREng_GetSubString(1, three), "a");
  EXPECT_EQ(VXREng_GetSubString(2, three), three + 2);
  EXPECT_STREQ(VXREng_GetSubString(3, three), "c");
  for (int32_t absent : {INT32_MIN, -1, 0, 4, INT32_MAX}) EXPECT_EQ(VXREng_GetSubString(absent, three), nullptr);

  // What follows the closing text does not belong to it.
  const char none[] = "\0hidden\0";
  for (const char *empty : {none, static_cast<const char *>(nullptr)}) {
    EXPECT_EQ(VXREng_GetSubStringCount(empty), 0);
    EXPECT_EQ(VXREng_GetSubString(1, empty), nullptr);
  }
}

TEST_F(StringsTest, MatchIsTheFirstEqualTextWhateverItsCase) {
  const char ids[] = "PCI\\VEN_8086&DEV_1\0pci\\ven_8086\0PCI\\VEN_8086\0";
  EXPECT_EQ(VXREng_FindMatch("PCI\\VEN_8086", ids), 2);
  EXPECT_EQ(VXREng_FindMatch("PCI\\VEN_8086&", ids), 0);
  EXPECT_EQ(VXREng_FindMatch("", ids), 0);
  EXPECT_EQ(VXREng_FindMatch(nullptr, ids), 0);
  EXPECT_EQ(VXREng_FindMatch("PCI", "\0"), 0);
  EXPECT_EQ(VXREng_FindMatch("PCI", nullptr), 0);
}

struct Replacement {
  unsigned codePage;
  char from, to;
  const char *input, *output;
};

constexpr Replacement kReplacements[] = {
    {1252, '\\', '#', "PCI\\VEN_1000&DEV_0030", "PCI#VEN_1000&DEV_0030"},
    {1252, '#', '\\', "#a##b#", "\\a\\\\b\\"},
    {1252, '\\', '#', "none here", "none here"},
    {1252, '\\', '#', "", ""},
    {1252, '\\', '\\', "a\\b", "a\\b"},
    {1252, '\0', 'x', "abc", "abc"},
    {1252, '\\', '#', SO "\\", "\x83##"},
    {932, '\\', '#', SO "\\" HYOU "\\x", SO "#" HYOU "#x"},
    // A lead byte at the end, or before what cannot be a trail byte, takes nothing with it.
    {932, '#', '\\', "a#\x83", "a\\\x83"},
    {932, '#', '\\', "\x83#", "\x83\\"},
};

TEST_F(StringsTest, ReplacementKnowsCharactersOfTwoBytes) {
  for (const Replacement &row : kReplacements) {
    SCOPED_TRACE(row.input);
    if (!UseCodePage(row.codePage)) continue;
    const std::string before = row.input;
    const HeapText copy = VXREng_FixString(row.from, row.to, row.input);
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy.get(), row.output);
    EXPECT_EQ(row.input, before);
    std::string text = before;
    EXPECT_TRUE(VXREng_FixStr(row.from, row.to, text.data()));
    EXPECT_EQ(text, row.output);
  }
  EXPECT_EQ(VXREng_FixString('a', 'b', nullptr), nullptr);
  EXPECT_TRUE(VXREng_FixStr('a', 'b', nullptr));
}

struct Comparison {
  unsigned codePage;
  const char *a, *b;
  SIZE_T count;
  int sign;
};

constexpr Comparison kComparisons[] = {
    {1252, "", "", SIZE_MAX, 0},
    {1252, "a", "", SIZE_MAX, 1},
    {1252, "PCI\\Ven_8086", "pci\\vEN_8086", SIZE_MAX, 0},
    {1252, "abc", "ABD", SIZE_MAX, -1},
    {1252, "abc", "ABD", 2, 0},
    {1252, "abc", "x", 0, 0},
    {1252, "ab", "abc", 3, -1},
    {1252, "[", "a", SIZE_MAX, -1},  // between the capitals and the small letters: the small ones are compared
    {1252, "\xC4pfel", "\xE4PFEL", SIZE_MAX, 0},
    {1252, "\xE4", "z", SIZE_MAX, 1},
    {932, WIDE_SMALL_A, WIDE_CAPITAL_A, SIZE_MAX, 0},
    {932, "\x83\x41", "\x83\x61", SIZE_MAX, -1},  // two characters, though the trail bytes are one letter's cases
    {932, "\x83\x41", "\x83\x61", 1, 0},
    {932, SO, SO "x", 2, 0},
    {932, "\x83", "\x83\x5C", SIZE_MAX, -1},
};

TEST_F(StringsTest, ComparisonFoldsCaseByTheCodePage) {
  for (const Comparison &row : kComparisons) {
    SCOPED_TRACE(std::string(row.a) + " and " + row.b);
    if (!UseCodePage(row.codePage)) continue;
    EXPECT_EQ(Sign(VXREng_StrNICmp(row.a, row.b, row.count)), row.sign);
    EXPECT_EQ(Sign(VXREng_StrNICmp(row.b, row.a, row.count)), -row.sign);
    if (row.count == SIZE_MAX) {
      EXPECT_EQ(Sign(VXREng_StrICmp(row.a, row.b)), row.sign);
    }
  }
  EXPECT_TRUE(BeginsWith("pciide\\idechannel", "PCIIDE"));
  EXPECT_TRUE(BeginsWith("a", ""));
  EXPECT_FALSE(BeginsWith("PCI", "PCIIDE"));
}

TEST_F(StringsTest, SearchesPassTrailBytesOver) {
  char path[] = SO "\\" HYOU;
  char letters[] = "\x83ven_\x83\x5Cven_";  // the first v ends a two-byte character
  EXPECT_STREQ(LastBackslash("C:\\drv\\x\\oem.inf"), "\\oem.inf");
  if (UseCodePage(1252)) {
    EXPECT_EQ(VXREng_StrChr(path, '\\'), path + 1);
    EXPECT_EQ(LastBackslash(path), path + 4);
    EXPECT_EQ(FindText(letters, "ven_"), letters + 1);
  }
  if (!UseCodePage(932)) return;
  EXPECT_EQ(VXREng_StrChr(path, '\\'), path + 2);
  EXPECT_EQ(LastBackslash(path), path + 2);
  EXPECT_EQ(VXREng_StrChr(path, '\0'), path + 5);
  EXPECT_EQ(VXREng_StrChr(path, 'x'), nullptr);
  EXPECT_EQ(LastBackslash(HYOU), nullptr);
  EXPECT_EQ(FindText(letters, "ven_"), letters + 7);
}

}  // namespace
