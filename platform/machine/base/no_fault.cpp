// No call fails on purpose.
#include "platform/machine/base/fault.h"

namespace machine {

bool FaultPoint(const char *, DWORD) { return false; }

Status TakeFaultsOfEnvironment() { return {}; }

}  // namespace machine
