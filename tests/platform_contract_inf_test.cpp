// What the set-up library's calls and those on version resources give, on Windows and on the described machine alike.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "platform/inf/inf_file.h"
#include "tests/support/contract.h"
#include "tests/support/pe_builder.h"
#include "tests/support/test_machine.h"

namespace {

using namespace contract;

// --- INF files ------------------------------------------------------------------------------------------------------

using InfContract = MachineTest;

constexpr char kVersion[] = "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=SCSIAdapter\r\n";

constexpr char kFields[] = R"(
[Version]
Signature = "$CHICAGO$"
Class = SCSIAdapter
[Lines]
plain = value
two = first, second
  blanks  =   some text  , x  
quoted = "a, b; c" , "d""e"
inside = ab"cd"ef, "g"h
open = "not closed
emptyQuotes = ""
gaps = a,,c,
comma = ,
bare
"bare quoted"
a = b = c
"key = odd" = value
%token% = %TOKEN%, x%token%y, %none%, 50%%, %%, %
100% = one % two
comment = text ; comment
; whole line
continued = a, \
  b, \   ; with a comment
  c
path = c:\windows\system32, \\server\share
ends = c:\, \
 d
sl = "c:\"
tab	=	x	
upper = ABC
UPPER = second
dup = 1
dup = 2
[Empty]
[Numbers]
n = 0, 42, -42, +42, 0x1F, 0X1f, 0xFFFFFFFF, 4294967295, 4294967296, -2147483648, 12ab, abc, "7", , 0x, -0x1, 010, 1.5
[Bytes]
b = 00, 1f, FF, 7
wrong = 00, 100, 01
words = 00, zz
quoted = "0a", 0b
[Multi]
m = one, two, , four
e = a, ,
none =
[lines]
later = in the same section
[Two Words]
k = v
[Strings]
token = "the text"
)";

// Every line of a section: the count of values, then the key (field 0) and each value.
std::string LinesOf(HINF inf, const char *section) {
  std::string shown;
  INFCONTEXT context;
  BOOL found = platform::SetupFindFirstLineA(inf, section, nullptr, &context);
  for (; found; found = platform::SetupFindNextLine(&context, &context)) {
    const DWORD count = platform::SetupGetFieldCount(&context);
    shown += std::to_string(count) + ' ';
    for (DWORD field = 0; field <= count; ++field) {
      Buffer buffer;
      const std::string outcome = Outcome(
          [&] { return platform::SetupGetStringFieldA(&context, field, buffer.bytes, buffer.size, &buffer.size); });
      const std::string text = outcome == "ok" ? '<' + Shown(buffer.bytes) + '>' : "none";
      shown += (field == 1 ? " = " : field == 0 ? "" : ", ") + text;
    }
    shown += '\n';
  }
  return shown;
}

HINF OpenInf(const char *path) {
  const HINF inf = platform::SetupOpenInfFileA(path, nullptr, INF_STYLE_WIN4, nullptr);
  EXPECT_NE(inf, INVALID_HANDLE_VALUE) << path;
  return inf;
}

TEST_F(InfContract, Fields) {
  WriteFile("ram/fields.inf", kFields);
  Open();
  const HINF inf = OpenInf("X:\\fields.inf");
  EXPECT_EQ('\n' + LinesOf(inf, "LINES"), R"(
1 <plain> = <value>
2 <two> = <first>, <second>
2 <blanks> = <some text>, <x>
2 <quoted> = <a, b; c>, <d"e>
2 <inside> = <abcdef>, <gh>
1 <open> = <not closed>
1 <emptyQuotes> = <>
4 <gaps> = <a>, <>, <c>, <>
2 <comma> = <>, <>
1 <bare> = <bare>
1 <bare quoted> = <bare quoted>
1 <a> = <b = c>
1 <key = odd> = <value>
6 <the text> = <the text>, <xthe texty>, <%none%>, <50%>, <%>, <%>
1 <100%> = <one % two>
1 <comment> = <text>
3 <continued> = <a>, <b>, <c>
2 <path> = <c:\windows\system32>, <\\server\share>
2 <ends> = <c:\>, <d>
1 <sl> = <c:\>
1 <tab> = <x>
1 <upper> = <ABC>
1 <UPPER> = <second>
1 <dup> = <1>
1 <dup> = <2>
1 <later> = <in the same section>
)");
  EXPECT_EQ(LinesOf(inf, "Two Words"), "1 <k> = <v>\n");
  EXPECT_EQ(LinesOf(inf, "Empty"), "");
  platform::SetupCloseInfFile(inf);
}

