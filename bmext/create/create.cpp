#include "bmext/create/create.h"

#include "device/facts.h"
#include "engine/base/files.h"
#include "log/heap.h"
#include "log/log.h"
#include "log/record_dump.h"
#include "vxrcore/vxrcore.h"

namespace {

constexpr DWORD kSuccess = 0;
constexpr DWORD kFailed = 9;
constexpr char kIncludesSection[] = "BMExtension";

void LogInputs(const char *file, const char *includes, const char *map, const char *caller) {
  VXRDbg_Log(kCheck, "CHECK:%s:bmext file = %s\n", caller, file);
  if (map != nullptr) {
    VXRDbg_Log(kCheck, "CHECK:%s:map file = %s\n", caller, map);
  } else {
    VXRDbg_Log(kCheck, "CHECK:%s:map file unavailable\n", caller);
  }
  if (includes != nullptr) {
    VXRDbg_Log(kCheck, "CHECK:%s:includes file = %s\n", caller, includes);
  } else {
    VXRDbg_Log(kCheck, "CHECK:%s:includes file unavailable\n", caller);
  }
}

// Writes a record and has it reach the disk; `done` is the line of success, `failed` the message of the failing one.
BOOL WriteRecord(HANDLE file, const void *record, DWORD size, const char *done, const char *failed, const char *path,
                 const char *caller) {
  DWORD written = 0;
  BOOL whole = platform::WriteFile(file, record, size, &written, nullptr);
  if (whole && written != size) {
    platform::SetLastError(ERROR_DISK_FULL);  // it took a part and called that a success
    whole = FALSE;
  }
  if (!whole) {
    LogFailure("WriteFile", failed, caller);
    return FALSE;
  }
  if (!platform::FlushFileBuffers(file)) {
    LogFailure("FlushFileBuffers", path, caller);
    return FALSE;
  }
  VXRDbg_Log(kCheck, done, caller, written, path);
  return TRUE;
}

BOOL WriteExtension(HANDLE file, const VXR_EXTHEADER &header, const VXR_BMEXTNSON &extension, const char *path,
                    const char *caller) {
  return WriteRecord(file, &header, sizeof header, "CHECK:%s:succesffully writen %d bytes of VXR_EXTHEADER to %s \n",
                     "Failed to write bm ext. header", path, caller) &&
         WriteRecord(file, &extension, sizeof extension,
                     "CHECK:%s:succesffully writen %d bytes of VXR_BMEXTNSON to %s\n",
                     "Failed to write bm ext. extension", path, caller);
}

BOOL ListInIncludes(const char *file, const char *includes, const char *caller) {
  if (includes == nullptr) {
    VXRDbg_Log(kQuietWarning, "WARNG:%s:includes file not available, bypass updating...\n", caller);
    return TRUE;
  }
  if (!VXRExt_UpdateBMIncludesFile(file, includes)) {
    LogFailure("VXRExt_UpdateBMIncludesFile", includes, caller);
    return FALSE;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:succesffully updated %s with %s\n", caller, includes, file);
  return TRUE;
}

// A step of the collection that fails as a whole logs its name and what the system said last.
BOOL Done(BOOL result, const char *step, const char *caller) {
  if (!result) LogFailure(step, "None", caller);
  return result;
}

}  // namespace

uint32_t VXRExt_CreateBMExtFile(const char *extension, const char *includes, const char *map) {
  const CallTrace trace = TraceCall();
  if (!Given(extension, "szFile")) return kFailed;
  LogInputs(extension, includes, map, __func__);
  const HeapPtr<VXR_BMEXTNSON> record = AllocRecord<VXR_BMEXTNSON>("pVXRBMExt");
  if (record == nullptr) return kFailed;
  record->Size = VxrPut32(sizeof *record);
  if (!Done(VXRExt_CreateBMExtension(map, record.get()), "VXRExt_CreateBMExtension", __func__)) return kFailed;
  VXR_EXTHEADER header = {};
  const DWORD cold = VxrGet32(record->SysInfo.BootMedia);
  if (!Done(VXRExt_CreateBMExtFileHeader(cold, &header), "VXRExt_CreateBMExtFileHeader", __func__)) return kFailed;
  VXRDbg_DumpExtHeader(&header, __func__);
  const OpenedFile file = OpenLogged(extension, GENERIC_ALL, FILE_SHARE_READ | FILE_SHARE_WRITE, CREATE_ALWAYS);
  if (file == nullptr || !WriteExtension(file.get(), header, *record, extension, __func__)) return kFailed;
  return ListInIncludes(extension, includes, __func__) ? kSuccess : kFailed;
}

BOOL VXRExt_CreateBMExtension(const char *szMap, VXR_BMEXTNSON *pVXRBMExt) {
  const CallTrace trace = TraceCall();
  if (!Given(pVXRBMExt, "pVXRBMExt")) return FALSE;
  if (!Done(VXRExt_BuildVXRSysInfo(&pVXRBMExt->SysInfo), "VXRExt_BuildVXRSysInfo", __func__)) return FALSE;
  const DWORD cold = VxrGet32(pVXRBMExt->SysInfo.BootMedia);
  return Done(VXRDev_GetArchInfo(cold, &pVXRBMExt->Architect), "VXRDev_GetArchInfo", __func__) &&
         Done(VXRExt_BuildVXRVolumes(cold, szMap, &pVXRBMExt->Volumes), "VXRExt_BuildVXRVolumes", __func__) &&
         Done(VXRExt_BuildVXRNetInfo(cold, &pVXRBMExt->NetInfo), "VXRExt_BuildVXRNetInfo", __func__);
}

BOOL VXRExt_CreateBMExtFileHeader(DWORD cold, VXR_EXTHEADER *pVXRBMExtHeader) {
  const CallTrace trace = TraceCall();
  if (!Given(pVXRBMExtHeader, "pVXRBMExtHeader")) return FALSE;
  *pVXRBMExtHeader = {};
  pVXRBMExtHeader->Version = VxrPut32(VXR_EXT_VERSION);
  pVXRBMExtHeader->Magic = VxrPut32(cold != 0 ? VXR_EXT_MAGIC_COLD : VXR_EXT_MAGIC_HOT);
  return TRUE;
}

BOOL VXRExt_UpdateBMIncludesFile(const char *szBMEFile, const char *szIncFile) {
  const CallTrace trace = TraceCall();
  if (!Given(szBMEFile, "szBMEFile") || !Given(szIncFile, "szIncFile")) return FALSE;
  VXRDbg_Log(kFlush, "FLUSH:%s:updating %s with %s..\n", __func__, szIncFile, szBMEFile);
  if (platform::WritePrivateProfileStringA(kIncludesSection, "ItemCount", "1", szIncFile) &&
      platform::WritePrivateProfileStringA(kIncludesSection, "Item0", szBMEFile, szIncFile)) {
    return TRUE;
  }
  LogFailure("WritePrivateProfileString", szIncFile);
  return FALSE;
}
