// Where Windows and the described machine give something else. docs/platform.md has the reasons.
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
  const char *machine, *windows;  // what the call gives there
};

std::string Attributes(const char *path) {
  return Outcome([&] { return platform::GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES; });
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

std::string FieldText(const char *key) {
  const HINF inf = platform::SetupOpenInfFileA("X:\\inf\\fields.inf", nullptr, INF_STYLE_WIN4, nullptr);
  INFCONTEXT context;
  Buffer buffer;
  platform::SetupFindFirstLineA(inf, "S", key, &context);
  platform::SetupGetStringFieldA(&context, 1, buffer.bytes, buffer.size, nullptr);
  platform::SetupCloseInfFile(inf);
  return buffer.Text();
}

constexpr Difference kDifferences[] = {
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
};

TEST_F(DifferencesTest, AreAsTheTableSays) {
  WriteFile("ram/file.txt", "text");
  WriteFile("ram/other.infx", "");
  WriteFile("ram/inf/fields.inf", "[Version]\r\nSignature=$Chicago$\r\n[S]\r\nsource=%1%\\x\r\n");
  Open();
  for (const Difference &row : kDifferences) {
#ifdef _WIN32
    EXPECT_EQ(row.call(), row.windows) << row.name;
#else
    EXPECT_EQ(row.call(), row.machine) << row.name;
#endif
  }
}

// The first cells of the document's table.
TEST(Differences, AreInTheDocument) {
  std::ifstream document(VXR_SOURCE_DIR "/docs/platform.md", std::ios::binary);
  ASSERT_TRUE(document);
  std::vector<std::string> listed, known;
  for (std::string line; std::getline(document, line) && line != "## Wine";) {
    if (line.starts_with("| ") && !line.starts_with("| call")) listed.push_back(line.substr(2, line.find(" | ") - 2));
  }
  for (const Difference &row : kDifferences) known.emplace_back(row.name);
  EXPECT_EQ(listed, known);
}

}  // namespace