// A field as the calls give it. Wine replaces other directories' ids, the driver store's too, and cuts no-break spaces:
// rows of the differences.
std::string ExpectedField(std::string text, const std::string &systemDirectory) {
  if (!OnWine()) return text;
  while (text.ends_with('\xA0')) text.pop_back();
  for (const auto &[id, directory] :
       {std::pair<std::string, std::string>{"%1%", "X:\\inf"}, {"%13%", systemDirectory + "\\unknown"}}) {
    if (text.starts_with(id)) text.replace(0, id.size(), directory);
  }
  return text;
}

// What LinesOf gives, from the reader. Wine gives a key without a value an empty one, as a row of the differences
// tells.
std::string ReadLines(machine::InfFile *file, const machine::InfSection &section) {
  std::string shown;
  for (const machine::InfLine &line : section.lines) {
    const bool addsValue = OnWine() && line.valueCount == 0;
    shown += std::to_string(addsValue ? 1 : line.valueCount) + ' ';
    for (DWORD field = 0; field <= line.valueCount; ++field) {
      shown += (field == 1 ? " = " : field == 0 ? "" : ", ");
      shown += HasField(line, field)
                   ? '<' + Shown(ExpectedField(FieldText(file, section, line, field), file->settings->system)) + '>'
                   : "none";
    }
    shown += addsValue ? " = <>\n" : "\n";
  }
  return shown;
}

// Opens the file at X:\inf\real.inf, and compares what the calls and the reader make of it.
void CompareReal(const std::string &bytes, const std::shared_ptr<const machine::InfSettings> &settings) {
  machine::InfRefusal refusal;
  const std::shared_ptr<machine::InfFile> file = machine::ReadInf(bytes, settings, &refusal);
  UINT line = 0;
  platform::SetLastError(kUnset);
  const HINF inf = platform::SetupOpenInfFileA("X:\\inf\\real.inf", nullptr, INF_STYLE_WIN4, &line);
  if (inf == INVALID_HANDLE_VALUE) {
    const DWORD error = platform::GetLastError();
    EXPECT_EQ(error, file == nullptr ? refusal.error : DWORD{ERROR_WRONG_INF_STYLE});
    EXPECT_EQ(line, refusal.line);
    EXPECT_TRUE(file == nullptr || !IsModernInf(file.get()));
    return;
  }
  // Wine takes text before the first section where the file has strings: a row of the differences.
  if (OnWine() && file == nullptr && refusal.error == ERROR_EXPECTED_SECTION_NAME) {
    platform::SetupCloseInfFile(inf);
    return;
  }
  ASSERT_TRUE(file != nullptr && IsModernInf(file.get()));
  for (std::uint32_t i = 0; i < file->sections.size(); ++i) {
    const machine::InfSection &section = ParsedSection(file.get(), i);
    const std::string name(SectionName(*file, section));
    EXPECT_EQ(LinesOf(inf, name.c_str()), ReadLines(file.get(), section)) << '[' << name << ']';
  }
  platform::SetupCloseInfFile(inf);
}

TEST_F(InfContract, RealFiles) {
  const char *corpus = std::getenv("VXR_CORPUS_DIR");
  if (corpus == nullptr) GTEST_SKIP() << "VXR_CORPUS_DIR is not set";
  Open();
  Buffer windows, system;
  platform::GetWindowsDirectoryA(windows.bytes, windows.size);
  platform::GetSystemDirectoryA(system.bytes, system.size);
  const auto settings = machine::MakeInfSettings(1252, 0x0409, windows.Text(), system.Text());
  int files = 0;
  for (const auto &entry : std::filesystem::recursive_directory_iterator(std::filesystem::path(corpus) / "inf")) {
    if (!entry.is_regular_file()) continue;
    std::ostringstream bytes;
    bytes << std::ifstream(entry.path(), std::ios::binary).rdbuf();
    WriteFile("ram/inf/real.inf", bytes.str());
    const testing::ScopedTrace trace(__FILE__, __LINE__, entry.path().filename().string());
    CompareReal(bytes.str(), settings);
    ++files;
  }
  EXPECT_GT(files, 100);
}

