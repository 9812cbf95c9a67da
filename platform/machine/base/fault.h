// Fault points: a test says which platform call is to fail, and every entry of the described machine asks here first.
// Entries that cannot fail on Windows (GetLastError, HeapFree, CharUpperBuffA, those without a result) have none.
//
// Which object answers is chosen when a program is linked: fault.cpp follows a plan; no_fault.cpp, which is in what is
// installed, has none. So tests link the other objects that are shipped. A plan comes from SetFaultPlan or, when the
// machine opens, from the variable VXR_FAULTS: NAME:N[:once|on][:ERROR], such as "CopyFileA:2:on:112"; NAME * counts
// every call, N begins at 1, ERROR is decimal or begins with 0x.
#pragma once

#include <string_view>

#include "platform/machine/base/status.h"
#include "platform/platform.h"

namespace machine {

struct FaultPlan {
  const char *call = nullptr;   // name of the platform call, "*" for any; null: no faults
  unsigned nth = 1;             // the first call to fail, from 1
  bool onwards = false;         // fail every later one too
  DWORD error = 0;              // the system error code; 0: a fitting one of the call's own
  void (*counted)() = nullptr;  // called at each call that is counted
};

// Whether this call is to fail; then sets the last error to the plan's, or to `fallback`.
bool FaultPoint(const char *call, DWORD fallback);
// Takes the plan of VXR_FAULTS, if there is one. Refused, when it is not of that form: a test with it would pass
// without a fault.
Status TakeFaultsOfEnvironment();

// Only where fault.cpp is linked.
void SetFaultPlan(const FaultPlan &plan);  // also resets the counters; `plan.call` must outlive the plan
// The same from the form of VXR_FAULTS, copied. False, with the plan unchanged, when `text` is not of that form.
bool SetFaultPlanFromText(std::string_view text);
unsigned FaultCalls();  // calls counted that the plan's name matches
unsigned FaultsMet();   // how many of them failed

}  // namespace machine

// The first statement of every platform entry: VXR_FAULT(result of a failure, its usual error code).
#define VXR_FAULT(result, error)                             \
  do {                                                       \
    if (machine::FaultPoint(__func__, error)) return result; \
  } while (false)
