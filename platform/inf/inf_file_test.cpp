#include "platform/inf/inf_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "platform/text/code_page.h"

namespace machine {
namespace {

using testing::ElementsAre;

std::shared_ptr<InfFile> Read(std::string_view bytes, unsigned codePage = 1252, unsigned language = 0x0409) {
  return ReadInf(bytes, MakeInfSettings(codePage, language, "X:\\Windows", "X:\\Windows\\System32"));
}

// A line as "key=<value><value>", without key "<value><value>".
std::string ShowLine(InfFile *file, const InfSection &section, const InfLine &line) {
  std::string shown = line.hasKey ? FieldText(file, section, line, 0) + "=" : "";
  for (std::uint32_t i = 1; i <= line.valueCount; ++i) shown += "<" + FieldText(file, section, line, i) + ">";
  return shown;
}

std::vector<std::string> ShowSection(InfFile *file, std::string_view name) {
  std::vector<std::string> lines;
  const InfSection *section = FindSection(file, name);
  if (section == nullptr) return {"no section"};
  for (const InfLine &line : section->lines) lines.push_back(ShowLine(file, *section, line));
  return lines;
}

// All sections as "[name] line line".
std::string Show(InfFile *file) {
  std::string shown;
  for (std::uint32_t i = 0; i < file->sections.size(); ++i) {
    const InfSection &section = ParsedSection(file, i);
    shown += (shown.empty() ? "[" : " [") + std::string(SectionName(*file, section)) + "]";
    for (const InfLine &line : section.lines) shown += " " + ShowLine(file, section, line);
  }
  return shown;
}

std::string Utf16(std::u16string_view text) {
  std::string bytes = "\xFF\xFE";
  for (const char16_t unit : text) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

struct GrammarCase {
  const char *rule;
  std::string text;  // below a section header
  std::vector<std::string> lines;
};

TEST(InfFile, ReadsLinesByTheGrammar) {
  const GrammarCase cases[] = {
      {"key and values", "ab=cd,ef", {"ab=<cd><ef>"}},
      {"blanks are dropped around keys, values and commas", " \tab = c d \t, ef ", {"ab=<c d><ef>"}},
      {"one bare value is key and field 1", "ab", {"ab=<ab>"}},
      {"a quoted bare value too", "\" a,b \"", {" a,b =< a,b >"}},
      {"several values without key", "a.sys,,,2", {"<a.sys><><><2>"}},
      {"a comma before = leaves the line without key", "ab,cd=ef", {"<ab><cd=ef>"}},
      {"only the first = splits", "ab=cd=ef", {"ab=<cd=ef>"}},
      {"no = inside quotes splits", "\"a=b\" = c", {"a=b=<c>"}},
      {"an empty key", "=ab", {"=<ab>"}},
      {"a key without value has none", "ab=", {"ab="}},
      {"an empty quoted value is one", "ab=\"\"", {"ab=<>"}},
      {"omitted values", "ab=,cd,,", {"ab=<><cd><><>"}},
      {"commas alone", ",", {"<><>"}},
      {"all line ends", "a=1\rb=2\nc=3\r\nd=4", {"a=<1>", "b=<2>", "c=<3>", "d=<4>"}},
      {"blank lines", "\n \n\ta=1\n\r\n\r\n", {"a=<1>"}},
      {"quotes keep blanks and separators", "ab=\" c;d , \",x", {"ab=< c;d , ><x>"}},
      {"quotes in the middle of a field", "ab=cd \"  ef \" gh", {"ab=<cd   ef  gh>"}},
      {"doubled quotes inside quotes", "ab=\"\"\"cd\"\"\"", {"ab=<\"cd\">"}},
      {"a quote left open ends with its line", "ab=\"c, d \nef=gh", {"ab=<c, d >", "ef=<gh>"}},
      {"a quote left open ends the file", "ab=\"c", {"ab=<c>"}},
      {"comments", "; a=b\nc=d;e\n ;x\nf=\"g;h\";i", {"c=<d>", "f=<g;h>"}},
      {"a comment's backslash is one", "a=b ; c\\\nd=e", {"a=<b>", "d=<e>"}},
      {"continuation", "a=b,\\\n  c", {"a=<b><c>"}},
      {"continuation with CRLF", "a=b,\\\r\n  c", {"a=<b><c>"}},
      {"continuation before a comment", "a=b, \\ ; why\n c", {"a=<b><c>"}},
      {"several trailing backslashes drop", "a=b\\\\ \\ \\\n c", {"a=<bc>"}},
      {"continuation of a key", "a\\\n b=c", {"ab=<c>"}},
      {"continuation to a blank line", "a=b\\\n\nc=d", {"a=<b>", "c=<d>"}},
      {"continuation at the end", "a=b\\", {"a=<b>"}},
      {"a backslash elsewhere is text", "a=b\\c, \\d\\ e", {"a=<b\\c><\\d\\ e>"}},
      {"a backslash in quotes is itself", "a=\"b\\\nc=\"d\\\"", {"a=<b\\>", "c=<d\\>"}},
      {"a bracket in a continued line is text", "a=b,\\\n[c]\nd=e", {"a=<b><[c]>", "d=<e>"}},
      {"a comment in a continued line", "a=b,\\\n;c\nd=e", {"a=<b><>", "d=<e>"}},
      {"NUL is a blank", std::string("a=b\0c\0", 6), {"a=<b c>"}},
      {"0x1A ends the file",
       "a=b\x1A"
       "c\nd=e",
       {"a=<b>"}},
  };
  for (const GrammarCase &grammar : cases) {
    SCOPED_TRACE(grammar.rule);
    const std::shared_ptr<InfFile> file = Read("[T]\n" + grammar.text);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(ShowSection(file.get(), "T"), grammar.lines);
  }
}

TEST(InfFile, FindsSections) {
  struct {
    const char *rule;
    std::string text, shown;
  } const cases[] = {
      {"sections of one name are one, in file order", "[A]\n1\n[B]\n2\n[a]\n3\n[b]\n4",
       "[A] 1=<1> 3=<3> [B] 2=<2> 4=<4>"},
      {"a header may be indented and followed by a comment", "\n ; c\n  [A b] ; c = d\nx=1", "[A b] x=<1>"},
      {"a header's backslash joins nothing", "[A] \\\n[B]\\\nx", "[A] [B] x=<x>"},
      {"a continuation that looks like a header", "[A]\nx=1,\\\n[B] \\\n[C]\n[D]", "[A] x=<1><[B][C]> [D]"},
      {"CR alone ends a header's line", "[A]\rx\r[B]\r", "[A] x=<x> [B]"},
      {"brackets in text", "[A]\nx=[B]\n;[C]\ny=\"\n[D]", "[A] x=<[B]> y=<> [D]"},
      {"nothing at all", "", ""},
  };
  for (const auto &sections : cases) {
    SCOPED_TRACE(sections.rule);
    const std::shared_ptr<InfFile> file = Read(sections.text);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(Show(file.get()), sections.shown);
  }
  std::string many;
  for (int i = 0; i < 1000; ++i) many += "[s" + std::to_string(i) + "]\nn=" + std::to_string(i) + "\n";
  const std::shared_ptr<InfFile> file = Read(many);
  ASSERT_EQ(file->sections.size(), 1000u);
  EXPECT_THAT(ShowSection(file.get(), "S617"), ElementsAre("n=<617>"));
  EXPECT_THAT(ShowSection(file.get(), "S1000"), ElementsAre("no section"));
}

TEST(InfFile, RefusesWhatIsNoInfText) {
  struct {
    std::string text, reason;
    std::uint32_t error;
  } const cases[] = {
      {"; c\r\n\r\nx=1\n[A]", "line 3: there is text before the first section", 0xE0000000},
      {"no section", "line 1: there is text before the first section", 0xE0000000},
      {"[A]\n[B\n", "line 2: a section name has no \"]\"", 0xE0000001},
      {"[" + std::string(10000, 'x') + "]", "line 1: a section name is longer than 255 characters", 0xE0000002},
      {"\xFE\xFF bytes the other way round", "line 1: the text is UTF-16 with the high byte first, save it as UTF-16LE",
       0xE0000000},
  };
  for (const auto &refused : cases) {
    InfRefusal refusal;
    EXPECT_EQ(ReadInf(refused.text, MakeInfSettings(1252, 0x0409), &refusal), nullptr);
    EXPECT_EQ(refusal.reason, refused.reason);
    EXPECT_EQ(refusal.error, refused.error);
    EXPECT_EQ(refusal.reason.rfind("line " + std::to_string(refusal.line) + ":", 0), 0u);
  }
  EXPECT_NE(Read("[" + std::string(255, 'x') + "]"), nullptr);
}

TEST(InfFile, ReadsEveryEncoding) {
  const std::string expected =
      "[S\xFC"
      "d] k\xF6y=<w\xE4r?>";
  EXPECT_EQ(Show(Read("[S\xFC"
                      "d]\nk\xF6y=w\xE4r?")
                     .get()),
            expected);
  EXPECT_EQ(Show(Read("\xEF\xBB\xBF[S\xC3\xBC"
                      "d]\nk\xC3\xB6y=w\xC3\xA4r\xE4\xB8\xAD")
                     .get()),
            expected);
  EXPECT_EQ(Show(Read(Utf16(u"[S\u00FCd]\r\nk\u00F6y=w\u00E4r\u4E2D")).get()), expected);
  EXPECT_EQ(Show(Read(Utf16(u"[A]\nx=\xD83D") + "q").get()), "[A] x=<?>");
  EXPECT_EQ(Show(Read("\xEF\xBB\xBF").get()), "");
  EXPECT_EQ(Show(Read("\xFF\xFE").get()), "");
}

// The second byte of a two-byte character may be a backslash or a bracket.
TEST(InfFile, TakesTwoByteCharactersWhole) {
  const std::shared_ptr<InfFile> file = Read("[a\x83]b]\nx=\x83\\\ny=\"\x83\\\",\x95\\z", 932);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(Show(file.get()), "[a\x83]b] x=<\x83\\> y=<\x83\\><\x95\\z>");
  // A field is cut before the character that its limit would split.
  for (const std::size_t before : {4094u, 4095u}) {
    const std::shared_ptr<InfFile> cut = Read("[T]\n" + std::string(before, 'a') + "\x83\x5E\x83\x5E\n", 932);
    const InfSection *section = FindSection(cut.get(), "T");
    EXPECT_EQ(RawField(*section, section->lines[0], 1).size(), before == 4094 ? 4096u : 4095u);
  }
}

TEST(InfFile, ReplacesTokens) {
  const std::string strings =
      "\n[Strings]\nName = \"Fast Disk\"\nnest=%Name%\nempty=\nEmpty=later\nblank=\"\"\nname=second\n17=own";
  struct {
    const char *raw, *replaced;
  } const cases[] = {
      {"%name%", "Fast Disk"},
      {"a %NAME% b%name%", "a Fast Disk bFast Disk"},
      {"100%%", "100%"},
      {"%%Name%%", "%Name%"},
      {"%unknown% %Name%", "%unknown% Fast Disk"},
      {"50% of", "50% of"},
      {"%nest%", "%Name%"},
      {"%empty%", "later"},
      {"x%blank%y", "xy"},
      {"%10%\\a", "X:\\Windows\\a"},
      {"%11%", "X:\\Windows\\System32"},
      {"%12%\\a.sys", "X:\\Windows\\System32\\drivers\\a.sys"},
      {"%17%", "own"},
      {"%24%", "%24%"},
      {"%", "%"},
  };
  const std::shared_ptr<InfFile> file = Read("[T]" + strings);
  for (const auto &token : cases) EXPECT_EQ(ReplaceTokens(file.get(), token.raw), token.replaced);
  EXPECT_EQ(ReplaceTokens(Read("[T]").get(), "%17%"), "X:\\Windows\\inf");
  const std::shared_ptr<const InfSettings> alone = MakeInfSettings(1252, 0x0409);
  EXPECT_EQ(ReplaceTokens(ReadInf("[T]", alone).get(), "%12%\\a"), "%12%\\a");
  const std::shared_ptr<InfFile> keys = Read("[T]\n%name%=1\n\"%name%\"=2" + strings);
  EXPECT_THAT(ShowSection(keys.get(), "T"), ElementsAre("Fast Disk=<1>", "Fast Disk=<2>"));
  EXPECT_EQ(FindKey(keys.get(), keys->sections[0], "fast disk", 1), 1u);
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(FindKey(keys.get(), keys->sections[0], "fast disk"), 0u) << i;  // asked often, it has a table of its keys
    ASSERT_EQ(FindKey(keys.get(), keys->sections[0], "slow disk"), kInfNone) << i;
  }
}

TEST(InfFile, ChoosesTheLanguage) {
  const std::string exact = "[Strings.0C07]\nv=exact\n";
  const std::string neutral = "[strings.0007]\nv=neutral\n";
  const std::string cousin = "[Strings.0407]\nv=cousin\n[Strings.0807]\nv=second\n";
  const std::string plain = "[Strings]\nv=plain\nonly=there\n";
  const std::string others = "[Strings.0409]\nv=english\n[Strings.C07]\nv=x\n[Strings.0C07.x]\nv=y\n";
  struct {
    std::string text, value;
  } const cases[] = {
      {plain + cousin + neutral + others + exact, "exact"},
      {cousin + neutral + plain + others, "neutral"},
      {plain + others + cousin, "cousin"},
      {others + plain, "plain"},
  };
  for (const auto &language : cases) {
    const std::shared_ptr<InfFile> file = Read(language.text, 1252, 0x0C07);
    EXPECT_EQ(ReplaceTokens(file.get(), "%V%"), language.value);
    EXPECT_EQ(ReplaceTokens(file.get(), "%only%"), "there");
  }
}

TEST(InfFile, KnowsModernFiles) {
  const std::pair<const char *, bool> cases[] = {
      {"[version]\nsignature=\"$WINDOWS NT$\"", true},
      {"[Version]\nSignature=$Chicago$", true},
      {"[Version]\nSignature=\"$Windows 95$\"", true},
      {"[Version]\nSignature=%s%\n[Strings]\ns=\"$Windows NT$\"", true},
      {"[Version]\nSignature=\"$Windows NT\"", false},
      {"[Version]\nSignature", false},
      {"[Other]\nSignature=\"$Windows NT$\"", false},
  };
  for (const auto &[text, modern] : cases) EXPECT_EQ(IsModernInf(Read(text).get()), modern) << text;
}

TEST(InfFile, ReadsUtf16WithTheHighByteFirstWhereItIsTaken) {
  auto settings = std::make_shared<InfSettings>(*MakeInfSettings(1252, 0x0409));
  settings->passOverTextBefore = true;
  const std::string_view bytes("\xFE\xFF\0[\0V\0]\0\n\0k\0=\0\xE9\0", 17);
  std::string value;
  const std::shared_ptr<InfFile> file = ReadInf(bytes, settings);
  ASSERT_TRUE(file != nullptr && FindValue(file.get(), *FindSection(file.get(), "v"), "K", &value));
  EXPECT_EQ(value, "\xE9");
}

TEST(InfFile, CutsLongFields) {
  const std::shared_ptr<InfFile> file =
      Read("[T]\na=" + std::string(5000, 'x') + ",y\nb=%s%%s%%s%\n[Strings]\ns=" + std::string(3000, 'z'));
  const InfSection *section = FindSection(file.get(), "T");
  EXPECT_EQ(FieldText(file.get(), *section, section->lines[0], 1), std::string(4096, 'x'));
  EXPECT_EQ(FieldText(file.get(), *section, section->lines[0], 2), "y");
  EXPECT_EQ(FieldText(file.get(), *section, section->lines[1], 1), std::string(4096, 'z'));
}

// Whatever the bytes are, every field can be asked for. The sanitizers watch.
bool AddValue(void *values, std::string_view value) {
  static_cast<std::vector<std::string> *>(values)->emplace_back(value);
  return true;
}

// A walk over a section's values finds those that its lines have.
void TouchAll(InfFile *file) {
  std::size_t length = 0;
  for (std::uint32_t i = 0; i < file->sections.size(); ++i) {
    const InfSection &section = ParsedSection(file, i);
    std::vector<std::string> values, walked;
    WalkValues(*file, i, 2, AddValue, &walked);
    for (const InfLine &line : section.lines) {
      for (std::uint32_t field = 2; line.hasKey && field <= line.valueCount; ++field) {
        if (!RawField(section, line, field).empty()) values.emplace_back(RawField(section, line, field));
      }
    }
    ASSERT_EQ(walked, values) << file->text;
    for (const InfLine &line : section.lines) {
      for (std::uint32_t field = line.hasKey ? 0 : 1; field <= line.valueCount; ++field) {
        length += RawField(section, line, field).size();
      }
    }
  }
  EXPECT_LE(length, 2 * file->text.size());  // a bare value counts twice
}

TEST(InfFile, SurvivesNoise) {
  std::mt19937 random(20261119);
  const std::string_view pieces[] = {"[",    "]",    "\n",       "\r",    "\\",    "\"",         ";",
                                     ",",    "=",    "%",        "\0",    " ",     "a",          "b",
                                     "\x1A", "\x83", "\xFF\xFE", "[v]\n", "\\\n[", "[Strings]\n"};
  for (int round = 0; round < 3000; ++round) {
    std::string text = round % 2 == 0 ? "[a]" : round % 3 == 0 ? "\xFF\xFE[\0" : "";
    for (unsigned length = random() % 200; length > 0; --length) {
      text += round % 5 == 0 ? std::string(1, static_cast<char>(random())) : pieces[random() % std::size(pieces)];
    }
    const std::shared_ptr<InfFile> file = Read(text, round % 4 == 0 ? 932 : 1252);
    if (file == nullptr) continue;
    TouchAll(file.get());
    ReplaceTokens(file.get(), text);
    IsModernInf(file.get());
  }
}

// A quadratic step would take minutes here; the limit leaves room for a loaded machine and the sanitizers.
TEST(InfFile, TakesTimeInProportion) {
  constexpr std::size_t kSize = 1 << 19;
  const auto repeat = [](std::string_view text) {
    std::string all;
    while (all.size() < kSize) all += text;
    return all;
  };
  const std::string texts[] = {
      "[T]\n" + repeat("x"),
      "[T]\n" + repeat("x,"),
      "[T]\n" + repeat("\\"),
      "[T]\n" + repeat("\\ \\x"),
      "[T]\n" + repeat("\""),
      "[T]\n" + repeat("\"\n"),
      "[T]\n" + repeat("x\\\n"),
      "[T]\n" + repeat("[x]\\\n"),
      "[T]\n" + repeat("y,\\\n[x]\\\n"),
      "[T]\n" + repeat(" ["),
      "[T]\n" + repeat("%a%") + "\n[Strings]\na=b",
      "[T]\n" + repeat("[ \xE4\xF6]\n"),
      repeat("\n"),
      repeat(" "),
      repeat("[x\n"),
      "\xFF\xFE" + repeat(std::string("[\0x\0]\0\n\0\xE4\0", 10)),
  };
  const auto begin = std::chrono::steady_clock::now();
  for (const std::string &text : texts) {
    const std::shared_ptr<InfFile> file = Read(text);
    if (file == nullptr) continue;
    TouchAll(file.get());
    ReplaceTokens(file.get(), text);
  }
  std::string names;
  for (int i = 0; i < 50000; ++i) names += "[n" + std::to_string(i) + "]\n";
  const std::shared_ptr<InfFile> file = Read(names);
  ASSERT_EQ(file->sections.size(), 50000u);
  for (int i = 0; i < 50000; ++i) ASSERT_NE(FindSectionIndex(*file, "N" + std::to_string(i)), kInfNone);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

std::string ReadBytes(const std::filesystem::path &path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

TEST(InfFile, ReadsTheCorpus) {
  const char *corpus = std::getenv("VXR_CORPUS_DIR");
  if (corpus == nullptr) GTEST_SKIP() << "VXR_CORPUS_DIR is not set";
  const std::filesystem::path root = std::filesystem::path(corpus) / "inf";
  int files = 0, refused = 0, modern = 0;
  for (const auto &entry : std::filesystem::recursive_directory_iterator(root)) {
    if (!entry.is_regular_file()) continue;
    InfRefusal refusal;
    const std::shared_ptr<InfFile> file = ReadInf(ReadBytes(entry.path()), MakeInfSettings(1252, 0x0409), &refusal);
    ++files;
    if (file == nullptr) {
      EXPECT_EQ(refusal.reason, "line 1: there is text before the first section") << entry.path();
      ++refused;  // "/*++", the mark of another language's comment
      continue;
    }
    TouchAll(file.get());
    if (IsModernInf(file.get())) ++modern;
  }
  EXPECT_EQ(files, 159);
  EXPECT_EQ(refused, 8);
  EXPECT_EQ(modern, 150);

  const std::shared_ptr<InfFile> disk = Read(ReadBytes(root / "kvm-guest-drivers-windows/viostor_viostor.inx"));
  EXPECT_THAT(ShowSection(disk.get(), "Manufacturer"), ElementsAre("INX_COMPANY=<VioStor><NT$ARCH$>"));
  EXPECT_THAT(ShowSection(disk.get(), "viostor_files_driver"), ElementsAre("<viostor.sys><><><2>"));
  EXPECT_THAT(ShowSection(disk.get(), "SourceDisksNames"),
              ElementsAre("1=<INX_PREFIX_VENDORVirtIO SCSI controller Installation Disk><><><>"));
  EXPECT_THAT(ShowSection(disk.get(), "scsi_EventLog_AddReg"),
              ElementsAre("<HKR><><EventMessageFile><0x00020000><%SystemRoot%\\System32\\IoLogMsg.dll>",
                          "<HKR><><TypesSupported><0x00010001><7>"));
  const std::shared_ptr<InfFile> wide =
      Read(ReadBytes(root / "Windows-driver-samples/network_netadaptercx_netvadapter_km_netvadapter.inf"));
  EXPECT_EQ(static_cast<unsigned char>(wide->text[0]) & 0x80, 0);
  EXPECT_TRUE(IsModernInf(wide.get()));
  const std::shared_ptr<InfFile> host = Read(ReadBytes(root / "Windows-driver-samples/sd_miniport_sdhc_sdhc.inx"));
  std::string all = Show(host.get());
  const std::size_t at = all.find("<HKR><Parameters><SdCmdFlags><1><05><01><06><01>");
  ASSERT_NE(at, std::string::npos);
  const std::string line = all.substr(at, all.find(' ', at) - at);
  EXPECT_TRUE(line.ends_with("<38><01><22><01><23><05><24><01><25><01>")) << line;
}

}  // namespace
}  // namespace machine
