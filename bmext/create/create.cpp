#include "bmext/create/create.h"

#include "device/facts.h"
#include "engine/base/files.h"
#include "log/heap.h"
#include "log/log.h"
#include "log/record_dump.h"
#include "vxrcore/vxrcore.h"

namespace {

constexpr char kIncludesSection[] = "BMExtension";

void LogInputs(const char *file, const char *includes, const char *map, const Caller &trace) {
  trace.Check("bmext file = %s\n", file);
  if (map != nullptr) {
    trace.Check("map file = %s\n", map);
  } else {
    trace.Check("map file unavailable\n");
  }
  if (includes != nullptr) {
    trace.Check("includes file = %s\n", includes);
  } else {
    trace.Check("includes file unavailable\n");
  }
}

// Writes a record and has it reach the disk; `done` is the line of success, `failed` the message of the failing one.
BOOL WriteRecord(HANDLE file, const void *record, DWORD size, const char *done, const char *failed, const char *path,
                 const Caller &trace) {
  DWORD written = 0;
  BOOL whole = platform::WriteFile(file, record, size, &written, nullptr);
  if (whole && written != size) {
    platform::SetLastError(ERROR_DISK_FULL);  // it took a part and called that a success
    whole = FALSE;
  }
  if (!whole) {
    trace.Failed("WriteFile", failed);
    return FALSE;
  }
  if (!platform::FlushFileBuffers(file)) {
    trace.Failed("FlushFileBuffers", path);
    return FALSE;
  }
  trace.Check(done, written, path);
  return TRUE;
}

BOOL WriteExtension(HANDLE file, const VXR_EXTHEADER &header, const VXR_BMEXTNSON &extension, const char *path,
                    const Caller &trace) {
  return WriteRecord(file, &header, sizeof header, "succesffully writen %d bytes of VXR_EXTHEADER to %s \n",
                     "Failed to write bm ext. header", path, trace) &&
         WriteRecord(file, &extension, sizeof extension, "succesffully writen %d bytes of VXR_BMEXTNSON to %s\n",
                     "Failed to write bm ext. extension", path, trace);
}

BOOL ListInIncludes(const char *file, const char *includes, const Caller &trace) {
  if (includes == nullptr) {
    trace.Log(kQuietWarning, "WARNG", "includes file not available, bypass updating...\n");
    return TRUE;
  }
  if (!VXRExt_UpdateBMIncludesFile(file, includes)) {
    trace.Failed("VXRExt_UpdateBMIncludesFile", includes);
    return FALSE;
  }
  trace.Check("succesffully updated %s with %s\n", includes, file);
  return TRUE;
}

// A step of the collection that fails as a whole logs its name and what the system said last.
BOOL Done(BOOL result, const char *step, const Caller &trace) {
  if (!result) trace.Failed(step, "None");
  return result;
}

}  // namespace

uint32_t VXRExt_CreateBMExtFile(const char *extension, const char *includes, const char *map) {
  const CallTrace trace = TraceCall();
  if (!Given(extension, "szFile")) return VXR_RESULT_NO_EXTENSION;
  LogInputs(extension, includes, map, trace);
  const HeapPtr<VXR_BMEXTNSON> record = AllocRecord<VXR_BMEXTNSON>("pVXRBMExt");
  if (record == nullptr) return VXR_RESULT_NO_EXTENSION;
  record->Size = VxrPut32(sizeof *record);
  if (!Done(VXRExt_CreateBMExtension(map, record.get()), "VXRExt_CreateBMExtension", trace))
    return VXR_RESULT_NO_EXTENSION;
  VXR_EXTHEADER header = {};
  const DWORD cold = VxrGet32(record->SysInfo.BootMedia);
  if (!Done(VXRExt_CreateBMExtFileHeader(cold, &header), "VXRExt_CreateBMExtFileHeader", trace))
    return VXR_RESULT_NO_EXTENSION;
  VXRDbg_DumpExtHeader(&header, trace.name);
  const OpenedFile file = OpenLogged(extension, GENERIC_ALL, FILE_SHARE_READ | FILE_SHARE_WRITE, CREATE_ALWAYS);
  if (file == nullptr || !WriteExtension(file.get(), header, *record, extension, trace)) return VXR_RESULT_NO_EXTENSION;
  return ListInIncludes(extension, includes, trace) ? VXR_RESULT_SUCCESS : VXR_RESULT_NO_EXTENSION;
}

BOOL VXRExt_CreateBMExtension(const char *szMap, VXR_BMEXTNSON *pVXRBMExt) {
  const CallTrace trace = TraceCall();
  if (!Given(pVXRBMExt, "pVXRBMExt")) return FALSE;
  if (!Done(VXRExt_BuildVXRSysInfo(&pVXRBMExt->SysInfo), "VXRExt_BuildVXRSysInfo", trace)) return FALSE;
  const DWORD cold = VxrGet32(pVXRBMExt->SysInfo.BootMedia);
  return Done(VXRDev_GetArchInfo(cold, &pVXRBMExt->Architect), "VXRDev_GetArchInfo", trace) &&
         Done(VXRExt_BuildVXRVolumes(cold, szMap, &pVXRBMExt->Volumes), "VXRExt_BuildVXRVolumes", trace) &&
         Done(VXRExt_BuildVXRNetInfo(cold, &pVXRBMExt->NetInfo), "VXRExt_BuildVXRNetInfo", trace);
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
  trace.Flush("updating %s with %s..\n", szIncFile, szBMEFile);
  if (platform::WritePrivateProfileStringA(kIncludesSection, "ItemCount", "1", szIncFile) &&
      platform::WritePrivateProfileStringA(kIncludesSection, "Item0", szBMEFile, szIncFile)) {
    return TRUE;
  }
  trace.Failed("WritePrivateProfileString", szIncFile);
  return FALSE;
}
