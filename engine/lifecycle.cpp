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
bool SetJob(VXR_PARABLOCK *block, DWORD job, const char *caller) {
  const SIZE_T size = std::strlen(kJobsKey) + kJobNumberRoom;
  block->dwJob = job;
  block->szJobKey = AllocText(size, "gpVXRParaBlock->szJobKe", caller).release();
  if (block->szJobKey == nullptr) return false;
  std::snprintf(block->szJobKey, size, "%s\\%d", kJobsKey, static_cast<int32_t>(job));
  VXRDbg_Log(kCheck, "CHECK:%s:szJobKey=%s:\n", caller, block->szJobKey);
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
     "CHECK:%s:szSystemPath=%s:\n"},
    {platform::GetWindowsDirectoryA, "GetWindowsDirectory", &VXR_PARABLOCK::szWindowsPath,
     "gpVXRParaBlock->szWindowsPath", "CHECK:%s:szWindowsPath=%s:\n"},
};

bool SetDirectory(VXR_PARABLOCK *block, const Directory &directory, const char *caller) {
  const UINT size = directory.call(nullptr, 0);
  if (size == 0) {
    LogFailure(directory.callName, "Size returned 0!", caller);
    return false;
  }
  HeapText path = AllocText(SIZE_T{size} + 1, directory.memberName, caller);
  if (path == nullptr) return false;
  const UINT length = directory.call(path.get(), size + 1);
  if (length == 0 || length > size) {
    LogFailure(directory.callName, "None", caller);
    return false;
  }
  VXRDbg_Log(kCheck, directory.line, caller, path.get());
  block->*directory.member = path.release();
  return true;
}

bool SetProductPath(VXR_PARABLOCK *block, const char *caller) {
  DWORD type = 0, size = 0;
  block->szVrnltPath =
      VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, kProductKey, kProductDirectoryValue, &type, &size).release();
  if (block->szVrnltPath == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:VXRReg_GetRegistryValue() for szVrnltPath failed!\n", caller);
    return false;
  }
  RemoveTrailingBackslash(block->szVrnltPath);
  VXRDbg_Log(kCheck, "CHECK:%s:szVrnltPath=%s:\n", caller, block->szVrnltPath);
  return true;
}

bool SetMachineFacts(VXR_PARABLOCK *block, const char *caller) {
  if (!VXRDev_GetBootMediaType(&block->dwBootMedia)) {
    LogFailure("VXRDev_GetBootMediaType", "None", caller);
    return false;
  }
  if (!VXRDev_GetArchInfo(block->dwBootMedia, &block->Arch)) {
    VXRDbg_Log(kError, "ERROR:%s:VXRDev_GetArchInfo() faield!\n", caller);
    return false;
  }
  return true;
}

// Builds the global block; on failure what there is of it stays for VXREng_Cleanup.
bool BuildBlock(DWORD inject, DWORD job, const char *caller) {
  VXR_PARABLOCK *block = AllocRecord<VXR_PARABLOCK>("gpVXRParaBlock", caller).release();
  gpVXRParaBlock = block;
  if (block == nullptr) return false;
  block->bInject = static_cast<BOOL>(inject);
  VXRDbg_Log(kCheck, "CHECK:%s:PVXR_PARABLOCK allocated at %p:inject=%s\n", caller, block, inject ? "TRUE" : "FALSE");
  if (!SetJob(block, job, caller)) return false;
  for (const Directory &directory : kDirectories) {
    if (!SetDirectory(block, directory, caller)) return false;
  }
  if (!SetProductPath(block, caller) || !SetMachineFacts(block, caller)) return false;
  VXRDbg_Log(kCheck, "CHECK:%s:gpVXRParaBlock initailzed ok at %p:syspath=%s:rootpath=%s\n", caller, block,
             block->szSystemPath, block->szVrnltPath);
  return true;
}

}  // namespace

int32_t VXREng_Initialize(uint32_t inject, uint32_t job) {
  const CallTrace trace = TraceCall();
  // A host that starts twice would otherwise lose the earlier block, and the devices in it, for good.
  if (gpVXRParaBlock != nullptr) VXREng_Cleanup();
  if (BuildBlock(inject, job, __func__)) return TRUE;
  VXREng_Cleanup();
  return FALSE;
}

int32_t VXREng_Cleanup() {
  const CallTrace trace = TraceCall();
  VXR_PARABLOCK *block = gpVXRParaBlock;
  if (block == nullptr) return TRUE;
  VXRDbg_Log(kInfo, "INFOR:%s:freeing pVXRDevices=%p:Cnt=%d\n", __func__, block->pVXRDevices, block->dwDevCnt);
  VXRDev_FreeDevices(block);
  FreeLogged(block->szSystemPath, "INFOR:%s:freeing szSystemPath=%s\n");
  FreeLogged(block->szVrnltPath, "INFOR:%s:freeing szVrnltPath=%s\n");
  FreeLogged(block->szJobKey, "INFOR:%s:freeing szJobKey=%s\n");
  FreeMember(block->szWindowsPath);
  VXRDbg_Log(kCheck, "CHECK:%s:freeing gpVXRParaBlock=%p\n", __func__, block);
  FreeMember(gpVXRParaBlock);
  return TRUE;
}
