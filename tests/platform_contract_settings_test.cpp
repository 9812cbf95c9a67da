// What the calls on the registry and on settings files give, on Windows and on the described machine alike.
#include <string>
#include <vector>

#include "tests/support/contract.h"
#include "tests/support/test_machine.h"

namespace {

using namespace contract;

// --- Registry -------------------------------------------------------------------------------------------------------

using RegistryContract = MachineTest;

constexpr char kValues[] = R"([registry.'SOFTWARE\Varnelt\Values']
'' = 'the default'
Text = 'four'
Number = 7
List = ['one', 'two']
Empty = ''
NoTexts = []
Expands = { type = 2, hex = '25 00 41 00 25 00 00 00' }
Unended = { type = 7, hex = '61 00 00 00' }
Inner = { type = 1, hex = '61 00 00 00 62 00 00 00' }
Accent = { type = 1, hex = 'E9 00 AC 20 00 4E 00 00' }
Bytes = { type = 3, hex = '01 02 03' }
Nothing = { type = 3, hex = '' }
None = { type = 0, hex = '61 00' }
Wide = { type = 11, hex = '01 02 03 04 05 06 07 08' }
Odd = { type = 77, hex = '61 00' }
[registry.'SOFTWARE\Varnelt\Values\Below']
Number = 8
)";

// A key that is open, by its path below HKEY_LOCAL_MACHINE; the closer closes it.
struct Key {
  HKEY key = nullptr;
  explicit Key(const char *path = "SOFTWARE\\Varnelt\\Values") {
    EXPECT_EQ(platform::RegOpenKeyA(HKEY_LOCAL_MACHINE, path, &key), ERROR_SUCCESS) << path;
  }
  ~Key() { platform::RegCloseKey(key); }
};

// What opening and making a key give, and the number of the value in it.
template <class Open>
std::string OpenedKey(Open open, HKEY root, const char *path) {
  HKEY key = nullptr;
  const std::string status = Status(open(root, path, &key));
  if (status != "ok") return status + (key == nullptr ? "" : " and a key");
  DWORD number = 0, size = sizeof number, type = 0;
  const LSTATUS read =
      platform::RegQueryValueExA(key, "Number", nullptr, &type, reinterpret_cast<BYTE *>(&number), &size);
  const std::string closed = key == root ? "same" : Status(platform::RegCloseKey(key));
  return closed + ' ' + (read == ERROR_SUCCESS ? std::to_string(number) : "none");
}

