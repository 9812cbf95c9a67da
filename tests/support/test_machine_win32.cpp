// The fixture on Windows itself. Whoever starts the tests makes two drives of directories of the folder that
// VXR_TEST_FOLDER names: X: of ram and D: of restored (`subst X: %VXR_TEST_FOLDER%\ram`).
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#define TOML_EXCEPTIONS 0
#include <toml++/toml.h>

#include "platform/platform.h"
#include "tests/support/standard_machine.h"
#include "tests/support/test_machine.h"
// After windows.h, which it needs.
#include <shlwapi.h>

namespace fs = std::filesystem;

namespace {

constexpr char kProductTree[] = "SOFTWARE\\Varnelt";
constexpr DWORD kDebugText = 0x40010006;  // the exception by which a text reaches the debugger

std::string *debuggerLog = nullptr;
std::vector<std::string> *statusLog = nullptr;
WNDPROC editControl = nullptr;
std::size_t handlesBefore = 0, viewsBefore = 0;

LONG CALLBACK OnException(EXCEPTION_POINTERS *exception) {
  const EXCEPTION_RECORD &record = *exception->ExceptionRecord;
  if (record.ExceptionCode != kDebugText) return EXCEPTION_CONTINUE_SEARCH;
  if (debuggerLog != nullptr) *debuggerLog += reinterpret_cast<const char *>(record.ExceptionInformation[1]);
  return EXCEPTION_CONTINUE_EXECUTION;
}

// --- The window -----------------------------------------------------------------------------------------------------

// An edit control, as hosts have one, that tells its whole text after each change.
LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  const LRESULT result = CallWindowProcA(editControl, window, message, wParam, lParam);
  if (message == WM_SETTEXT || message == EM_REPLACESEL) {
    std::string text(static_cast<std::size_t>(GetWindowTextLengthA(window)) + 1, '\0');
    text.resize(static_cast<std::size_t>(GetWindowTextA(window, text.data(), static_cast<int>(text.size()))));
    statusLog->push_back(text);
  }
  return result;
}

HWND MakeWindow() {
  const HWND window =
      CreateWindowExA(0, "EDIT", "", ES_MULTILINE, 0, 0, 100, 100, HWND_MESSAGE, nullptr, nullptr, nullptr);
  if (window == nullptr) return nullptr;
  const LONG_PTR replaced = SetWindowLongPtrA(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(OnMessage));
  editControl = reinterpret_cast<WNDPROC>(replaced);
  return window;
}

// --- Counts of what is open -----------------------------------------------------------------------------------------

std::size_t CountHandles() {
  constexpr std::uintptr_t kMost = 0x800;
  std::size_t count = 0;
  for (std::uintptr_t number = 4; number < kMost; number += 4) {
    DWORD flags = 0;
    if (GetHandleInformation(reinterpret_cast<HANDLE>(number), &flags)) ++count;
  }
  return count;
}

std::size_t CountViews() {
  std::size_t count = 0;
  MEMORY_BASIC_INFORMATION region;
  for (const char *at = nullptr; VirtualQuery(at, &region, sizeof region) != 0;) {
    if (region.Type == MEM_MAPPED && region.State == MEM_COMMIT) ++count;
    at = static_cast<const char *>(region.BaseAddress) + region.RegionSize;
  }
  return count;
}

// --- Folder and drives ----------------------------------------------------------------------------------------------

// Ends the program when the directory is not that drive: somebody else's files would be removed.
void ExpectDrive(const fs::path &directory, const fs::path &drive) {
  constexpr char kProbe[] = "vxr-test-drive";
  std::ofstream(directory / kProbe) << 'x';
  std::error_code error;
  const bool same = fs::exists(drive / kProbe, error);
  fs::remove(directory / kProbe, error);
  if (same) return;
  std::cerr << "tests: " << directory << " is not drive " << drive << "; make it so, and name its parent in "
            << "VXR_TEST_FOLDER\n";
  std::exit(1);
}

// Removes what is in a directory, write-protected or not.
void Empty(const std::string &directory) {
  WIN32_FIND_DATAA found;
  const HANDLE search = FindFirstFileA((directory + "*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    const std::string name = found.cFileName, path = directory + name;
    if (name == "." || name == "..") continue;
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      Empty(path + '\\');
      RemoveDirectoryA(path.c_str());
    } else {
      DeleteFileA(path.c_str());
    }
  } while (FindNextFileA(search, &found));
  FindClose(search);
}

// The folder, emptied; the drives stay.
fs::path TakeFolder() {
  const char *name = std::getenv("VXR_TEST_FOLDER");
  const fs::path folder = name == nullptr ? "" : name;
  for (const auto &[directory, drive] : {std::pair{"ram", "X:\\"}, std::pair{"restored", "D:\\"}}) {
    ExpectDrive(folder / directory, drive);
    Empty(drive);
  }
  return folder;
}

