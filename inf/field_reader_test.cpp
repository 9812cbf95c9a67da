// Fields of INF lines and sections under decorated names, on real files of a described machine.

#include "inf/field_reader.h"

#include "log/log.h"
#include "tests/support/test_machine.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using namespace std::string_literals;

constexpr char kFieldsInf[] = R"([Version]
Signature = "$Windows NT$"

[Fields]
CopyFiles = a.sys, b.sys
Texts = %DiskDesc%, %Missing%, %, %A%B%, plain, "%half"
Numbers = 12, -7, 0x1F, 0X1Fz, 12abc, abc, " +5 6"
Whole = 0xFFFFFFFF
Bytes = 01, 02, ff

[Models]
x = y
[Models.NTamd64]
x = y
[Inst.Services]
x = y

[Strings]
Nothing
DiskDesc1 = too long
diskdesc = Fast Disk
A%B = both
Twice =
Twice = second
List = one, two
)";

class FieldReader : public MachineTest {
 protected:
  void SetUp() override {
    Open();
    WriteFile("ram/fields.inf", kFieldsInf);
    inf = OpenInfFile("X:\\fields.inf");
    ASSERT_NE(inf, nullptr);
    ClearLog();
  }
  void TearDown() override { inf = nullptr; }

  // The field's bytes and, behind a bar, the size that was reported; "-" and the size for none.
  std::string Field(const char *key, DWORD index, DWORD type) {
    INFCONTEXT line = {};
    EXPECT_TRUE(platform::SetupFindFirstLineA(inf.get(), "Fields", key, &line)) << key;
    DWORD size = 77;
    const HeapText field = VXRDev_GetInfLineField(inf.get(), index, &line, &size, type);
    return (field == nullptr ? "-" : std::string(field.get(), size)) + "|" + std::to_string(size);
  }
  std::string Number(int value) { return std::string(reinterpret_cast<const char *>(&value), sizeof(value)) + "|4"; }
  std::string Token(const char *token, DWORD type = VXRINF_TYPE_SZ) {
    DWORD size = 0;
    const HeapText value = VXRDev_InfConvertStringToken(inf.get(), token, &size, type);
    return value == nullptr ? "-" : std::string(value.get(), size);
  }

  InfFile inf;
};

TEST_F(FieldReader, ReadsTexts) {
  EXPECT_EQ(Field("CopyFiles", 0, VXRINF_TYPE_SZ), "CopyFiles\0|10"s);
  EXPECT_EQ(Field("CopyFiles", 2, VXRINF_TYPE_SZ), "b.sys\0|6"s);
  EXPECT_EQ(Field("CopyFiles", 1, VXRINF_TYPE_MSZ), "a.sys\0b.sys\0\0|13"s);
  EXPECT_EQ(Field("Texts", 1, VXRINF_TYPE_SZ), "Fast Disk\0|10"s) << "the size of the value, not of the token";
  EXPECT_EQ(Field("Texts", 2, VXRINF_TYPE_SZ), "%Missing%\0|10"s);
  EXPECT_EQ(Field("Texts", 3, VXRINF_TYPE_SZ), "%\0|2"s);
  EXPECT_EQ(Field("Texts", 4, VXRINF_TYPE_SZ), "both\0|5"s);
  EXPECT_EQ(Field("Texts", 6, VXRINF_TYPE_SZ), "%half\0|6"s);
  EXPECT_THAT(Lines("ERROR"), IsEmpty());

  ClearLog();
  EXPECT_EQ(Field("CopyFiles", 3, VXRINF_TYPE_SZ), "-|0");
  EXPECT_EQ(Field("CopyFiles", 3, VXRINF_TYPE_MSZ), "-|0");
  EXPECT_EQ(Field("CopyFiles", 3, VXRINF_TYPE_BIN), "-|0");
  EXPECT_THAT(Lines("ERROR"), IsEmpty()) << "the end of a line is no failure";
  EXPECT_THAT(Lines("FLUSH:VXRDev_GetInfLineField:index="),
              ElementsAre(HasSubstr("3:type=0:size=0 bytes:ret at 0"), HasSubstr("3:type=1:size=0 bytes:ret at 0"),
                          HasSubstr("3:type=3:size=0 bytes:ret at 0")));
}

