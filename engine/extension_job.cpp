// Recording the running machine, with a log of its own around it.
#include "log/log.h"
#include "vxrcore/vxrcore.h"

namespace {

constexpr int32_t kToFileAndDebugger = 3;

uint32_t CreateTraced(const char *extension, const char *includes, const char *map, const char *caller) {
  const CallTrace trace = TraceCall(caller);
  return VXRExt_CreateBMExtFile(extension, includes, map);
}

}  // namespace

uint32_t VXREng_CreateBMExtFile(const char *extension, const char *includes, const char *map) {
  VXRDbg_Initialize(kCheck, kToFileAndDebugger, nullptr);
  const uint32_t result = CreateTraced(extension, includes, map, __func__);
  VXRDbg_Cleanup();  // behind the exit line, which would start the log anew and so empty its file
  return result;
}
