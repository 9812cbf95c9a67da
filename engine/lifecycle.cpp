// The life of the engine's parameter block.
#include <cstdio>
#include <cstring>

#include "device/facts.h"
#include "device/records.h"
#include "engine/base/parameters.h"
#include "log/heap.h"
#include "log/log.h"
#include "log/product.h"
#include "registry/values.h"
#include "vxrcore/vxrcore.h"

namespace {

constexpr char kJobsKey[] = "SOFTWARE\\Varnelt\\Relmar";
constexpr SIZE_T kJobNumberRoom = 16;  // backslash, number, terminator

// Stores the job's number and its key.
bool SetJob(VXR_PARABLOCK *block, DWORD job, const Caller &trace) {
  const SIZE_T size = std::strlen(kJobsKey) + kJobNumberRoom;
  block->dwJob = job;
  block->szJobKey = AllocText(size, "gpVXRParaBlock->szJobKe", trace).release();
  if (block->szJobKey == nullptr) return false;
  std::snprintf(block->szJobKey, size, "%s\\%d", kJobsKey, static_cast<int32_t>(job));
  trace.Check("szJobKey=%s:\n", block->szJobKey);
  return true;
}

// A directory of the running system: the call that tells it, the member that takes it, and their names in the log.
struct Directory {
  UINT (*call)(char *, UINT);
  const char *callName;
  char *VXR_PARABLOCK::*member;
  const char *memberName;
  const char *line;
};

constexpr Directory kDirectories[] = {
    {platform::GetSystemDirectoryA, "GetSystemDirectory", &VXR_PARABLOCK::szSystemPath, "gpVXRParaBlock->szSystemPath",
     "szSystemPath=%s:\n"},
    {platform::GetWindowsDirectoryA, "GetWindowsDirectory", &VXR_PARABLOCK::szWindowsPath,
     "gpVXRParaBlock->szWindowsPath", "szWindowsPath=%s:\n"},
};

bool SetDirectory(VXR_PARABLOCK *block, const Directory &directory, const Caller &trace) {
  const UINT size = directory.call(nullptr, 0);
  if (size == 0) {
    trace.Failed(directory.callName, "Size returned 0!");
    return false;
  }
  HeapText path = AllocText(SIZE_T{size} + 1, directory.memberName, trace);
  if (path == nullptr) return false;
  const UINT length = directory.call(path.get(), size + 1);
  if (length == 0 || length > size) {
    trace.Failed(directory.callName, "None");
    return false;
  }
  trace.Check(directory.line, path.get());
  block->*directory.member = path.release();
  return true;
}

bool SetProductPath(VXR_PARABLOCK *block, const Caller &trace) {
  DWORD type = 0, size = 0;
  block->szVrnltPath =
      VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, kProductKey, kProductDirectoryValue, &type, &size).release();
  if (block->szVrnltPath == nullptr) {
    trace.Error("VXRReg_GetRegistryValue() for szVrnltPath failed!\n");
    return false;
  }
  RemoveTrailingBackslash(block->szVrnltPath);
  trace.Check("szVrnltPath=%s:\n", block->szVrnltPath);
  return true;
}

bool SetMachineFacts(VXR_PARABLOCK *block, const Caller &trace) {
  if (!VXRDev_GetBootMediaType(&block->dwBootMedia)) {
    trace.Failed("VXRDev_GetBootMediaType", "None");
    return false;
  }
  if (!VXRDev_GetArchInfo(block->dwBootMedia, &block->Arch)) {
    trace.Error("VXRDev_GetArchInfo() faield!\n");
    return false;
  }
  return true;
}

// Builds the global block; on failure what there is of it stays for VXREng_Cleanup.
bool BuildBlock(DWORD inject, DWORD job, const Caller &trace) {
  VXR_PARABLOCK *block = AllocRecord<VXR_PARABLOCK>("gpVXRParaBlock", trace).release();
  gpVXRParaBlock = block;
  if (block == nullptr) return false;
  block->bInject = static_cast<BOOL>(inject);
  trace.Check("PVXR_PARABLOCK allocated at %p:inject=%s\n", block, inject ? "TRUE" : "FALSE");
  if (!SetJob(block, job, trace)) return false;
  for (const Directory &directory : kDirectories) {
    if (!SetDirectory(block, directory, trace)) return false;
  }
  if (!SetProductPath(block, trace) || !SetMachineFacts(block, trace)) return false;
  trace.Check("gpVXRParaBlock initailzed ok at %p:syspath=%s:rootpath=%s\n", block, block->szSystemPath,
              block->szVrnltPath);
  return true;
}

}  // namespace

int32_t VXREng_Initialize(uint32_t inject, uint32_t job) {
  const CallTrace trace = TraceCall();
  // A host that starts twice would otherwise lose the earlier block, and the devices in it, for good.
  if (gpVXRParaBlock != nullptr) VXREng_Cleanup();
  if (BuildBlock(inject, job, trace)) return TRUE;
  VXREng_Cleanup();
  return FALSE;
}

int32_t VXREng_Cleanup() {
  const CallTrace trace = TraceCall();
  VXR_PARABLOCK *block = gpVXRParaBlock;
  if (block == nullptr) return TRUE;
  trace.Info("freeing pVXRDevices=%p:Cnt=%d\n", block->pVXRDevices, block->dwDevCnt);
  VXRDev_FreeDevices(block);
  FreeLogged(block->szSystemPath, "freeing szSystemPath=%s\n");
  FreeLogged(block->szVrnltPath, "freeing szVrnltPath=%s\n");
  FreeLogged(block->szJobKey, "freeing szJobKey=%s\n");
  FreeMember(block->szWindowsPath);
  trace.Check("freeing gpVXRParaBlock=%p\n", block);
  FreeMember(gpVXRParaBlock);
  return TRUE;
}