HINF g_inf;

// The outcome of finding a line and asking it something, with the answer.
template <class Ask>
std::string Asked(const char *section, const char *key, Ask ask) {
  INFCONTEXT context;
  const std::string found = Outcome([&] { return platform::SetupFindFirstLineA(g_inf, section, key, &context); });
  if (found != "ok") return "line " + found;
  Buffer buffer;
  DWORD needed = 0;
  const std::string outcome = Outcome([&] { return ask(&context, &buffer, &needed); });
  if (outcome != "ok" && outcome != "122") return outcome;
  return outcome + ' ' + std::to_string(needed) + ' ' + Shown({buffer.bytes, outcome == "ok" ? needed : 0});
}

std::string Text(const char *section, const char *key, DWORD field, DWORD size = 100, bool query = false) {
  return Asked(section, key, [&](INFCONTEXT *context, Buffer *buffer, DWORD *needed) {
    return platform::SetupGetStringFieldA(context, field, query ? nullptr : buffer->bytes, query ? 0 : size, needed);
  });
}

std::string Texts(const char *key, DWORD field, DWORD size = 100) {
  return Asked("Multi", key, [&](INFCONTEXT *context, Buffer *buffer, DWORD *needed) {
    return platform::SetupGetMultiSzFieldA(context, field, buffer->bytes, size, needed);
  });
}

std::string Bytes(const char *key, DWORD field, DWORD size = 100) {
  return Asked("Bytes", key, [&](INFCONTEXT *context, Buffer *buffer, DWORD *needed) {
    return platform::SetupGetBinaryField(context, field, reinterpret_cast<BYTE *>(buffer->bytes), size, needed);
  });
}

std::string Number(DWORD field) {
  INFCONTEXT context;
  int number = 99;
  platform::SetupFindFirstLineA(g_inf, "Numbers", "n", &context);
  const std::string outcome = Outcome([&] { return platform::SetupGetIntField(&context, field, &number); });
  return outcome == "ok" ? std::to_string(number) : outcome;
}

