// Where Windows and the described machine give something else, and where Wine, on which the Windows build is tested,
// gives something else than Windows. docs/platform.md has the reasons.
#include <gmock/gmock.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/support/contract.h"
#include "tests/support/test_machine.h"

namespace {

using namespace contract;
using DifferencesTest = MachineTest;

constexpr DWORD kBoth = GENERIC_READ | GENERIC_WRITE;

struct Difference {
  const char *name;  // as the document has it
  std::string (*call)();
  const char *machine, *windows;  // what the call gives there; null where no documentation of Windows tells
  const char *wine = nullptr;     // null: as Windows; kAny: what depends on the user, or is left unwritten
};
constexpr char kAny[] = "any";

std::string Attributes(const char *path) {
  return Outcome([&] { return platform::GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES; });
}

std::string VersionSize(const char *path) {
  DWORD ignored = 0;
  return Outcome([&] { return platform::GetFileVersionInfoSizeA(path, &ignored) != 0; });
}

// The status of making a key, which is taken away again: a Windows keeps it from test to test.
std::string MadeKey(const char *path) {
  HKEY key = nullptr;
  const std::string status = Status(platform::RegCreateKeyA(HKEY_LOCAL_MACHINE, path, &key));
  if (status != "ok") return status;
  platform::RegCloseKey(key);
#ifdef _WIN32
  RegDeleteKeyA(HKEY_LOCAL_MACHINE, path);
#endif
  return status;
}

// What a call makes of devices and a volume that are not there.
template <class Call>
std::string OfDevices(Call call) {
  return call("\\\\.\\PhysicalDrive77") + ' ' + call("\\\\.\\Q:") + ' ' +
         call("\\\\?\\Volume{00000000-0000-0000-0000-000000000000}");
}

std::string Copied(const char *target) {
  return Outcome([&] { return platform::CopyFileA("X:\\file.txt", target, FALSE); });
}

// The attributes after setting these.
std::string SetAttributes(const char *path, DWORD attributes) {
  platform::SetFileAttributesA(path, attributes);
  return std::to_string(platform::GetFileAttributesA(path));
}

std::string Mapped(const char *name, HANDLE file, DWORD size) {
  const auto map = [&] { return platform::CreateFileMappingA(file, nullptr, PAGE_READWRITE, 0, size, name); };
  HANDLE mapping = nullptr;
  const std::string outcome = Outcome([&] { return mapping = map(); });
  if (mapping != nullptr) platform::CloseHandle(mapping);
  return outcome;
}

std::string MappedTwice() {
  const HANDLE file = OpenHandle("X:\\file.txt", kBoth);
  const HANDLE first = platform::CreateFileMappingA(file, nullptr, PAGE_READWRITE, 0, 0, "vxr-contract");
  const std::string outcome = Mapped("vxr-contract", file, 0);
  for (const HANDLE handle : {first, file}) platform::CloseHandle(handle);
  return outcome;
}

std::string OpenedUnshared() {
  const HANDLE file = platform::CreateFileA("X:\\file.txt", kBoth, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  const std::string outcome = Opened("X:\\file.txt", GENERIC_READ, OPEN_EXISTING);
  platform::CloseHandle(file);
  return outcome;
}

std::string Started(const char *program) {
  char line[64];
  std::snprintf(line, sizeof line, "%s", program);
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  return Outcome([&] {
    return platform::CreateProcessA(nullptr, line, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process);
  });
}

// The last error that a registry call leaves behind.
std::string RegistryLastError() {
  HKEY key = nullptr;
  platform::SetLastError(kUnset);
  platform::RegOpenKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Varnelt\\None", &key);
  return LastError();
}

// The size of a text that was stored without its terminator, though it has one.
std::string StoredSize() {
  HKEY key = nullptr;
  DWORD size = 0;
  platform::RegOpenKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Varnelt\\Halcyra", &key);
  platform::RegSetValueExA(key, "Text", 0, REG_SZ, reinterpret_cast<const BYTE *>("four"), 4);
  platform::RegQueryValueExA(key, "Text", nullptr, nullptr, nullptr, &size);
  platform::RegCloseKey(key);
  return std::to_string(size);
}

// The low half of a position beyond 32 bits, or the error.
std::string LowPosition() {
  const HANDLE file = OpenHandle("X:\\file.txt");
  LONG high = 1;
  platform::SetFilePointer(file, 5, &high, FILE_BEGIN);
  platform::SetLastError(kUnset);
  const DWORD at = platform::SetFilePointer(file, 0, nullptr, FILE_CURRENT);
  const std::string error = LastError();
  platform::CloseHandle(file);
  return at == INVALID_SET_FILE_POINTER ? error : std::to_string(at);
}

std::string DiskNumberOfFile() {
  const HANDLE file = OpenHandle("X:\\file.txt");
  STORAGE_DEVICE_NUMBER number;
  DWORD returned = 0;
  const std::string outcome = Outcome([&] {
    return platform::DeviceIoControl(file, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number, sizeof number,
                                     &returned, nullptr);
  });
  platform::CloseHandle(file);
  return outcome;
}

std::string Listed(const char *directory, DWORD size) {
  Buffer buffer(size);
  return Outcome(
      [&] { return platform::SetupGetInfFileListA(directory, INF_STYLE_WIN4, buffer.bytes, size, &buffer.size); });
}

std::string ListedNames(const char *directory) {
  Buffer buffer(100);
  const BOOL listed =
      platform::SetupGetInfFileListA(directory, INF_STYLE_WIN4, buffer.bytes, buffer.size, &buffer.size);
  return listed == FALSE ? LastError() : "ok " + std::to_string(buffer.size) + ' ' + Shown({buffer.bytes, buffer.size});
}

std::string OpenedInf(const char *path, const char *infClass = nullptr) {
  return Outcome([&] {
    const HINF inf = platform::SetupOpenInfFileA(path, infClass, INF_STYLE_WIN4, nullptr);
    if (inf != INVALID_HANDLE_VALUE) platform::SetupCloseInfFile(inf);
    return inf;
  });
}

// What `ask` says of field 1 of a line in the section [S].
template <class Ask>
std::string Asked(const char *key, Ask ask) {
  const HINF inf = platform::SetupOpenInfFileA("X:\\inf\\fields.inf", nullptr, INF_STYLE_WIN4, nullptr);
  INFCONTEXT context;
  platform::SetupFindFirstLineA(inf, "S", key, &context);
  const std::string answer = ask(&context);
  platform::SetupCloseInfFile(inf);
  return answer;
}

std::string Number(const char *key) {
  return Asked(key, [](INFCONTEXT *context) {
    int number = 0;
    const std::string outcome = Outcome([&] { return platform::SetupGetIntField(context, 1, &number); });
    return outcome == "ok" ? std::to_string(number) : "error " + outcome;
  });
}

std::string Field(const char *key, DWORD index) {
  return Asked(key, [&](INFCONTEXT *context) {
    Buffer buffer;
    return Outcome(
        [&] { return platform::SetupGetStringFieldA(context, index, buffer.bytes, buffer.size, &buffer.size); });
  });
}

std::string FieldText(const char *key) {
  return Asked(key, [](INFCONTEXT *context) {
    Buffer buffer;
    platform::SetupGetStringFieldA(context, 1, buffer.bytes, buffer.size, nullptr);
    return Shown(buffer.Text());
  });
}

std::string FoundSection(const char *section) {
  const HINF inf = platform::SetupOpenInfFileA("X:\\inf\\fields.inf", nullptr, INF_STYLE_WIN4, nullptr);
  INFCONTEXT context;
  const std::string outcome = Outcome([&] { return platform::SetupFindFirstLineA(inf, section, nullptr, &context); });
  platform::SetupCloseInfFile(inf);
  return outcome;
}

std::string Byte(const char *key) {
  return Asked(key, [&](INFCONTEXT *context) {
    BYTE byte = 0;
    DWORD size = 0;
    return Outcome([&] { return platform::SetupGetBinaryField(context, 1, &byte, 1, &size); });
  });
}

std::string ClassName() {
  constexpr GUID kNone = {0x12345678, 0x1234, 0x1234, {1, 2, 3, 4, 5, 6, 7, 8}};
  Buffer buffer;
  return Outcome([&] { return platform::SetupDiClassNameFromGuidA(&kNone, buffer.bytes, 32, nullptr); });
}

std::string Setting(const char *section, const char *key = "K") {
  Buffer buffer;
  platform::GetPrivateProfileStringA(section, key, "none", buffer.bytes, buffer.size, "X:\\brackets.ini");
  return buffer.Text();
}

std::string SettingNumber(const char *key) {
  return std::to_string(static_cast<int>(platform::GetPrivateProfileIntA("S", key, -9, "X:\\numbers.ini")));
}

// A settings file after a value was written to it.
std::string Written(const char *file, const char *value) {
  platform::WritePrivateProfileStringA("S", "K", value, file);
  Buffer text;
  const HANDLE handle = OpenHandle(file);
  platform::ReadFile(handle, text.bytes, text.size, &text.size, nullptr);
  platform::CloseHandle(handle);
  return Shown({text.bytes, text.size});
}

constexpr Difference kDifferences[] = {
    // Windows and the described machine.
    {"names without a drive", [] { return Found("*"); }, "3", "."},
    {"paths above a drive's root", [] { return Attributes("X:\\..\\file.txt"); }, "5", "ok"},
    {"devices' names in a directory", [] { return Opened("X:\\NUL", GENERIC_READ, OPEN_EXISTING); }, "123", "ok"},
    {"alternate streams", [] { return Attributes("X:\\file.txt:stream"); }, "123", "2"},
    {"files by a device's path", [] { return Attributes("\\\\.\\X:\\file.txt"); }, "2", "ok"},
    {"short names", [] { return Found("X:\\oth*.inf"); }, "2", "other.infx"},
    {"sharing", OpenedUnshared, "ok", "32"},
    {"a mapping's name", MappedTwice, "ok", "183"},
    {"mappings without a file", [] { return Mapped(nullptr, INVALID_HANDLE_VALUE, 4096); }, "87", "ok"},
    {"closing INVALID_HANDLE_VALUE", [] { return Outcome([] { return platform::CloseHandle(INVALID_HANDLE_VALUE); }); },
     "6", "ok"},
    {"programs", [] { return Started("X:\\file.txt"); }, "2", "193"},
    {"the last error of registry calls", RegistryLastError, "2", "unset"},
    {"a text stored without its terminator", StoredSize, "4", "5"},
    {"other directories' ids in an INF file", [] { return FieldText("source"); }, "%1%\\x", "X:\\inf\\x"},
    // Windows and Wine; in a few Windows' documentation is silent.
    {"a file named as a directory", [] { return Attributes("X:\\file.txt\\"); }, "123", "123", "3"},
    {"a drive that is not there", [] { return Attributes("Q:\\file.txt"); }, "3", "3", "2"},
    {"a name of 256 characters", [] { return Attributes(("X:\\" + std::string(256, 'a')).c_str()); }, "123", "123",
     "2"},
    {"a search in a file", [] { return Found("X:\\file.txt\\*"); }, "267", "267", "123"},
    {"a search by a device's path", [] { return OfDevices(Found); }, "2 2 2", nullptr, "123 123 123"},
    {"attributes by a device's path", [] { return OfDevices(Attributes); }, "2 2 2", nullptr, "66 66 66"},
    {"a version resource of no name", [] { return VersionSize(""); }, "3", nullptr, "161"},
    {"a search for no name", [] { return Found("X:\\bad|name"); }, "123", "123", "2"},
    {"a question mark at a name's end", [] { return Found("X:\\file.txt?"); }, "file.txt", "file.txt", "2"},
    {"a read-only file opened for writing", [] { return Opened("X:\\readonly", kBoth, OPEN_EXISTING); }, "5", "5",
     kAny},
    {"a hidden file made anew", [] { return Opened("X:\\hidden", kBoth, CREATE_ALWAYS); }, "5", "5", "ok:183"},
    {"emptying without the right to write", [] { return Opened("X:\\file.txt", GENERIC_READ, TRUNCATE_EXISTING); },
     "87", "87", "ok"},
    {"a copy over a read-only file", [] { return Copied("X:\\readonly"); }, "5", "5", kAny},
    {"a copy over a hidden file", [] { return Copied("X:\\hidden"); }, "5", "5", "ok"},
    {"the archive attribute", [] { return SetAttributes("X:\\other.infx", FILE_ATTRIBUTE_NORMAL); }, "128", "128",
     "32"},
    {"a read-only directory", [] { return SetAttributes("X:\\inf", FILE_ATTRIBUTE_READONLY); }, "17", "17", "16"},
    {"a position asked for without its high half", LowPosition, "87", "87", "5"},
    {"a disk's request to a file", DiskNumberOfFile, "87", "87", "ok"},
    {"INF files of no directory", [] { return Listed("X:\\none", 100); }, "3", "3", "ok"},
    {"INF files where there are none", [] { return ListedNames("X:\\noinf"); }, "ok 1 <00>", "ok 1 <00>", kAny},
    {"INF files in too small a buffer", [] { return Listed("X:\\inf", 5); }, "122", "122", "ok"},
    {"an INF file of another class", [] { return OpenedInf("X:\\inf\\fields.inf", "Net"); }, "E0000201", "E0000201",
     "ok"},
    {"an INF file named by blanks", [] { return OpenedInf("   "); }, "123", nullptr, "5"},
    {"text before the first section of an INF file", [] { return OpenedInf("X:\\inf\\text.inf"); }, "E0000000", nullptr,
     "ok"},
    {"sections that an INF file lacks", [] { return FoundSection("None"); }, "E0000102", nullptr, "E0000102"},
    {"an empty INF file", [] { return OpenedInf("X:\\inf\\empty.inf"); }, "E0000100", nullptr, "1006"},
    {"bytes of an INF file that are none", [] { return Byte("bytes"); }, "13", "13", "ok"},
    {"numbers of an INF file with a zero before them", [] { return Number("zero"); }, "10", "10", "8"},
    {"numbers of an INF file beyond 31 bits", [] { return Number("large"); }, "-1", nullptr, "2147483647"},
    {"negative hexadecimal numbers of an INF file", [] { return Number("sign"); }, "error 13", nullptr, "-1"},
    {"empty numbers of an INF file", [] { return Number("none"); }, "error 13", nullptr, "0"},
    {"keys of an INF file without a value", [] { return Field("empty", 1); }, "87", nullptr, "ok"},
    {"no-break spaces at a field's end", [] { return FieldText("spaces"); }, "a<A0>", nullptr, "a"},
    {"the driver store's id in an INF file", [] { return FieldText("store").substr(0, 5); }, "%13%\\", nullptr,
     "C:\\wi"},
    {"fields that an INF file lacks", [] { return Field("zero", 2); }, "87", nullptr, "0"},
    {"a class that is not there", ClassName, "E0000206", "E0000206", "2"},
    {"keys directly below HKEY_LOCAL_MACHINE", [] { return MadeKey("SOFTWARE/Varnelt") + ' ' + MadeKey(" SOFTWARE"); },
     "87 87", "87 87", "ok ok"},
    {"a read-only settings file",
     [] { return Outcome([] { return platform::WritePrivateProfileStringA("S", "K", "v", "X:\\readonly"); }); }, "5",
     "5", kAny},
    {"sections of a settings file without a bracket's end", [] { return Setting("Open"); }, "1", nullptr, "none"},
    {"sections of a settings file with a bracket inside", [] { return Setting("a") + ' ' + Setting("a]b"); }, "2 none",
     nullptr, "none 2"},
    {"sections of a settings file without a name", [] { return Setting("", "N"); }, "3", nullptr, "none"},
    {"other lines of a settings file", [] { return Written("X:\\lines.ini", "v"); },
     "; first<0A><0A>[S]<0A> A = 1<0A>K=v<0A>", "; first<0A><0A>[S]<0A> A = 1<0A>K=v<0A>",
     "; first<0D><0A>[S]<0D><0A>A=1<0D><0A>K=v<0D><0A>"},
    {"blanks before a written value", [] { return Written("X:\\value.ini", " v"); }, "[S]<0D><0A>K= v<0D><0A>",
     "[S]<0D><0A>K= v<0D><0A>", "[S]<0D><0A>K=v<0D><0A>"},
    {"hexadecimal settings", [] { return SettingNumber("hex"); }, "0", nullptr, "31"},
    {"empty settings as numbers", [] { return SettingNumber("none"); }, "0", nullptr, "-9"},
};

const char *ExpectedOf(const Difference &row) {
#ifdef _WIN32
  return OnWine() && row.wine != nullptr ? row.wine : row.windows;
#else
  return row.machine;
#endif
}

TEST_F(DifferencesTest, AreAsTheTableSays) {
  WriteFile("ram/file.txt", "text");
  WriteFile("ram/other.infx", "");
  WriteFile("ram/readonly", "");
  WriteFile("ram/hidden", "");
  WriteFile("ram/inf/fields.inf",
            "[Version]\r\nSignature=$Chicago$\r\nClass=SCSIAdapter\r\n"
            "[S]\r\nbytes=zz\r\nzero=010\r\nlarge=0xFFFFFFFF\r\nempty=\r\nnone=,\r\nsign=-0x1\r\n"
            "source=%1%\\x\r\nstore=%13%\\x\r\nspaces=a\xA0\r\n");
  WriteFile("ram/inf/text.inf",
            "/*++\r\n[Version]\r\nSignature=\"$Windows NT$\"\r\n"
            "[Strings]\r\na=b\r\n");
  WriteFile("ram/noinf/file.txt", "");
  WriteFile("ram/brackets.ini", "[Open\r\nK=1\r\n[a]b]\r\nK=2\r\n[]\r\nN=3\r\n");
  WriteFile("ram/inf/empty.inf", "");
  WriteFile("ram/lines.ini", "; first\n\n[S]\n A = 1\nK=old\n");
  WriteFile("ram/value.ini", "[S]\r\nK=old\r\n");
  WriteFile("ram/numbers.ini", "[S]\r\nhex=0x1F\r\nnone=\r\n");
  Open();
  platform::SetFileAttributesA("X:\\readonly", FILE_ATTRIBUTE_READONLY);
  platform::SetFileAttributesA("X:\\hidden", FILE_ATTRIBUTE_HIDDEN);
  for (const Difference &row : kDifferences) {
    const char *expected = ExpectedOf(row);
    const std::string gives = row.call();
    if (expected == nullptr || expected == kAny) continue;
    EXPECT_EQ(gives, expected) << row.name;
  }
}

// The first cells of the document's tables.
TEST(Differences, AreInTheDocument) {
  std::ifstream document(VXR_SOURCE_DIR "/docs/platform.md", std::ios::binary);
  ASSERT_TRUE(document);
  std::vector<std::string> listed, known;
  for (std::string line; std::getline(document, line);) {
    if (line.starts_with("| ") && !line.starts_with("| call")) listed.push_back(line.substr(2, line.find(" | ") - 2));
  }
  for (const Difference &row : kDifferences) known.emplace_back(row.name);
  EXPECT_EQ(listed, known);
}

}  // namespace
