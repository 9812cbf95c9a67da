#include "engine/base/status.h"

#include <cstdarg>

#include "log/characters.h"
#include "log/heap.h"
#include "log/log.h"
#include "vxrcore/events.h"
#include "vxrcore/vxrcore.h"

HWND hStatusWnd = nullptr;
DWORD dwWndFlags = 0;
DWORD dwError = 0;

namespace {

constexpr SIZE_T kStatusLineSize = 1024;
constexpr DWORD kAppend = 1;
constexpr DWORD kReplace = 2;

void AppendToWindow(HWND window, const char *line) {
  const int length = platform::GetWindowTextLengthA(window);
  platform::SendMessageA(window, EM_SETSEL, static_cast<WPARAM>(length), length);
  platform::SendMessageA(window, EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(line));
}

}  // namespace

void VXREng_SetStatusWnd(void *window, uint32_t flags) {
  const CallTrace trace = TraceCall();
  hStatusWnd = static_cast<HWND>(window);
  dwWndFlags = flags;
  trace.Check("hWnd = 0x%08x:WndFlags = 0x%08x\n", LowHalf(window), flags);
}

BOOL VXREng_StatusMsg(DWORD code, const char *format, ...) {
  // Before anything else: a failure counts even when nobody is shown it.
  if (code != VXR_STATUS_PROGRESS) dwError = code;
  // A host without a window is told nothing, nor is the log.
  if (hStatusWnd == nullptr || format == nullptr) return FALSE;
  const CallTrace trace = TraceCall();
  const HeapText line = AllocText(kStatusLineSize, "szMessage");
  if (line == nullptr) return FALSE;
  va_list arguments;
  va_start(arguments, format);
  const int length = platform::FormatText(line.get(), kStatusLineSize, format, arguments);
  va_end(arguments);
  if (length < 0) line.get()[WholeCharacters(line.get(), kStatusLineSize - 1)] = '\0';

  VXRDbg_Log(kStatus, "STMSG:%s", line.get());
  if (dwWndFlags == kReplace) platform::SetWindowTextA(hStatusWnd, line.get());
  if (dwWndFlags == kAppend) AppendToWindow(hStatusWnd, line.get());
  platform::ReportDecision(VXRMACHINE_STATUS_LINE, line.get(), nullptr, code);
  return TRUE;
}
