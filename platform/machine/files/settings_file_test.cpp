// Settings files: what reading makes of a file's lines, and that writing changes one value and nothing else.
#include <sys/stat.h>

#include <cstring>
#include <random>

#include "platform/platform.h"
#include "tests/support/standard_machine.h"
#include "tests/support/test_machine.h"

namespace {

struct SettingsTest : MachineTest {
  static int Read(const char *key, const char *section = "debugging", const char *file = "X:\\s.ini") {
    return static_cast<int>(platform::GetPrivateProfileIntA(section, key, -99, file));
  }

  static std::string ReadText(const char *section, const char *key, const char *file = "X:\\s.ini") {
    char buffer[64];
    const DWORD length = platform::GetPrivateProfileStringA(section, key, "(none)", buffer, sizeof buffer, file);
    EXPECT_EQ(length, std::strlen(buffer));
    return buffer;
  }

  // NO_ERROR or why not.
  static DWORD Write(const char *section, const char *key, const char *value, const char *file = "X:\\s.ini") {
    return platform::WritePrivateProfileStringA(section, key, value, file) ? NO_ERROR : platform::GetLastError();
  }
};

// UTF-16LE with its mark.
std::string Wide(const std::u16string &text) {
  const std::u16string marked = u"\uFEFF" + text;
  return {reinterpret_cast<const char *>(marked.data()), marked.size() * 2};
}

TEST_F(SettingsTest, ReadsOtherEncodings) {
  WriteFile("ram/wide.ini", Wide(u"[debugging]\r\nn\u00E4me=3\r\n") + "x");
  WriteFile("ram/utf8.ini", "\xEF\xBB\xBF[debugging]\nn\u00E4me=4\n");
  WriteFile("ram/Windows/plain.ini", "[debugging]\nn\xE4me=5\n");
  Open();
  EXPECT_EQ(Read("N\xC4ME", "debugging", "X:\\wide.ini"), 3);
  EXPECT_EQ(Read("n\xE4me", "debugging", "X:\\utf8.ini"), 4);
  EXPECT_EQ(Read("n\xE4me", "debugging", "plain.ini"), 5);  // a bare name is looked for in the Windows directory
}

TEST_F(SettingsTest, CutsTextsToTheBuffer) {
  WriteFile("ram/s.ini", "[C]\nDeviceName=" + std::string(300, 'n') + "\nja=\x93\xFA\x96\x7B\n");
  Open("", std::string(kStandardSystem) + "code_page = 932\n");
  const struct {
    const char *key, *fallback;
    DWORD size;
    std::string value;
  } cases[] = {{"DeviceName", "", 260, std::string(259, 'n')},
               {"DeviceName", "", 301, std::string(300, 'n')},
               {"DeviceName", "", 1, ""},
               {"none", "No BM File Name", 6, "No BM"},
               {"none", nullptr, 6, ""},
               {"ja", "", 5, "\x93\xFA\x96\x7B"},
               {"ja", "", 4, "\x93\xFA"}};
  for (const auto &c : cases) {
    std::string buffer(c.size + 1, '#');
    EXPECT_EQ(platform::GetPrivateProfileStringA("C", c.key, c.fallback, buffer.data(), c.size, "X:\\s.ini"),
              c.value.size());
    EXPECT_EQ(buffer.c_str(), c.value);
    EXPECT_EQ(buffer[c.size], '#');
  }
  EXPECT_EQ(platform::GetPrivateProfileStringA("C", "ja", "", nullptr, 0, "X:\\s.ini"), 0u);
}

TEST_F(SettingsTest, ChangesOneValueAndNothingElse) {
  const struct {
    const char *name;
    std::string before, after;
  } cases[] = {
      {"replaced by other spellings", "  [bmextension] x\r\n item0\t= \"old\" \r\nItem0=2\r\n",
       "  [bmextension] x\r\n item0\t= new\r\nItem0=2\r\n"},
      {"appended before the blank lines", "[BMExtension]\r\na=1\r\n; b\r\n \r\n\r\n[z]\r\nItem0=z\r\n",
       "[BMExtension]\r\na=1\r\n; b\r\nItem0=new\r\n \r\n\r\n[z]\r\nItem0=z\r\n"},
      {"appended to a bare header", "[z]\n[BMExtension]\n\n", "[z]\n[BMExtension]\nItem0=new\n\n"},
      {"section added", "; top\nx\n[z]\na=1\n\n", "; top\nx\n[z]\na=1\n\n[BMExtension]\nItem0=new\n"},
      {"both line ends", "[z]\na=1\r\n", "[z]\na=1\r\n[BMExtension]\r\nItem0=new\r\n"},
      {"UTF-16", Wide(u"[bmextension]\r\n\u4E00=1\r\nItem0 = o\r\n[z]\r\n") + "x",
       Wide(u"[bmextension]\r\n\u4E00=1\r\nItem0 = new\r\n[z]\r\n") + "x"},
      {"UTF-16, appended", Wide(u"[z]\n\u0A5B\u3D0A"), Wide(u"[z]\n\u0A5B\u3D0A\n[BMExtension]\nItem0=new\n")},
      {"UTF-8", "\xEF\xBB\xBF[BMExtension]\nItem0=\xE4\xB8\x80\n\xE4\xB8\x80\xFF=1\n",
       "\xEF\xBB\xBF[BMExtension]\nItem0=new\n\xE4\xB8\x80\xFF=1\n"},
  };
  Open();
  for (const auto &c : cases) {
    WriteFile("ram/s.ini", c.before);
    EXPECT_EQ(Write("BMExtension", "Item0", "new"), NO_ERROR) << c.name;
    EXPECT_EQ(ReadFile("ram/s.ini"), c.after) << c.name;
  }
}

TEST_F(SettingsTest, RefusesAndLeavesTheFileAlone) {
  const std::string text = "[BMExtension]\r\nItemCount=0\r\n";
  for (const char *name : {"ram/i/s.ini", "ram/i/ro.ini"}) WriteFile(name, text);
  WriteFile("ram/i/be.ini", "\xFE\xFF");
  std::filesystem::create_directories(Host("ram/i/dir.ini"));
  chmod(Host("ram/i/ro.ini").c_str(), 0444);
  const std::vector<std::string> names = Names("ram/i");
  Open();
  const struct {
    const char *section, *key, *value, *file;
    DWORD error;
  } cases[] = {
      {"s", "k", "v", "X:\\i\\ro.ini", ERROR_ACCESS_DENIED},
      {"s", "k", "v", "X:\\i\\dir.ini", ERROR_ACCESS_DENIED},
      {"s", "k", "v", "X:\\i\\be.ini", ERROR_INVALID_DATA},
      {"s", "k", "v", "X:\\none\\s.ini", ERROR_PATH_NOT_FOUND},
      {"s", "k", "v\r\n[x]", "X:\\i\\s.ini", ERROR_INVALID_PARAMETER},
      {"s\n", "k", "v", "X:\\i\\s.ini", ERROR_INVALID_PARAMETER},
      {"s]", "k", "v", "X:\\i\\s.ini", ERROR_INVALID_PARAMETER},
      {"s", "k=", "v", "X:\\i\\s.ini", ERROR_INVALID_PARAMETER},
      {"s", ";k", "v", "X:\\i\\s.ini", ERROR_INVALID_PARAMETER},
      {"s", "", "v", "X:\\i\\s.ini", ERROR_INVALID_PARAMETER},
      {"s", " k", "v", "X:\\i\\s.ini", ERROR_INVALID_PARAMETER},
      {"s", "k", nullptr, "X:\\i\\s.ini", ERROR_INVALID_PARAMETER},
  };
  for (const auto &c : cases) EXPECT_EQ(Write(c.section, c.key, c.value, c.file), c.error) << c.file << c.key;

  EXPECT_EQ(ReadFile("ram/i/s.ini"), text);
  EXPECT_EQ(ReadFile("ram/i/ro.ini"), text);
  EXPECT_THAT(Names("ram/i"), testing::UnorderedElementsAreArray(names));
}

TEST_F(SettingsTest, ANewFileTakesOverModeAndAttributes) {
  WriteFile("ram/Set.ini", "[a]\n");
  chmod(Host("ram/Set.ini").c_str(), 0640);
  Open();
  ASSERT_TRUE(platform::SetFileAttributesA("X:\\set.ini", FILE_ATTRIBUTE_HIDDEN));
  EXPECT_EQ(Write("a", "k", "v", "X:\\SET.INI"), NO_ERROR);
  EXPECT_EQ(ReadFile("ram/Set.ini"), "[a]\nk=v\n");
  struct stat status = {};
  ASSERT_EQ(stat(Host("ram/Set.ini").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
  EXPECT_EQ(platform::GetFileAttributesA("X:\\Set.ini"), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE);
}

}  // namespace
