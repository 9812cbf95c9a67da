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

void platform::ReportDecision(DWORD kind, const char *subject, const char *detail, DWORD type, DWORD64 size,
                              const char *text) {
  machine::Report({kind, type, size, subject, detail, text});
}

void platform::ReportError(const char *function, const char *line, const char *call, DWORD code) {
  machine::Report({VXRMACHINE_ERROR_LOGGED, code, 0, function, line, call});
}

void VXRMachine_SetObserver(VXRMachine_Observer newObserver, void *context) {
  observer = newObserver;
  observerContext = context;
}