// --- Registry -------------------------------------------------------------------------------------------------------

void SetValue(HKEY key, const std::string &name, DWORD type, const std::string &data) {
  EXPECT_EQ(RegSetValueExA(key, name.c_str(), 0, type, reinterpret_cast<const BYTE *>(data.data()),
                           static_cast<DWORD>(data.size())),
            ERROR_SUCCESS);
}

// Raw bytes as they are: stored by the call that converts no text.
void SetRawValue(HKEY key, const std::string &name, const toml::table &raw) {
  std::istringstream digits(raw["hex"].value_or(std::string()));
  std::string bytes;
  for (unsigned byte = 0; digits >> std::hex >> byte;) bytes += static_cast<char>(byte);
  const std::wstring wideName(name.begin(), name.end());
  EXPECT_EQ(RegSetValueExW(key, wideName.c_str(), 0, raw["type"].value_or(0u),
                           reinterpret_cast<const BYTE *>(bytes.data()), static_cast<DWORD>(bytes.size())),
            ERROR_SUCCESS);
}

void SetKey(const std::string &path, const toml::table &values) {
  ASSERT_TRUE(path.starts_with(kProductTree)) << "not a key of the product: " << path;
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyA(HKEY_LOCAL_MACHINE, path.c_str(), &key), ERROR_SUCCESS) << path;
  for (const auto &[nameNode, node] : values) {
    const std::string name(nameNode.str());
    if (const auto *text = node.as_string()) {
      SetValue(key, name, REG_SZ, text->get() + '\0');
    } else if (const auto *number = node.as_integer()) {
      const auto value = static_cast<DWORD>(number->get());
      SetValue(key, name, REG_DWORD, {reinterpret_cast<const char *>(&value), sizeof value});
    } else if (const auto *raw = node.as_table()) {
      SetRawValue(key, name, *raw);
    } else {
      std::string texts;
      for (const auto &each : *node.as_array()) texts += each.value_or(std::string()) + '\0';
      SetValue(key, name, REG_MULTI_SZ, texts + '\0');
    }
  }
  RegCloseKey(key);
}

void SetRegistry(const std::string &text) {
  const toml::parse_result parsed = toml::parse(text);
  ASSERT_TRUE(parsed) << "not TOML: " << text;
  for (const auto &[name, node] : parsed.table()) {
    ASSERT_EQ(name.str(), "registry") << "Windows is not as a test says; skip it with NEEDS_DESCRIBED_MACHINE";
    for (const auto &[key, values] : *node.as_table()) SetKey(std::string(key.str()), *values.as_table());
  }
}

}  // namespace

MachineTest::MachineTest() {
  static void *const watching = AddVectoredExceptionHandler(1, OnException);
  EXPECT_NE(watching, nullptr);
  folder = TakeFolder();
  for (const char *directory : {"ram/Windows/System32", "ram/Windows/inf", "ram/Halcyra/logs.dir"}) {
    fs::create_directories(Host(directory));
  }
  debuggerLog = &log;
  statusLog = &statusLines;
}

MachineTest::~MachineTest() {
  Close();
  debuggerLog = nullptr;
  SHDeleteKeyA(HKEY_LOCAL_MACHINE, kProductTree);
}

void MachineTest::Open(const std::string &rest, const std::string &system) {
  ASSERT_EQ(system, "") << "Windows is as it is; skip this with NEEDS_DESCRIBED_MACHINE";
  SHDeleteKeyA(HKEY_LOCAL_MACHINE, kProductTree);
  SetRegistry("[registry.'SOFTWARE\\Varnelt\\Halcyra']\nHCDIR = 'X:\\Halcyra'\n");
  SetRegistry(rest);
  WriteFile("ram/Halcyra/master.ini", kMasterIni);
  open = true;
  window = MakeWindow();
  ASSERT_NE(window, nullptr);
  VXRDbg_Cleanup();  // which a test without a machine may have begun, at another level
  // What the log and the system open once for good is open from here on: with a process's first object that has a name,
  // its first mapping here, the system opens the folder of all names too.
  VXRDbg_Initialize(5, 0, nullptr);
  CloseHandle(CreateEventA(nullptr, FALSE, FALSE, "vxr-test"));
  handlesBefore = CountHandles();
  viewsBefore = CountViews();
}

void MachineTest::Close() {
  if (!open) return;
  open = false;
  VXRDbg_Cleanup();
  DestroyWindow(static_cast<HWND>(window));
  window = nullptr;
}

std::size_t MachineTest::OpenHandles() const { return CountHandles() - handlesBefore; }

std::size_t MachineTest::OpenViews() const { return CountViews() - viewsBefore; }
