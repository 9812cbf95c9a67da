// The INF files of a directory: which there are, which are of a class, which the platform finds a driver in.
#include <cstring>

#include "device/records.h"
#include "engine/base/decisions.h"
#include "engine/base/strings.h"
#include "inf/checks.h"
#include "inf/field_reader.h"
#include "inf/search/driver_search.h"
#include "log/log.h"
#include "vxrcore/vxrcore.h"

namespace {

constexpr DWORD kShortestList = 6;    // a multi-string shorter than this names no INF file
constexpr DWORD kClassGuidSize = 64;  // of the buffer for a file's ClassGUID
constexpr SIZE_T kIdsOffset = offsetof(SP_DRVINFO_DETAIL_DATA_A, HardwareID);

// Zero-filled memory for a record of `size` bytes; null without a log line, since a file that memory runs out on counts
// as one that cannot be read.
template <typename T>
HeapPtr<T> AllocUnlogged(SIZE_T size) {
  return HeapPtr<T>(reinterpret_cast<T *>(AllocTextUnlogged(size).release()));
}

// ClassGUID of the file's Version section, into kClassGuidSize bytes.
bool ReadClassGuid(const char *path, char *classGuid) {
  const InfFile inf = OpenInfFile(path);
  if (inf == nullptr) return false;
  DWORD size = 0;
  if (!platform::SetupGetInfInformationA(inf.get(), INFINFO_INF_SPEC_IS_HINF, nullptr, 0, &size) ||
      size < sizeof(SP_INF_INFORMATION)) {
    return false;
  }
  const HeapPtr<SP_INF_INFORMATION> information(AllocUnlogged<SP_INF_INFORMATION>(size));
  return information != nullptr &&
         platform::SetupGetInfInformationA(inf.get(), INFINFO_INF_SPEC_IS_HINF, information.get(), size, &size) &&
         platform::SetupQueryInfVersionInformationA(information.get(), 0, "ClassGUID", classGuid, kClassGuidSize,
                                                    &size);
}

// Restricts the search for the device's drivers to one INF file.
bool SearchOnly(HDEVINFO set, SP_DEVINFO_DATA *device, const char *path, const Caller &trace) {
  SP_DEVINSTALL_PARAMS_A parameters = {};
  parameters.cbSize = sizeof(parameters);
  if (!platform::SetupDiGetDeviceInstallParamsA(set, device, &parameters)) return false;
  parameters.Flags = DI_ENUMSINGLEINF;
  if (!PutText(parameters.DriverPath, sizeof(parameters.DriverPath), "DriverPath", {path}, trace)) return false;
  return platform::SetupDiSetDeviceInstallParamsA(set, device, &parameters);
}

// The first of the device's compatible drivers.
HeapPtr<SP_DRVINFO_DATA_A> FirstDriver(HDEVINFO set, SP_DEVINFO_DATA *device) {
  if (!platform::SetupDiBuildDriverInfoList(set, device, SPDIT_COMPATDRIVER)) {
    ReportRefusal(VXRMACHINE_REFUSED_UNREADABLE);
    return nullptr;
  }
  HeapPtr<SP_DRVINFO_DATA_A> driver = AllocUnlogged<SP_DRVINFO_DATA_A>(sizeof(SP_DRVINFO_DATA_A));
  if (driver == nullptr) return nullptr;
  driver->cbSize = sizeof(SP_DRVINFO_DATA_A);
  if (!platform::SetupDiEnumDriverInfoA(set, device, SPDIT_COMPATDRIVER, 0, driver.get())) {
    ReportRefusal(VXRMACHINE_REFUSED_RUNNING_SYSTEM);
    return nullptr;
  }
  return driver;
}

// The driver's detail record, with its id list closed within the memory and its compatible part within the list.
HeapPtr<SP_DRVINFO_DETAIL_DATA_A> DriverDetail(HDEVINFO set, SP_DEVINFO_DATA *device, SP_DRVINFO_DATA_A *driver) {
  DWORD size = 0;
  if (!platform::SetupDiGetDriverInfoDetailA(set, device, driver, nullptr, 0, &size) ||
      size < sizeof(SP_DRVINFO_DETAIL_DATA_A)) {
    return nullptr;
  }
  // Two zero bytes behind the record end the list, whatever the record holds.
  HeapPtr<SP_DRVINFO_DETAIL_DATA_A> detail = AllocUnlogged<SP_DRVINFO_DETAIL_DATA_A>(SIZE_T{size} + 2);
  if (detail == nullptr) return nullptr;
  detail->cbSize = sizeof(SP_DRVINFO_DETAIL_DATA_A);
  if (!platform::SetupDiGetDriverInfoDetailA(set, device, driver, detail.get(), size, nullptr)) return nullptr;
  const SIZE_T room = size - kIdsOffset;
  if (detail->CompatIDsOffset > room || detail->CompatIDsLength > room - detail->CompatIDsOffset) return nullptr;
  return detail;
}

}  // namespace