TEST_F(InfContract, Answers) {
  WriteFile("ram/fields.inf", kFields);
  Open();
  g_inf = OpenInf("X:\\fields.inf");
  constexpr Row rows[] = {
      {"no such key", [] { return Text("Lines", "none", 1); }, "line E0000102"},
      {"empty section", [] { return Text("Empty", nullptr, 1); }, "line E0000102"},
      {"key of any case", [] { return Text("Lines", "PLAIN", 1); }, "ok 6 value<00>"},
      {"first of several", [] { return Text("Lines", "Dup", 1); }, "ok 2 1<00>"},
      {"key of the section's second part", [] { return Text("Lines", "later", 1); }, "ok 20 in the same section<00>"},
      {"key by its token's text", [] { return Text("Lines", "the text", 1); }, "ok 9 the text<00>"},
      {"too small", [] { return Text("Lines", "two", 2, 6); }, "122 7 "},
      {"just enough", [] { return Text("Lines", "two", 2, 7); }, "ok 7 second<00>"},
      {"size alone", [] { return Text("Lines", "two", 2, 0, true).substr(0, 4); }, "ok 7"},
      {"texts", [] { return Texts("m", 1); }, "ok 9 one<00>two<00><00>"},
      {"texts from the third", [] { return Texts("m", 3); }, "ok 1 <00>"},
      {"texts, the last empty", [] { return Texts("e", 1); }, "ok 3 a<00><00>"},
      {"texts, too small", [] { return Texts("m", 1, 8); }, "122 9 "},
      {"texts, no such field", [] { return Texts("m", 5); }, "87"},
      {"texts with the key", [] { return Texts("m", 0); }, "87"},
      {"bytes", [] { return Bytes("b", 1); }, "ok 4 <00><1F><FF><07>"},
      {"bytes from the second", [] { return Bytes("b", 2); }, "ok 3 <1F><FF><07>"},
      {"bytes in quotes", [] { return Bytes("quoted", 1); }, "ok 2 <0A><0B>"},
      {"bytes, too large", [] { return Bytes("wrong", 1); }, "13"},
      {"bytes, behind it", [] { return Bytes("wrong", 3); }, "ok 1 <01>"},
      {"bytes, too small", [] { return Bytes("b", 1, 3); }, "122 4 "},
      {"bytes, no such field", [] { return Bytes("b", 5); }, "87"},
      {"bytes with the key", [] { return Bytes("b", 0); }, "87"},
      {"bytes, no digits", [] { return Bytes("words", 2); }, "13!"},
      {"no value", [] { return Text("Multi", "none", 1); }, "87!"},
      {"no such field", [] { return Text("Lines", "two", 3); }, "87!"},
      {"no such section", [] { return Text("None", nullptr, 1); }, "line E0000102"},
      {"0", [] { return Number(1); }, "0"},
      {"42", [] { return Number(2); }, "42"},
      {"-42", [] { return Number(3); }, "-42"},
      {"+42", [] { return Number(4); }, "42"},
      {"0x1F", [] { return Number(5); }, "31"},
      {"0X1f", [] { return Number(6); }, "31"},
      {"0xFFFFFFFF", [] { return Number(7); }, "-1!"},
      {"4294967296", [] { return Number(9); }, "13!"},
      {"-2147483648", [] { return Number(10); }, "-2147483648"},
      {"12ab", [] { return Number(11); }, "13"},
      {"abc", [] { return Number(12); }, "13"},
      {"\"7\"", [] { return Number(13); }, "7"},
      {"nothing", [] { return Number(14); }, "13!"},
      {"0x", [] { return Number(15); }, "13"},
      {"-0x1", [] { return Number(16); }, "13!"},
      {"010", [] { return Number(17); }, "10!"},
      {"1.5", [] { return Number(18); }, "13"},
  };
  Check(rows);
  INFCONTEXT context;
  EXPECT_TRUE(platform::SetupFindFirstLineA(g_inf, "Two Words", nullptr, &context));
  EXPECT_EQ(Outcome([&] { return platform::SetupFindNextLine(&context, &context); }), "E0000102");
  platform::SetupCloseInfFile(g_inf);
}

TEST_F(InfContract, Opening) {
  const struct {
    const char *name;
    std::string text;
    const char *gives;  // the outcome and the line of the error
  } rows[] = {
      {"good", kVersion, "ok"},
      {"chicago", "[version]\nsignature=$chicago$\n", "ok"},
      {"95", "[Version]\nSignature=\"$Windows 95$\"\n", "ok"},
      {"comment", "; first\r\n\r\n  ; second\r\n" + std::string(kVersion), "ok"},
      {"utf8", "\xEF\xBB\xBF" + std::string(kVersion), "ok"},
      {"lf", "[Version]\nSignature=$Windows NT$", "ok"},
      {"eof", std::string(kVersion) + "\x1A[open\r\n", "ok"},
      {"text", "no section\r\n", "E0000000 1"},
      {"late", "; remark\r\n\r\nk=v\r\n" + std::string(kVersion), "E0000000 3"},
      {"open", std::string(kVersion) + "[open\r\n", "E0000001 4"},
      {"behind", std::string(kVersion) + "[closed] text\r\n", "ok"},
      {"long", std::string(kVersion) + "[" + std::string(256, 's') + "]\r\n", "E0000002 4"},
      {"longest", std::string(kVersion) + "[" + std::string(255, 's') + "]\r\n", "ok"},
      {"noversion", "[Other]\r\nk=v\r\n", "E0000100 0"},
      {"nosignature", "[Version]\r\nClass=Net\r\n", "E0000100 0"},
      {"other", "[Version]\r\nSignature=\"$Other$\"\r\n", "E0000100 0"},
      {"empty", "", "E0000100 0!"},
      {"strings", "x\r\n" + std::string(kVersion) + "[Strings]\r\na=b\r\n", "E0000000 1!"},
  };
  for (const auto &row : rows) WriteFile(std::string("ram/") + row.name + ".inf", row.text);
  Open();
  for (const auto &row : rows) {
    UINT line = 99;
    const std::string path = std::string("X:\\") + row.name + ".inf";
    const std::string outcome = Outcome([&] {
      const HINF inf = platform::SetupOpenInfFileA(path.c_str(), nullptr, INF_STYLE_WIN4, &line);
      if (inf != INVALID_HANDLE_VALUE) platform::SetupCloseInfFile(inf);
      return inf;
    });
    EXPECT_PRED2(Agrees, outcome + (outcome == "ok" ? "" : ' ' + std::to_string(line)), row.gives) << row.name;
  }
  const struct {
    const char *infClass;
    DWORD style;
    const char *gives;
  } classes[] = {
      {"SCSIAdapter", INF_STYLE_WIN4, "ok"},
      {"scsiadapter", INF_STYLE_WIN4, "ok"},
      {"Net", INF_STYLE_WIN4, "E0000201!"},
      {nullptr, 1, "87!"},
  };
  for (const auto &row : classes) {
    const std::string outcome = Outcome([&] {
      const HINF inf = platform::SetupOpenInfFileA("X:\\good.inf", row.infClass, row.style, nullptr);
      if (inf != INVALID_HANDLE_VALUE) platform::SetupCloseInfFile(inf);
      return inf;
    });
    EXPECT_PRED2(Agrees, outcome, row.gives) << (row.infClass == nullptr ? "any" : row.infClass) << row.style;
  }
}