TEST_F(RegistryContract, Keys) {
  Open(kValues);
  const struct {
    const char *path, *opens, *makes;
  } rows[] = {
      {"SOFTWARE\\Varnelt\\Values", "ok 7", "ok 7"},
      {"Software\\VARNELT\\values", "ok 7", "ok 7"},
      {"SOFTWARE\\Varnelt\\Values\\", "ok 7", "ok 7"},
      {"SOFTWARE\\\\Varnelt\\Values", "ok 7", "ok 7"},
      {"\\SOFTWARE\\Varnelt\\Values", "161", "161"},
      {"\\", "161", "161"},
      {"SOFTWARE\\Varnelt\\None", "2", "ok none"},
      {"SOFTWARE\\Varnelt\\None", "ok none", "ok none"},
      {"SOFTWARE\\Varnelt\\Not\\There", "2", "ok none"},
      {"SOFTWARE\\Varnelt\\Values\\Number", "2", "ok none"},
      {"SOFTWARE/Varnelt", "2", "87!"},
      {"SOFTWARE\\Varnelt\\Values\\Below\\..", "2", "ok none"},
      {"SOFTWARE\\Varnelt\\a/b:c*d?\"<>|", "2", "ok none"},
      {" SOFTWARE\\Varnelt\\Values", "2", "87!"},
      {"SOFTWARE\\Varnelt\\Values ", "2", "ok none"},
      {"", "same none", "ok none"},
      {nullptr, "same none", "ok none"},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(OpenedKey(platform::RegOpenKeyA, HKEY_LOCAL_MACHINE, row.path), row.opens)
        << "opens " << (row.path == nullptr ? "null" : row.path);
#ifdef _WIN32
    if (row.makes[2] == '!') continue;  // Windows would keep the key from test to test
#endif
    EXPECT_PRED2(Agrees, OpenedKey(platform::RegCreateKeyA, HKEY_LOCAL_MACHINE, row.path), row.makes)
        << "makes " << (row.path == nullptr ? "null" : row.path);
  }
  const Key key("SOFTWARE\\Varnelt");
  EXPECT_EQ(OpenedKey(platform::RegOpenKeyA, key.key, "Values"), "ok 7");
  EXPECT_EQ(OpenedKey(platform::RegOpenKeyA, key.key, ""), "same none");
  EXPECT_EQ(OpenedKey(platform::RegOpenKeyA, nullptr, "Values"), "6");
  EXPECT_EQ(Status(platform::RegOpenKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE", nullptr)), "87");
  EXPECT_EQ(Status(platform::RegCloseKey(nullptr)), "6");
  EXPECT_EQ(Status(platform::RegCloseKey(HKEY_LOCAL_MACHINE)), "ok");
}

// Status, type, size and what is in the buffer.
std::string Queried(HKEY key, const char *name, DWORD size) {
  Buffer buffer(size);
  DWORD type = 99;
  const LSTATUS status =
      platform::RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE *>(buffer.bytes), &buffer.size);
  char text[64];
  std::snprintf(text, sizeof text, "%s type %u size %u ", Status(status).c_str(), static_cast<unsigned>(type),
                static_cast<unsigned>(buffer.size));
  return status == ERROR_FILE_NOT_FOUND ? "2" : text + Shown({buffer.bytes, size});
}

TEST_F(RegistryContract, Values) {
  Open(kValues);
  const Key key;
  const struct {
    const char *name;
    DWORD size;
    const char *gives;
  } rows[] = {
      {"Text", 8, "ok type 1 size 5 four<00>~~~"},
      {"TEXT", 8, "ok type 1 size 5 four<00>~~~"},
      {"Text", 5, "ok type 1 size 5 four<00>"},
      {"Text", 4, "234 type 1 size 5 ~~~~"},
      {"Text", 0, "234 type 1 size 5 "},
      {"Number", 4, "ok type 4 size 4 <07><00><00><00>"},
      {"Number", 3, "234 type 4 size 4 ~~~"},
      {"List", 9, "ok type 7 size 9 one<00>two<00><00>"},
      {"List", 8, "234 type 7 size 9 ~~~~~~~~"},
      {"Empty", 2, "ok type 1 size 1 <00>~"},
      {"NoTexts", 2, "ok type 7 size 1 <00>~"},
      {"Expands", 5, "ok type 2 size 4 %A%<00>~"},
      {"Unended", 2, "ok type 7 size 2 a<00>"},
      {"Inner", 6, "ok type 1 size 4 a<00>b<00>~~"},
      {"Accent", 6, "ok type 1 size 4 <E9><80>?<00>~~"},
      {"Bytes", 4, "ok type 3 size 3 <01><02><03>~"},
      {"Bytes", 2, "234 type 3 size 3 ~~"},
      {"Nothing", 2, "ok type 3 size 0 ~~"},
      {"None", 4, "ok type 0 size 2 a<00>~~"},
      {"Wide", 8, "ok type 11 size 8 <01><02><03><04><05><06><07><08>"},
      {"Odd", 4, "ok type 77 size 2 a<00>~~"},
      {"Missing", 4, "2"},
      {"", 12, "ok type 1 size 12 the default<00>"},
      {nullptr, 12, "ok type 1 size 12 the default<00>"},
      {"Below", 4, "2"},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(Queried(key.key, row.name, row.size), row.gives) << (row.name ? row.name : "null") << ' ' << row.size;
  }
  DWORD size = 99, type = 99;
  BYTE byte = 0;
  EXPECT_EQ(Status(platform::RegQueryValueExA(key.key, "Text", nullptr, nullptr, nullptr, nullptr)), "ok");
  EXPECT_EQ(Status(platform::RegQueryValueExA(key.key, "Text", nullptr, &type, &byte, nullptr)), "87");
  EXPECT_EQ(Status(platform::RegQueryValueExA(key.key, "Accent", nullptr, &type, nullptr, &size)), "ok");
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(Status(platform::RegQueryValueExA(nullptr, "Text", nullptr, &type, nullptr, &size)), "6");
}

TEST_F(RegistryContract, Settings) {
  Open(kValues);
  const Key key;
  const struct {
    const char *name;
    DWORD type;
    const char *data;
    DWORD size;
    const char *gives, *then;
  } rows[] = {
      {"New", REG_SZ, "four", 5, "ok", "ok type 1 size 5 four<00>~~~~~"},
      {"Text", REG_SZ, "other", 6, "ok", "ok type 1 size 6 other<00>~~~~"},
      {"TEXT", REG_DWORD, "abcd", 4, "ok", "ok type 4 size 4 abcd~~~~~~"},
      {"Cut", REG_SZ, "four", 3, "ok", "ok type 1 size 3 fou<00>~~~~~~"},
      {"Expand", REG_EXPAND_SZ, "%A%", 4, "ok", "ok type 2 size 4 %A%<00>~~~~~~"},
      {"Texts", REG_MULTI_SZ, "a\0b\0", 5, "ok", "ok type 7 size 5 a<00>b<00><00>~~~~~"},
      {"Texts", REG_MULTI_SZ, "a\0", 2, "ok", "ok type 7 size 2 a<00>~~~~~~~~"},
      {"Bytes", REG_BINARY, "\x01\x02", 2, "ok", "ok type 3 size 2 <01><02>~~~~~~~~"},
      {"Empty", REG_BINARY, "", 0, "ok", "ok type 3 size 0 ~~~~~~~~~~"},
      {"Null", REG_SZ, nullptr, 0, "ok", "ok type 1 size 0 ~~~~~~~~~~"},
      {"NullBytes", REG_BINARY, nullptr, 0, "ok", "ok type 3 size 0 ~~~~~~~~~~"},
      {"Accent", REG_SZ, "\xE9\x80", 3, "ok", "ok type 1 size 3 <E9><80><00>~~~~~~~"},
      {"", REG_SZ, "default", 8, "ok", "ok type 1 size 8 default<00>~~"},
      {nullptr, REG_SZ, "again", 6, "ok", "ok type 1 size 6 again<00>~~~~"},
      {"Odd", 77, "abc", 3, "ok", "ok type 77 size 3 abc~~~~~~~"},
      {"Driver", 0xFFFF0012, "abc", 3, "ok", "ok type 4294901778 size 3 abc~~~~~~~"},
      {"Mark", REG_NONE, nullptr, 0, "ok", "ok type 0 size 0 ~~~~~~~~~~"},
      {"Small", REG_DWORD, "ab", 2, "ok", "ok type 4 size 2 ab~~~~~~~~"},
      {"a\\b/c", REG_SZ, "x", 2, "ok", "ok type 1 size 2 x<00>~~~~~~~~"},
  };
  for (const auto &row : rows) {
    const auto *data = reinterpret_cast<const BYTE *>(row.data);
    EXPECT_EQ(Status(platform::RegSetValueExA(key.key, row.name, 0, row.type, data, row.size)), row.gives) << row.name;
    EXPECT_EQ(Queried(key.key, row.name, 10), row.then) << (row.name == nullptr ? "null" : row.name);
  }
}

// The names that the key lists, sorted, each value's with type and size; then the error behind the last.
std::string Listed(HKEY key, bool values) {
  std::vector<std::string> names;
  for (DWORD index = 0;; ++index) {
    Buffer name;
    DWORD type = 99, size = 99;
    const LSTATUS status =
        values ? platform::RegEnumValueA(key, index, name.bytes, &name.size, nullptr, &type, nullptr, &size)
               : platform::RegEnumKeyExA(key, index, name.bytes, &name.size, nullptr, nullptr, nullptr, nullptr);
    if (status != ERROR_SUCCESS) {
      std::sort(names.begin(), names.end());
      std::string list;
      for (const std::string &each : names) list += each + ' ';
      return list + Status(status);
    }
    EXPECT_EQ(name.size, std::strlen(name.bytes));
    names.push_back(name.bytes + (values ? ":" + std::to_string(type) + ":" + std::to_string(size) : ""));
  }
}

// The first value of a key with one, in buffers of that many bytes.
std::string FirstValue(HKEY key, DWORD nameSize, DWORD dataSize) {
  Buffer name(nameSize), data(dataSize);
  const LSTATUS status = platform::RegEnumValueA(key, 0, name.bytes, &name.size, nullptr, nullptr,
                                                 reinterpret_cast<BYTE *>(data.bytes), &data.size);
  return status != ERROR_SUCCESS ? Status(status) : name.Text() + ' ' + std::to_string(data.size);
}

std::string DeletedKey(const char *path) { return Status(platform::RegDeleteKeyA(HKEY_LOCAL_MACHINE, path)); }

TEST_F(RegistryContract, ListsAndDeletions) {
  Open(R"([registry.'SOFTWARE\Varnelt\Lists']
'' = 'four'
Number = 7
[registry.'SOFTWARE\Varnelt\Lists\Below\Deep']
Number = 8
[registry.'SOFTWARE\Varnelt\Lists\other']
Text = ''
)");
  const Key key("SOFTWARE\\Varnelt\\Lists");
  EXPECT_EQ(Listed(key.key, false), "Below other 259");
  EXPECT_EQ(Listed(key.key, true), ":1:5 Number:4:4 259");
  const Key deep("SOFTWARE\\Varnelt\\Lists\\Below\\Deep");
  EXPECT_EQ(FirstValue(deep.key, 7, 4), "Number 4");
  EXPECT_EQ(FirstValue(deep.key, 6, 4), "234");
  EXPECT_EQ(FirstValue(deep.key, 7, 3), "234");
  Buffer name(5);
  EXPECT_EQ(Status(platform::RegEnumKeyExA(key.key, 0, name.bytes, &name.size, nullptr, nullptr, nullptr, nullptr)),
            "234");
  EXPECT_EQ(Listed(nullptr, false) + ' ' + Listed(nullptr, true), "6 6");

  EXPECT_EQ(Status(platform::RegDeleteValueA(key.key, "NUMBER")), "ok");
  EXPECT_EQ(Status(platform::RegDeleteValueA(key.key, "Number")), "2");
  EXPECT_EQ(Status(platform::RegDeleteValueA(key.key, nullptr)), "ok");
  EXPECT_EQ(Status(platform::RegDeleteValueA(nullptr, "Number")), "6");
  EXPECT_EQ(Listed(key.key, true), "259");
  const struct {
    const char *path, *gives;
  } rows[] = {
      {"SOFTWARE\\Varnelt\\Lists\\Below", "5"},        {"SOFTWARE\\Varnelt\\Lists\\none", "2"},
      {"SOFTWARE\\Varnelt\\none\\none", "2"},          {"\\SOFTWARE\\Varnelt\\Lists\\other", "161"},
      {"SOFTWARE\\Varnelt\\Lists\\OTHER\\", "ok"},     {"SOFTWARE\\Varnelt\\Lists\\other", "2"},
      {"SOFTWARE\\Varnelt\\Lists\\Below\\deep", "ok"}, {nullptr, "87"},
  };
  for (const auto &row : rows) EXPECT_EQ(DeletedKey(row.path), row.gives) << (row.path ? row.path : "null");
  EXPECT_EQ(Listed(key.key, false), "Below 259");
  EXPECT_EQ(OpenedKey(platform::RegCreateKeyA, key.key, "Below\\Deep"), "ok none") << "made anew, and empty";
}

// --- Settings files -------------------------------------------------------------------------------------------------

using SettingsContract = MachineTest;

constexpr char kSettings[] =
    "Before=no section\r\n"
    "[Main]\r\n"
    "Plain=text\r\n"
    "  Blanks  =   some text  \r\n"
    "Tab\t=\tx\t\r\n"
    "Quoted=\"in quotes\"\r\n"
    "Single='in single quotes'\r\n"
    "Twice=\"\"in two\"\"\r\n"
    "Half=\"half\r\n"
    "OtherHalf=half\"\r\n"
    "Mixed=\"mixed'\r\n"
    "Inside=a \"b\" c\r\n"
    "Kept=\" blanks \"\r\n"
    "Lone=\"\r\n"
    "LonePair=\"\"\r\n"
    "Empty=\r\n"
    "NoEquals\r\n"
    "Equals=a=b\r\n"
    "Comment=text ; no comment\r\n"
    ";Off=commented out\r\n"
    " ;Off2=commented out\r\n"
    "Twin=first\r\n"
    "Twin=second\r\n"
    "Case=lower\r\n"
    "Accent=\xE9\r\n"
    "Backslash=a\\\r\n"
    "=no key\r\n"
    "[Main2] behind\r\n"
    "Key=of Main2\r\n"
    "[ Blank ]\r\n"
    "Key=of Blank\r\n"
    "[Main]\r\n"
    "Later=in the second Main\r\n"
    "[Open\r\nK=1\r\n[a]b]\r\nK=2\r\n[]\r\nN=3\r\n"
    "[Numbers]\r\n"
    "N1=42\nN2=-42\nN3=+42\nN4=0x1F\nN5=12abc\nN6=abc\nN7=\nN8= 7\nN9=\"8\"\nN10=4294967297\nN11=010\nN12=- "
    "5\nN13=--5\n"
    "[Last]\n"
    "End=without line end";

std::string Setting(const char *section, const char *key, const char *file = "X:\\test.ini", DWORD size = 64) {
  Buffer buffer(size);
  const DWORD length = platform::GetPrivateProfileStringA(section, key, " fallback ", buffer.bytes, size, file);
  return std::to_string(length) + ' ' + Shown({buffer.bytes, size < 24 ? size : length + 1});
}

TEST_F(SettingsContract, Reading) {
  WriteFile("ram/test.ini", kSettings);
  Open();
  const struct {
    const char *section, *key, *gives;
  } rows[] = {
      {"Main", "Plain", "4 text<00>"},
      {"MAIN", "plain", "4 text<00>"},
      {"Main", "Blanks", "9 some text<00>"},
      {"Main", "Tab", "1 x<00>"},
      {"Main", "Quoted", "9 in quotes<00>"},
      {"Main", "Single", "16 in single quotes<00>"},
      {"Main", "Twice", "8 \"in two\"<00>"},
      {"Main", "Half", "5 \"half<00>"},
      {"Main", "OtherHalf", "5 half\"<00>"},
      {"Main", "Mixed", "7 \"mixed'<00>"},
      {"Main", "Inside", "7 a \"b\" c<00>"},
      {"Main", "Kept", "8  blanks <00>"},
      {"Main", "Lone", "1 \"<00>"},
      {"Main", "LonePair", "0 <00>"},
      {"Main", "Empty", "0 <00>"},
      {"Main", "NoEquals", "9  fallback<00>"},
      {"Main", "Equals", "3 a=b<00>"},
      {"Main", "Comment", "17 text ; no comment<00>"},
      {"Main", "Off", "9  fallback<00>"},
      {"Main", "Off2", "9  fallback<00>"},
      {"Main", "Twin", "5 first<00>"},
      {"Main", "CASE", "5 lower<00>"},
      {"Main", "Accent", "1 <E9><00>"},
      {"Main", "Backslash", "2 a\\<00>"},
      {"Main", "", "6 no key<00>"},
      {"Main2", "Key", "8 of Main2<00>"},
      {"Blank", "Key", "8 of Blank<00>"},
      {"Main", "Later", "9  fallback<00>"},
      {"Last", "End", "16 without line end<00>"},
      {"None", "Key", "9  fallback<00>"},
      {"Main", "None", "9  fallback<00>"},
      {"Open", "K", "1 1<00>!"},
      {"a", "K", "1 2<00>!"},
      {"", "N", "1 3<00>!"},
  };
  for (const auto &row : rows) {
    EXPECT_PRED2(Agrees, Setting(row.section, row.key), row.gives) << row.section << ' ' << row.key;
  }
  const struct {
    const char *key, *file;
    DWORD size;
    const char *gives;
  } sized[] = {
      {"Plain", "X:\\test.ini", 5, "4 text<00>"},
      {"Plain", "X:\\test.ini", 4, "3 tex<00>"},
      {"Plain", "X:\\test.ini", 1, "0 <00>"},
      {"Plain", "X:\\test.ini", 0, "0 "},
      {"None", "X:\\test.ini", 4, "3  fa<00>"},
      {"Plain", "X:\\none.ini", 20, "9  fallback<00>~~~~~~~~~~"},
      {"Plain", "X:\\none\\a.ini", 20, "9  fallback<00>~~~~~~~~~~"},
      {"Plain", "X:\\", 20, "9  fallback<00>~~~~~~~~~~"},
  };
  for (const auto &row : sized) EXPECT_EQ(Setting("Main", row.key, row.file, row.size), row.gives) << row.size;
}

TEST_F(SettingsContract, Numbers) {
  WriteFile("ram/test.ini", kSettings);
  Open();
  const struct {
    const char *key, *gives;
  } rows[] = {
      {"N1", "42"}, {"N2", "-42"}, {"N3", "42"}, {"N5", "12"},  {"N6", "0"},  {"N8", "7"},  {"N4", "0!"},
      {"N7", "0!"}, {"N9", "8"},   {"N10", "1"}, {"N11", "10"}, {"N12", "0"}, {"N13", "0"}, {"None", "-9"},
  };
  for (const auto &row : rows) {
    const UINT number = platform::GetPrivateProfileIntA("Numbers", row.key, -9, "X:\\test.ini");
    EXPECT_PRED2(Agrees, std::to_string(static_cast<int>(number)), row.gives) << row.key;
  }
}

TEST_F(SettingsContract, Encodings) {
  const struct {
    const char *name;
    std::string bytes;
    const char *gives;
  } rows[] = {
      {"utf8", "\xEF\xBB\xBF[S]\r\nK=\xC3\xA9\r\n", "1 <E9><00>"},
      {"utf16", std::string("\xFF\xFE[\0S\0]\0\n\0K\0=\0\xE9\0\n\0", 18), "1 <E9><00>"},
      {"mac", "[S]\rK=cr\r", "2 cr<00>"},
      {"unix", "[S]\nK=lf\n", "2 lf<00>"},
      {"eof", "[S]\n\x1A\nK=behind\n", "6 behind<00>"},
      {"empty", "", "9  fallback<00>"},
  };
  for (const auto &row : rows) WriteFile(std::string("ram/") + row.name, row.bytes);
  Open();
  for (const auto &row : rows)
    EXPECT_EQ(Setting("S", "K", (std::string("X:\\") + row.name).c_str()), row.gives) << row.name;
}

TEST_F(SettingsContract, Writing) {
  const struct {
    const char *before;  // null: no file
    const char *section, *key, *value, *gives;
  } rows[] = {
      {nullptr, "S", "K", "v", "[S]<0D><0A>K=v<0D><0A>"},
      {"", "S", "K", "v", "[S]<0D><0A>K=v<0D><0A>"},
      {"[S]\r\nK=old\r\n", "S", "K", "v", "[S]<0D><0A>K=v<0D><0A>"},
      {"[S]\r\nA=1\r\n[T]\r\nB=2\r\n", "S", "K", "v", "[S]<0D><0A>A=1<0D><0A>K=v<0D><0A>[T]<0D><0A>B=2<0D><0A>"},
      {"[S]\r\nA=1", "S", "K", "v", "[S]<0D><0A>A=1<0D><0A>K=v<0D><0A>"},
      {"[T]\r\nA=1\r\n", "S", "K", "v", "[T]<0D><0A>A=1<0D><0A>[S]<0D><0A>K=v<0D><0A>"},
      {"[T]\r\nA=1", "S", "K", "v", "[T]<0D><0A>A=1<0D><0A>[S]<0D><0A>K=v<0D><0A>"},
      {"[S]\r\n;K=off\r\nK=one\r\nK=two\r\n", "S", "K", "v", "[S]<0D><0A>;K=off<0D><0A>K=v<0D><0A>K=two<0D><0A>"},
      {"[S]\r\nK=\r\n", "S", "K", "v", "[S]<0D><0A>K=v<0D><0A>"},
      {"[S]\r\nK=old\r\n", "S", "K", "", "[S]<0D><0A>K=<0D><0A>"},
      {"[S]\r\nK=old\r\n", "S", "K", "\"quoted\"", "[S]<0D><0A>K=\"quoted\"<0D><0A>"},
      {"[S]\r\nK=\"old\"\r\n", "S", "K", "v", "[S]<0D><0A>K=v<0D><0A>"},
      {"[S]\r\nK=old\r\n", "S", "K", "a;b=c", "[S]<0D><0A>K=a;b=c<0D><0A>"},
      {"[S]\r\nK=old\r\n", "S", "K", "\xE9", "[S]<0D><0A>K=<E9><0D><0A>"},
      {"[S]\r\nA=1\r\n[S]\r\nK=old\r\n", "S", "K", "v", "[S]<0D><0A>A=1<0D><0A>K=v<0D><0A>[S]<0D><0A>K=old<0D><0A>"},
      {"junk\r\n[S]\r\nK=old\r\n", "S", "K", "v", "junk<0D><0A>[S]<0D><0A>K=v<0D><0A>"},
      {"[S]\r\nK=old\r\n", "S", "K", "old", "[S]<0D><0A>K=old<0D><0A>"},
      {"[S]\r\nK=old\r\n", "S", "K", " v", "[S]<0D><0A>K= v<0D><0A>!"},
      {"; first\n\n[S]\n A = 1\nK=old\n\n", "S", "L", "v", "; first<0A><0A>[S]<0A> A = 1<0A>K=old<0A>L=v<0A><0A>!"},
  };
  Open();
  int number = 0;
  for (const auto &row : rows) {
    const std::string name = "write" + std::to_string(number++) + ".ini", path = "X:\\" + name;
    if (row.before != nullptr) WriteFile("ram/" + name, row.before);
    EXPECT_EQ(
        Outcome([&] { return platform::WritePrivateProfileStringA(row.section, row.key, row.value, path.c_str()); }),
        "ok");
    platform::WritePrivateProfileStringA(nullptr, nullptr, nullptr,
                                         path.c_str());  // what Windows keeps reaches the file
    EXPECT_PRED2(Agrees, Shown(ReadFile("ram/" + name)), row.gives) << number - 1;
  }
}

TEST_F(SettingsContract, WritingFails) {
  WriteFile("ram/dir/file", "");
  WriteFile("ram/readonly", "");
  Open();
  platform::SetFileAttributesA("X:\\readonly", FILE_ATTRIBUTE_READONLY);
  const struct {
    const char *file, *gives;
  } rows[] = {
      {"X:\\readonly", "5!"}, {"X:\\none\\a.ini", "3"},      {"X:\\dir", "5"},
      {"X:\\a|b.ini", "123"}, {"X:\\dir\\file\\a.ini", "3"},
  };
  for (const auto &row : rows) {
    EXPECT_PRED2(Agrees, Outcome([&] { return platform::WritePrivateProfileStringA("S", "K", "v", row.file); }),
                 row.gives)
        << row.file;
  }
}

}  // namespace
