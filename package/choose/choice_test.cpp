// Which models section a system takes, and how well a driver fits a device.
#include <gtest/gtest.h>

#include "package/choose/models.h"
#include "package/choose/rank.h"
#include "tests/support/targets.h"

namespace package {
namespace {

std::vector<std::string> Split(const std::string &list) {
  std::vector<std::string> texts;
  for (std::size_t at = 0; at < list.size();) {
    const std::size_t end = std::min(list.find(' ', at), list.size());
    texts.push_back(list.substr(at, end - at));
    at = end + 1;
  }
  return texts;
}

const Target kXpDataCenter = {5, 1, 2600, kX86, 3, 0x80};
const Target kServer2003 = {5, 2, 3790, kAmd64, 3};
const Target kXpItanium = {5, 1, 2600, kIa64};
const Target k7 = {6, 1, 7601, kAmd64};
const Target k81 = {6, 3, 9600, kAmd64};
const Target k10First = {10, 0, 10586, kAmd64};
const Target k11 = {10, 0, 26100, kAmd64};
const Target kServer2022 = {10, 0, 20348, kAmd64, 3};
const Target kController2022 = {10, 0, 20348, kAmd64, 2};
const Target k11Arm = {10, 0, 26100, kArm64};

// What is taken of a section "M" with those decorations: "-" nothing, "M" the undecorated one, else the decoration.
std::string Taken(const Target &target, const std::string &decorations) {
  std::string section;
  if (!ChooseModels("M", Split(decorations), target, &section)) return "-";
  return section.substr(section == "M" ? 0 : 2);
}

// Each column of lines that packages really have, for each system.
TEST(Models, OfALineForEachSystem) {
  const char *const kLines[] = {"NTx86.5.1 NTamd64",
                                "NTamd64 NTamd64.6.1 NTamd64.6.3.1 NTamd64.10.0",
                                "NTamd64.6.1.1 NTamd64.6.1.3 NTx86",
                                "NTamd64.10.0...17763 NTamd64.10.0...22000 NTarm64.10.0...22000",
                                "NT.6.0 NTx86.5.1 NTamd64.6.2",
                                ""};
  const struct {
    const char *name;
    Target target;
    const char *taken[6];
  } kRows[] = {
      {"XP x86", kXp, {"NTx86.5.1", "M", "NTx86", "M", "NTx86.5.1", "M"}},
      {"Server 2003 x64", kServer2003, {"NTamd64", "NTamd64", "-", "-", "-", "-"}},
      {"7 x64", k7, {"NTamd64", "NTamd64.6.1", "NTamd64.6.1.1", "-", "-", "-"}},
      {"8.1 x64", k81, {"NTamd64", "NTamd64.6.3.1", "NTamd64.6.1.1", "-", "NTamd64.6.2", "-"}},
      {"10 x64", k10, {"NTamd64", "NTamd64.10.0", "NTamd64.6.1.1", "NTamd64.10.0...17763", "NTamd64.6.2", "-"}},
      {"11 x64", k11, {"NTamd64", "NTamd64.10.0", "NTamd64.6.1.1", "NTamd64.10.0...22000", "NTamd64.6.2", "-"}},
      {"2022", kServer2022, {"NTamd64", "NTamd64.10.0", "NTamd64.6.1.3", "NTamd64.10.0...17763", "NTamd64.6.2", "-"}},
      {"2022 controller",
       kController2022,
       {"NTamd64", "NTamd64.10.0", "-", "NTamd64.10.0...17763", "NTamd64.6.2", "-"}},
      {"11 arm64", k11Arm, {"-", "-", "-", "NTarm64.10.0...22000", "-", "-"}},
  };
  for (const auto &row : kRows) {
    for (std::size_t i = 0; i < std::size(kLines); ++i) {
      EXPECT_EQ(Taken(row.target, kLines[i]), row.taken[i]) << row.name << ": " << kLines[i];
    }
  }
}

TEST(Models, ByTheRulesOfEachPart) {
  const struct {
    Target target;
    const char *decorations, *taken;
  } kCases[] = {
      {kXp, "NT NT.5 NT.5.5 NT....0x80", "NT.5"},
      {kXpDataCenter, "NT NT.5 NT.5.5 NT....0x80", "NT.5"},
      {kXpDataCenter, "NT NT....0x80", "NT....0x80"},
      {kXp, "NT NT....0x80", "NT"},
      {kXpItanium, "NT.5.1", "NT.5.1"},  // before architectures had to be named
      {kXpItanium, "NTx86", "M"},
      {kXp, "NT.5.1 ntX86.5.1", "ntX86.5.1"},            // the architecture decides last
      {kXp, "NTx86.5 NTx86.5.0", "NTx86.5"},             // of equal ones the first
      {k7, "NTamd64.6.0.1 NTamd64.6.1", "NTamd64.6.1"},  // version over product
      {k7, "NTamd64.0x6.0x1", "NTamd64.0x6.0x1"},
      {k7, "NTamd64.6.1.1.0x100", "-"},
      {k10First, "NTamd64.10.0...10240 NTamd64", "NTamd64"},  // too old to know builds
      {k10, "NTamd64.10.0...19046 NTamd64.10.0", "NTamd64.10.0"},
      {k10, "NTamd64.10.0 NTamd64.10.0...19045", "NTamd64.10.0...19045"},
      {k10, "NTamd64.6.3...99999", "NTamd64.6.3...99999"},  // of an older version any
      {k10, "NTamd64.10.1", "-"},
      {k10, "NTamd64.ten NTamd64.10.0.0x NTamd65 amd64 NTamd64.1.2.3.4.5.6 NTamd64.4294967296 NTamd64.6", "NTamd64.6"},
  };
  for (const auto &c : kCases) EXPECT_EQ(Taken(c.target, c.decorations), c.taken) << c.decorations;
}

TEST(Rank, OfAnIdOnALine) {
  const DeviceIds device = {{"PCI\\A&REV_01", "PCI\\A"}, {"PCI\\CC_010601", "PCI\\CC_0106", "pci\\a"}};
  const struct {
    const char *id;
    std::size_t position;
    DWORD score;
  } kCases[] = {
      {"pci\\a&rev_01", 0, 0},     {"PCI\\A", 0, 1},        {"PCI\\A", 2, 0x1001},       {"PCI\\CC_0106", 0, 0x2001},
      {"PCI\\CC_0106", 3, 0x3201}, {"PCI\\B", 0, kNoMatch}, {"PCI\\CC_01", 1, kNoMatch}, {"", 0, kNoMatch}};
  for (const auto &c : kCases) EXPECT_EQ(IdentifierScore(device, c.id, c.position), c.score) << c.id;
  EXPECT_EQ(RankValue(1, kDefaultFeatureScore, k7), 0x00FF0001u);
  EXPECT_EQ(RankValue(0x2000, 0x80, k7), 0x00802000u);
  EXPECT_EQ(RankValue(0x2000, 0x80, kXp), 0x00FF2000u);
}

TEST(Rank, OrdersByDateVersionAndPathInTurn) {
  const Rank kOrder[] = {
      {0x00802000, 0, 0, "z"},
      {0x00FF0001, ParseDriverDate("3-26-2013"), 0, "z"},
      {0x00FF0001, ParseDriverDate("03/25/2013"), ParseDriverVersion("1.34.3.83"), "z"},
      {0x00FF0001, ParseDriverDate("03/25/2013"), ParseDriverVersion("1.9"), "Y"},
      {0x00FF0001, ParseDriverDate("03/25/2013"), ParseDriverVersion("1.9.0.0"), "z"},
      {0x00FF0001, ParseDriverDate("02/30/2013"), ParseDriverVersion("65536.1"), "a"},
      {0x00FF0001, ParseDriverDate("2013"), ParseDriverVersion("1.2.3.4.5"), "b"},
  };
  for (std::size_t a = 0; a < std::size(kOrder); ++a) {
    for (std::size_t b = 0; b < std::size(kOrder); ++b) EXPECT_EQ(Better(kOrder[a], kOrder[b]), a < b) << a << ' ' << b;
  }
  EXPECT_EQ(ParseDriverDate("03/26/2013"), 0x01CE29B4DBDF0000u);
  EXPECT_EQ(DateText(ParseDriverDate("3/6/2013")), "2013-03-06");
  EXPECT_EQ(DateText(0), "");
}

}  // namespace
}  // namespace package
