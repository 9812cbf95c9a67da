// On Windows the commands work on the machine that they run on. What they ask of a described machine is answered here:
// the log's lines reach the observer through a window of the log, status lines through windows that are never shown.
#include "tools/vxr/base/running_machine.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/text/code_page.h"
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

void Report(const VXRMachine_Event &event) {
  if (observer != nullptr) observer(observerContext, &event);
}

// --- What the texts of windows tell ---------------------------------------------------------------------------------

// "Successfully copied SOURCE -> TARGET...".
void ReportCopy(std::string_view line) {
  constexpr std::string_view kCopied = "Successfully copied ", kArrow = " -> ";
  const std::size_t arrow = line.find(kArrow), end = line.rfind("...");
  if (line.substr(0, kCopied.size()) != kCopied || arrow == line.npos || end == line.npos || end < arrow) return;
  const std::string source(line.substr(kCopied.size(), arrow - kCopied.size()));
  const std::string target(line.substr(arrow + kArrow.size(), end - arrow - kArrow.size()));
  WIN32_FILE_ATTRIBUTE_DATA file = {};
  GetFileAttributesExA(target.c_str(), GetFileExInfoStandard, &file);
  VXRMachine_Event event = {};
  event.kind = VXRMACHINE_FILE_COPIED;
  event.subject = target.c_str();
  event.detail = source.c_str();
  event.size = static_cast<uint64_t>(file.nFileSizeHigh) << 32 | file.nFileSizeLow;
  Report(event);
}

void ReportDebugText(const std::string &text) {
  VXRMachine_Event event = {};
  event.kind = VXRMACHINE_DEBUG_TEXT;
  event.text = text.c_str();
  Report(event);
}

// The log names its file to the debugger and then in its first line, which is all that a window hears of it.
void ReportLogFile(std::string_view line) {
  constexpr std::string_view kStarts = "*** Varnelt VXRCORE LOG STARTS:", kFlags = ":F=";
  const std::size_t flags = line.find(kFlags), end = line.rfind(']');
  if (line.substr(0, kStarts.size()) != kStarts || flags == line.npos || end == line.npos) return;
  const std::size_t path = line.find(':', flags + kFlags.size());
  if (path == line.npos || path > end) return;
  const std::string file(line.substr(path + 1, end - path - 1));
  if (file != "N/A") ReportDebugText("vxr:VXRDbg_Initialize:start logging to :" + file + "...\n");
}

void OnLogLine(void *, const char *text) {
  ReportLogFile(text);
  ReportDebugText(text);
}

LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  const auto listener = listeners.find(window);
  if (message != WM_SETTEXT || listener == listeners.end()) return DefWindowProcA(window, message, wParam, lParam);
  const Listener told = listener->second;  // a callback may destroy its window
  const char *text = reinterpret_cast<const char *>(lParam);
  if (window != logWindow) ReportCopy(text);
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
  return _stricmp(path, other) == 0 || std::filesystem::equivalent(file(path), file(other), unknown);
}

int32_t VXRMachine_OwnFile(const char *, char *what, uint32_t whatSize) {
  if (whatSize != 0) what[0] = '\0';
  return FALSE;
}
