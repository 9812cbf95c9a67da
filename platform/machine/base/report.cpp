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

void VXRMachine_SetObserver(VXRMachine_Observer newObserver, void *context) {
  observer = newObserver;
  observerContext = context;
}