TEST_F(FieldReader, ReadsNumbersAndBytes) {
  const int expected[] = {12, -7, 31, 31, 12, 0, 5};
  for (DWORD i = 0; i < std::size(expected); ++i) {
    EXPECT_EQ(Field("Numbers", i + 1, VXRINF_TYPE_INT), Number(expected[i])) << "field " << i + 1;
  }
  EXPECT_THAT(Lines("ERROR"), IsEmpty());
  EXPECT_EQ(Field("Numbers", 8, VXRINF_TYPE_INT), "-|0");
  EXPECT_THAT(Lines("ERROR:VXRDev_GetInfLineFieldINT:"),
              ElementsAre(HasSubstr("msg=Failed to get int as string token")));
  EXPECT_EQ(Field("Bytes", 1, VXRINF_TYPE_BIN), "\x01\x02\xFF|3"s);
  EXPECT_EQ(Field("Bytes", 2, VXRINF_TYPE_BIN), "\x02\xFF|2"s);
}

TEST_F(FieldReader, LooksTokensUp) {
  const struct {
    const char *token;
    DWORD type;
    std::string value;
  } cases[] = {
      {"%DISKDESC%", VXRINF_TYPE_SZ, "Fast Disk\0"s},
      {"%A%B%", VXRINF_TYPE_SZ, "both\0"s},
      {"%List%", VXRINF_TYPE_SZ, "one\0"s},
      {"%List%", VXRINF_TYPE_MSZ, "one\0two\0\0"s},
      {"%", VXRINF_TYPE_SZ, "-"},
      {"%%", VXRINF_TYPE_SZ, "-"},
      {"", VXRINF_TYPE_SZ, "-"},
      {"%DiskDes%", VXRINF_TYPE_SZ, "-"},
      {"DiskDesc", VXRINF_TYPE_SZ, "-"},
      {"%DiskDesc", VXRINF_TYPE_SZ, "-"},
  };
  for (const auto &c : cases) EXPECT_EQ(Token(c.token, c.type), c.value) << c.token;
}

TEST_F(FieldReader, LooksSectionsUpInOrder) {
  const char list[] = "ntamd64.6.1\0ntamd64\0";
  const std::string prefix = "FLUSH:VXRDev_FindInfSection:";
  INFCONTEXT line = {};
  EXPECT_FALSE(VXRDev_FindInfSection(inf.get(), "Inst", "ntamd64", nullptr, list, &line));
  EXPECT_THAT(Lines(prefix),
              ElementsAre("___ENTER___", "looking for szSectArch=Inst.ntamd64", "checking 0:Inst.ntamd64",
                          "checking 1:Inst.ntamd64.6.1", "checking 2:Inst.ntamd64", "checking 3:Inst", "___LEAVE___"));
  ClearLog();
  EXPECT_TRUE(VXRDev_FindInfSection(inf.get(), "Inst", "ntamd64", "Services", list, &line));
  EXPECT_THAT(Lines(prefix), testing::Contains("found section Inst.Services"));
  ClearLog();
  EXPECT_TRUE(VXRDev_FindInfSection(inf.get(), "models", "ntamd64.6.1", nullptr, list, &line));
  EXPECT_THAT(Lines(prefix), testing::Contains("found section models.ntamd64"));
  ClearLog();
  EXPECT_TRUE(VXRDev_FindInfSection(inf.get(), "Models", nullptr, nullptr, nullptr, &line));
  EXPECT_THAT(Lines(prefix), ElementsAre("___ENTER___", "looking for szSectArch=Models", "checking 0:Models",
                                         "found section Models", "___LEAVE___"));
  ClearLog();
  EXPECT_FALSE(VXRDev_FindInfSection(inf.get(), "None", nullptr, nullptr, nullptr, &line));
  EXPECT_THAT(Lines(prefix), testing::IsSupersetOf({"checking 0:None", "checking 1:None"}));
}

TEST_F(FieldReader, RefusesSectionNamesThatDoNotFit) {
  INFCONTEXT line = {};
  const std::string longest(255, 'x'), longer(256, 'x');
  EXPECT_FALSE(VXRDev_FindInfSection(inf.get(), longest.c_str(), nullptr, nullptr, nullptr, &line));
  EXPECT_THAT(Lines("ERROR"), IsEmpty());
  EXPECT_FALSE(VXRDev_FindInfSection(inf.get(), longest.c_str(), "nt", nullptr, nullptr, &line));
  EXPECT_FALSE(VXRDev_FindInfSection(inf.get(), longer.c_str(), nullptr, nullptr, nullptr, &line));
  EXPECT_FALSE(VXRDev_FindInfSection(inf.get(), "x", nullptr, longest.c_str(), nullptr, &line));
  EXPECT_EQ(Lines("ERROR:VXRDev_FindInfSection:section name does not fit its 256 bytes").size(), 3u);
}

}  // namespace
