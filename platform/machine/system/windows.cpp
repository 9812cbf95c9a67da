// Windows that are callbacks, and the debugger's output.
#include "platform/machine/system/windows.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <string>
#include <utility>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/handle_table.h"
#include "platform/machine/base/report.h"
#include "platform/machine/description/current.h"
#include "vxrcore/machine.h"

namespace {

struct Window {
  VXRMachine_WindowText callback = nullptr;
  void *context = nullptr;
  std::string text;
  std::size_t selectionBegin = 0, selectionEnd = 0;
};

machine::HandleTable<Window> windows;

// What a call fails with for the handle of no window.
DWORD NoWindow() { return machine::Current() == nullptr ? ERROR_NOT_READY : ERROR_INVALID_WINDOW_HANDLE; }

void GiveText(Window *window, std::string text) {
  window->text = std::move(text);
  window->selectionBegin = window->selectionEnd = 0;
  const Window copy = *window;  // the callback may destroy the window
  if (copy.callback != nullptr) copy.callback(copy.context, copy.text.c_str());
}

void Select(Window *window, WPARAM begin, LPARAM end) {
  const std::size_t length = window->text.size();
  // A negative begin takes the selection away, a negative end stands for the end of the text.
  const auto first = static_cast<LPARAM>(static_cast<LONG>(begin));
  if (first < 0) {
    window->selectionBegin = window->selectionEnd;
    return;
  }
  window->selectionBegin = std::min(static_cast<std::size_t>(first), length);
  window->selectionEnd = end < 0 ? length : std::min(static_cast<std::size_t>(end), length);
  if (window->selectionBegin > window->selectionEnd) std::swap(window->selectionBegin, window->selectionEnd);
}

void ReplaceSelection(Window *window, const char *text) {
  std::string whole = window->text;
  const std::size_t begin = window->selectionBegin;
  whole.replace(begin, window->selectionEnd - begin, text);
  GiveText(window, std::move(whole));
}

}  // namespace

void *VXRMachine_CreateWindow(VXRMachine_WindowText callback, void *context) {
  if (machine::Current() == nullptr) return machine::FailWith(ERROR_NOT_READY, nullptr);
  try {
    return machine::AddTo<void *>(&windows, Window{callback, context, "", 0, 0});
  } catch (const std::bad_alloc &) {
    return machine::FailWith(ERROR_NOT_ENOUGH_MEMORY, nullptr);
  }
}

void VXRMachine_DestroyWindow(void *window) { machine::DropFrom(&windows, window); }

namespace machine {

void CloseWindows() { windows.records.clear(); }

}  // namespace machine

namespace platform {

void OutputDebugStringA(const char *text) {
  VXRMachine_Event event{};
  event.kind = VXRMACHINE_DEBUG_TEXT;
  event.text = text == nullptr ? "" : text;
  machine::Report(event);
}

BOOL SetWindowTextA(HWND window, const char *text) {
  VXR_FAULT(FALSE, ERROR_INVALID_WINDOW_HANDLE);
  Window *found = machine::FindIn(&windows, window);
  if (found == nullptr) return machine::FailWith(NoWindow());
  GiveText(found, text == nullptr ? "" : text);
  return TRUE;
}

int GetWindowTextLengthA(HWND window) {
  VXR_FAULT(0, ERROR_INVALID_WINDOW_HANDLE);
  const Window *found = machine::FindIn(&windows, window);
  return found == nullptr ? machine::FailWith(NoWindow(), 0) : static_cast<int>(found->text.size());
}

LRESULT SendMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  VXR_FAULT(0, ERROR_INVALID_WINDOW_HANDLE);
  Window *found = machine::FindIn(&windows, window);
  if (found == nullptr) return machine::FailWith(NoWindow(), 0);
  const auto *text = reinterpret_cast<const char *>(lParam);
  if (message == EM_SETSEL) Select(found, wParam, lParam);
  if (message == EM_REPLACESEL && text != nullptr) ReplaceSelection(found, text);
  return 0;
}

}  // namespace platform