// Names, and an error; each call with a buffer of that size.
std::string Listed(const char *directory, DWORD size) {
  Buffer buffer(size);
  DWORD needed = 0;
  const std::string outcome = Outcome(
      [&] { return platform::SetupGetInfFileListA(directory, INF_STYLE_WIN4, buffer.bytes, buffer.size, &needed); });
  return outcome + ' ' + std::to_string(needed) + ' ' + Shown({buffer.bytes, outcome == "ok" ? needed : 0});
}

TEST_F(InfContract, Lists) {
  for (const char *name : {"b.inf", "A.INF", "c.Inf", "d.txt", "e.inf.bak", "sub/f.inf"}) {
    WriteFile(std::string("ram/list/") + name, kVersion);
  }
  WriteFile("ram/list/old.inf", "[Version]\r\nSignature=\"$Old$\"\r\n");
  Open();
  EXPECT_EQ(Listed("X:\\list", 100), "ok 19 A.INF<00>b.inf<00>c.Inf<00><00>");
  EXPECT_EQ(Listed("X:\\list\\", 100), "ok 19 A.INF<00>b.inf<00>c.Inf<00><00>");
  EXPECT_PRED2(Agrees, Listed("X:\\list", 18), "122 19 !");
  EXPECT_PRED2(Agrees, Listed("X:\\list\\sub\\none", 100), "3 0 !");
  EXPECT_PRED2(Agrees, Listed("X:\\Halcyra", 100), "ok 1 <00>!");
}

// --- Version resources ----------------------------------------------------------------------------------------------

using VersionContract = MachineTest;

std::string StringTable(const std::u16string &language) {
  return VersionNode(language, 1, "", 0,
                     {TextNode(u"FileVersion", u"1.2.3.4"), TextNode(u"Accent", u"\u00E9\u20AC"),
                      TextNode(u"Empty", u""), VersionNode(u"Bare", 1, "", 0)});
}

