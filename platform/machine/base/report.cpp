#include "platform/machine/base/report.h"

#include "platform/platform.h"

namespace {

VXRMachine_Observer observer = nullptr;
void *observerContext = nullptr;

}  // namespace

namespace machine {

void Report(const VXRMachine_Event &event) {
  if (observer == nullptr) return;
  const DWORD error = platform::GetLastError();
  observer(observerContext, &event);
  platform::SetLastError(error);
}

}  // namespace machine

void platform::ReportDecision(DWORD kind, const char *subject, const char *detail, DWORD type, DWORD64 size) {
  VXRMachine_Event event = {};
  event.kind = kind;
  event.type = type;
  event.size = size;
  event.subject = subject;
  event.detail = detail;
  machine::Report(event);
}

void platform::ReportError(const char *function, const char *line, const char *call, DWORD code) {
  VXRMachine_Event event = {};
  event.kind = VXRMACHINE_ERROR_LOGGED;
  event.type = code;
  event.subject = function;
  event.detail = line;
  event.text = call;
  machine::Report(event);
}

void VXRMachine_SetObserver(VXRMachine_Observer newObserver, void *context) {
  observer = newObserver;
  observerContext = context;
}
