// On Windows the commands work on the machine that they run on. What they ask of a described machine is answered here:
// the log's lines reach the observer through a window of the log, status lines through windows that are never shown,
// both as the events that they tell.
#include "tools/vxr/base/running_machine.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "platform/text/ansi_case.h"
#include "platform/text/code_page.h"
#include "tools/vxr/base/log_events.h"
#include "vxrcore/machine.h"

// clang-format off
#include "platform/win32/types.h"
#include "platform/machine/base/report.h"
#include <shellapi.h>
// clang-format on

namespace {

struct Listener {
  VXRMachine_WindowText callback;
  void *context;
};

std::map<HWND, Listener> listeners;
VXRMachine_Observer observer = nullptr;
void *observerContext = nullptr;
HWND logWindow = nullptr;

// What a value was before VXRMachine_SetValue.
struct ValueBefore {
  std::string key, name;
  bool present;
  DWORD type;
  std::vector<BYTE> data;
};
std::vector<ValueBefore> valuesBefore;
constexpr DWORD kValueBeforeSize = 4096;  // bytes; what is meant here are single words

void PutValuesBack() {
  for (; !valuesBefore.empty(); valuesBefore.pop_back()) {
    const ValueBefore &before = valuesBefore.back();
    HKEY opened = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, before.key.c_str(), 0, KEY_SET_VALUE, &opened) != ERROR_SUCCESS) continue;
    if (before.present) {
      RegSetValueExA(opened, before.name.c_str(), 0, before.type, before.data.data(),
                     static_cast<DWORD>(before.data.size()));
    } else {
      RegDeleteValueA(opened, before.name.c_str());
    }
    RegCloseKey(opened);
  }
}

void Report(const VXRMachine_Event &event) {
  if (observer != nullptr) observer(observerContext, &event);
}

void OnLogLine(void *, const char *text) { TellLogLine(text, Report); }

LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  const auto listener = listeners.find(window);
  if (message != WM_SETTEXT || listener == listeners.end()) return DefWindowProcA(window, message, wParam, lParam);
  const Listener told = listener->second;  // a callback may destroy its window
  const char *text = reinterpret_cast<const char *>(lParam);
  if (window != logWindow) TellStatusLine(text, Report);
  told.callback(told.context, text);
  return TRUE;
}

}  // namespace

void UseUtf8(int *argc, char ***argv) {
  static std::vector<std::string> texts;
  static std::vector<char *> pointers;
  int count = 0;
  wchar_t **wide = CommandLineToArgvW(GetCommandLineW(), &count);
  if (wide == nullptr) return;
  for (int i = 0; i < count; ++i) {
    texts.push_back(machine::Utf16ToUtf8({reinterpret_cast<const char16_t *>(wide[i]), std::wcslen(wide[i])}));
  }
  LocalFree(wide);
  for (std::string &text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  *argc = count;
  *argv = pointers.data();
  SetConsoleOutputCP(CP_UTF8);
}

int32_t VXRMachine_Open(const char *, char *message, uint32_t messageSize) {
  if (messageSize != 0) *message = '\0';
  if (observer == nullptr) return TRUE;
  logWindow = static_cast<HWND>(VXRMachine_CreateWindow(OnLogLine, nullptr));
  VXRDbg_Initialize(3, 0, logWindow);
  return TRUE;
}

int32_t VXRMachine_OpenText(const char *, const char *, char *message, uint32_t messageSize) {
  std::snprintf(message, messageSize,
                "images cannot be repaired on Windows; name a disk such as \\\\.\\PhysicalDrive0");
  return FALSE;
}

int32_t VXRMachine_Close(void) {
  PutValuesBack();
  VXRMachine_DestroyWindow(logWindow);
  logWindow = nullptr;
  return TRUE;
}

void *VXRMachine_CreateWindow(VXRMachine_WindowText callback, void *context) {
  constexpr char kClass[] = "vxr listener";
  WNDCLASSA type = {};
  type.lpfnWndProc = OnMessage;
  type.lpszClassName = kClass;
  RegisterClassA(&type);  // a second time fails, which is as good
  const HWND window = CreateWindowExA(0, kClass, "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
  if (window != nullptr) listeners[window] = {callback, context};
  return window;
}

void VXRMachine_DestroyWindow(void *window) {
  if (window == nullptr) return;
  listeners.erase(static_cast<HWND>(window));
  DestroyWindow(static_cast<HWND>(window));
}

void VXRMachine_SetObserver(VXRMachine_Observer newObserver, void *context) {
  observer = newObserver;
  observerContext = context;
}

int32_t VXRMachine_Rehearse(int32_t) { return FALSE; }
void VXRMachine_SaveOnly(const char *) {}

int32_t VXRMachine_SetValue(const char *key, const char *name, const char *text) {
  HKEY opened = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, key, 0, KEY_QUERY_VALUE | KEY_SET_VALUE, &opened) != ERROR_SUCCESS)
    return FALSE;
  ValueBefore before = {key, name, false, REG_NONE, std::vector<BYTE>(kValueBeforeSize)};
  DWORD size = kValueBeforeSize;
  const LSTATUS read = RegQueryValueExA(opened, name, nullptr, &before.type, before.data.data(), &size);
  before.present = read == ERROR_SUCCESS;
  before.data.resize(before.present ? size : 0);
  // What could not be put back is not touched.
  const bool known = before.present || read == ERROR_FILE_NOT_FOUND;
  const bool set = known && RegSetValueExA(opened, name, 0, REG_SZ, reinterpret_cast<const BYTE *>(text),
                                           static_cast<DWORD>(std::strlen(text) + 1)) == ERROR_SUCCESS;
  RegCloseKey(opened);
  if (set) valuesBefore.push_back(std::move(before));
  return set;
}

uint32_t VXRMachine_CodePage(void) { return GetACP(); }

int32_t VXRMachine_HostPath(const char *path, char *hostPath, uint32_t hostPathSize) {
  const int length = std::snprintf(hostPath, hostPathSize, "%s", machine::AnsiToUtf8(path, GetACP()).c_str());
  return length >= 0 && static_cast<uint32_t>(length) < hostPathSize;
}

int32_t VXRMachine_SameFile(const char *path, const char *other) {
  const auto file = [](const char *name) {
    const std::string text = machine::AnsiToUtf8(name, GetACP());
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
  };
  std::error_code unknown;
  return machine::SameName(path, other) || std::filesystem::equivalent(file(path), file(other), unknown);
}

int32_t VXRMachine_OwnFile(const char *, char *what, uint32_t whatSize) {
  if (whatSize != 0) what[0] = '\0';
  return FALSE;
}