TEST_F(VersionContract, Values) {
  WriteFile("ram/one.sys", BuildImage(VersionTree({VersionNode(u"StringFileInfo", 1, "", 0, {StringTable(u"040904b0")}),
                                                   TranslationNode({{0x409, 1200}})})));
  WriteFile("ram/none.sys", BuildImage("", {.version = false}));
  WriteFile("ram/text.sys", "no image");
  WriteFile("ram/empty.sys", "");
  Open();
  DWORD handle = 99;
  std::vector<char> block(platform::GetFileVersionInfoSizeA("X:\\one.sys", &handle));
  EXPECT_EQ(handle, 0u);
  ASSERT_GT(block.size(), 100u);
  ASSERT_TRUE(platform::GetFileVersionInfoA("X:\\one.sys", 0, static_cast<DWORD>(block.size()), block.data()));
  const struct {
    const char *query, *gives;
  } rows[] = {
      {"\\VarFileInfo\\Translation", "4 <09><04><B0><04>"},
      {"\\VARFILEINFO\\translation", "4 <09><04><B0><04>"},
      {"\\StringFileInfo\\040904b0\\FileVersion", "8 1.2.3.4<00>"},
      {"\\StringFileInfo\\040904B0\\fileversion", "8 1.2.3.4<00>"},
      {"\\StringFileInfo\\040904b0\\Accent", "3 <E9><80><00>"},
      {"\\StringFileInfo\\040904b0\\Empty", "1 <00>"},
      {"\\StringFileInfo\\040904b0\\Bare", "0 "},
      {"\\StringFileInfo\\040904b0\\None", "1813"},
      {"\\StringFileInfo\\040704b0\\FileVersion", "1813"},
      {"StringFileInfo\\040904b0\\FileVersion", "8 1.2.3.4<00>"},
      {"\\None", "1813"},
  };
  for (const auto &row : rows) {
    void *value = nullptr;
    UINT length = 99;
    const std::string outcome =
        Outcome([&] { return platform::VerQueryValueA(block.data(), row.query, &value, &length); });
    const auto *bytes = static_cast<const char *>(value);
    EXPECT_EQ(outcome == "ok" ? std::to_string(length) + ' ' + Shown({bytes, length}) : outcome, row.gives)
        << row.query;
  }
  for (const char *name : {"X:\\none.sys", "X:\\text.sys", "X:\\empty.sys"}) {
    EXPECT_EQ(Outcome([&] { return platform::GetFileVersionInfoSizeA(name, &handle) != 0; }), "1812") << name;
    EXPECT_EQ(Outcome([&] { return platform::GetFileVersionInfoA(name, 0, 16, block.data()); }), "1812") << name;
  }
}

// --- Devices --------------------------------------------------------------------------------------------------------

using DevicesContract = MachineTest;

HDEVINFO g_set;
SP_DEVINFO_DATA g_device;

TEST_F(DevicesContract, Failures) {
  Open();
  static constexpr GUID kDisks = {0x4D36E967, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
  static constexpr GUID kNone = {0x12345678, 0x1234, 0x1234, {1, 2, 3, 4, 5, 6, 7, 8}};
  g_set = platform::SetupDiGetClassDevsA(&kNone, nullptr, nullptr, DIGCF_PRESENT);
  g_device = {};
  g_device.cbSize = sizeof g_device;
  constexpr Row rows[] = {
      {"class name",
       [] {
         Buffer name;
         const std::string outcome =
             Outcome([&] { return platform::SetupDiClassNameFromGuidA(&kDisks, name.bytes, 32, nullptr); });
         return outcome + ' ' + name.Text();
       },
       "ok DiskDrive"},
      {"no such class",
       [] {
         Buffer name;
         return Outcome([&] { return platform::SetupDiClassNameFromGuidA(&kNone, name.bytes, 32, nullptr); });
       },
       "E0000206!"},
      {"no device", [] { return Outcome([] { return platform::SetupDiEnumDeviceInfo(g_set, 0, &g_device); }); }, "259"},
      {"no set",
       [] { return Outcome([] { return platform::SetupDiEnumDeviceInfo(INVALID_HANDLE_VALUE, 0, &g_device); }); }, "6"},
      {"no record",
       [] {
         return Outcome([] {
           SP_DEVINFO_DATA wrong = {};
           return platform::SetupDiEnumDeviceInfo(g_set, 0, &wrong);
         });
       },
       "1784"},
      {"no class and not all",
       [] { return Outcome([] { return platform::SetupDiGetClassDevsA(nullptr, nullptr, nullptr, 0); }); }, "87"},
      {"end of no set",
       [] { return Outcome([] { return platform::SetupDiDestroyDeviceInfoList(INVALID_HANDLE_VALUE); }); }, "6"},
      {"end of the set", [] { return Outcome([] { return platform::SetupDiDestroyDeviceInfoList(g_set); }); }, "ok"},
      {"its second end", [] { return Outcome([] { return platform::SetupDiDestroyDeviceInfoList(g_set); }); }, "6"},
  };
  Check(rows);
}

}  // namespace