HeapText VXRDev_GetInfFilesList(const char *szInfDir) {
  const CallTrace trace = TraceCall();
  if (!Given(szInfDir, "szInfDir")) return nullptr;
  DWORD size = 0;
  if (!platform::SetupGetInfFileListA(szInfDir, INF_STYLE_WIN4, nullptr, 0, &size)) {
    trace.Failed("SetupGetInfFileList", szInfDir);
    return nullptr;
  }
  if (size < kShortestList) return nullptr;
  HeapText files = AllocText(size, "szInfFiles");
  if (files == nullptr) return nullptr;
  if (!platform::SetupGetInfFileListA(szInfDir, INF_STYLE_WIN4, files.get(), size, nullptr)) {
    trace.Failed("SetupGetInfFileList", szInfDir);
    return nullptr;
  }
  return files;
}

BOOL VXRDev_ValidateInfFile(const char *szInfFile, const GUID *pGuid) {
  const CallTrace trace = TraceCall();
  if (!Given(pGuid, "pGuid") || !Given(szInfFile, "szInfFile")) return TRUE;
  if (!VXREng_FileExists(szInfFile)) return TRUE;
  const HeapText wanted = VXRDev_GetGuidString(pGuid, TRUE);
  if (wanted == nullptr) return TRUE;
  char classGuid[kClassGuidSize] = {};
  if (!ReadClassGuid(szInfFile, classGuid)) return TRUE;
  if (VXREng_StrNICmp(classGuid, wanted.get(), std::strlen(wanted.get())) == 0) return TRUE;
  platform::ReportDecision(VXRMACHINE_INF_TRIED, szInfFile);
  ReportRefusal(VXRMACHINE_REFUSED_CLASS, classGuid);
  return FALSE;
}

BOOL VXRDev_InitDriverInf(const char *szInfFile, VXR_DRIVER *pVXRDriver, VXR_DEVICE *pVXRDevice) {
  const CallTrace trace = TraceCall();
  if (!Given(szInfFile, "szInfFile") || !Given(pVXRDriver, "pVXRDriver") || !Given(pVXRDevice, "pVXRDevice")) {
    return FALSE;
  }
  const DeviceSet set = PresentDevices(&pVXRDevice->guDevice);
  if (set == nullptr) {
    trace.Failed("SetupDiGetClassDevs", "Failed to get hDevInfo");
    return FALSE;
  }
  trace.Flush("hDevInfo=%p:inf=%s:iDevEnum=%d...\n", set.get(), szInfFile, pVXRDevice->iDevEnum);
  SP_DEVINFO_DATA device = {};
  device.cbSize = sizeof(device);
  if (!platform::SetupDiEnumDeviceInfo(set.get(), pVXRDevice->iDevEnum, &device)) return FALSE;
  if (!SearchOnly(set.get(), &device, szInfFile, trace)) return FALSE;
  HeapPtr<SP_DRVINFO_DATA_A> driver = FirstDriver(set.get(), &device);
  if (driver == nullptr) return FALSE;
  HeapPtr<SP_DRVINFO_DETAIL_DATA_A> detail = DriverDetail(set.get(), &device, driver.get());
  if (detail == nullptr) return FALSE;

  FreeMember(pVXRDriver->pDrvInfoData);
  FreeMember(pVXRDriver->pDrvInfoDetailData);
  pVXRDriver->iDevEnum = pVXRDevice->iDevEnum;
  pVXRDriver->iDrvEnum = 0;
  pVXRDriver->hDevInst = pVXRDevice->hDevInst;
  pVXRDriver->guDevice = pVXRDevice->guDevice;
  pVXRDriver->pDrvInfoData = driver.release();
  pVXRDriver->pDrvInfoDetailData = detail.release();
  pVXRDriver->pVXRDevice = pVXRDevice;
  trace.Check("driver info built ok from %s\n", szInfFile);
  return TRUE;
}
