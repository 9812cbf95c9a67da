#include "device/records.h"

#include <cstdio>

#include "device/class_guids.h"
#include "log/dump.h"
#include "log/log.h"

namespace {

constexpr DWORD kGuidTextSize = 37;
constexpr DWORD kBracedGuidTextSize = 40;  // one byte more than the 38 characters and the terminator need

}  // namespace

BOOL VXRDev_GetGuidByDevType(DWORD deviceType, GUID *guid) {
  const CallTrace trace = TraceCall();
  switch (deviceType) {
    case VXR_DEVTYPE_DISKDRIVE:
      *guid = kDiskDriveClass;
      break;
    case VXR_DEVTYPE_HDC:
      *guid = kIdeControllerClass;
      break;
    case VXR_DEVTYPE_SCSIADAPTER:
      *guid = kScsiAdapterClass;
      break;
    default:
      *guid = kNetworkAdapterClass;
  }
  return TRUE;
}

HeapText VXRDev_GetGuidString(const GUID *guid, BOOL braces) {
  const CallTrace trace = TraceCall();
  const DWORD size = braces ? kBracedGuidTextSize : kGuidTextSize;
  HeapText text = AllocTextUnlogged(size);
  if (text == nullptr) {
    trace.Error("AllocHeap(%d bytes) failed for szGuid!\n", size);
    return nullptr;
  }
  std::snprintf(text.get(), size, braces ? "{%s}" : "%s", FormatGuid(*guid).text);
  return text;
}

HeapText VXRDev_GetGuidStringByType(DWORD deviceType, BOOL braces) {
  const CallTrace trace = TraceCall();
  GUID guid{};
  VXRDev_GetGuidByDevType(deviceType, &guid);
  HeapText text = VXRDev_GetGuidString(&guid, braces);
  if (text == nullptr) trace.Error("VXRDev_GetGuidString() failed!\n");
  return text;
}

HeapText VXRDev_GetClassStringByType(DWORD deviceType) {
  const CallTrace trace = TraceCall();
  GUID guid{};
  VXRDev_GetGuidByDevType(deviceType, &guid);
  DWORD size = 0;
  platform::SetupDiClassNameFromGuidA(&guid, nullptr, 0, &size);  // a buffer of 0 bytes fails; only the size counts
  if (size == 0) {
    trace.Error("SetupDiClassNameFromGuid() failed to get size\n");
    return nullptr;
  }
  HeapText name = AllocTextUnlogged(size);
  if (name == nullptr) {
    trace.Error("AllocHeap(%d bytes) failed to get size\n", size);
    return nullptr;
  }
  if (!platform::SetupDiClassNameFromGuidA(&guid, name.get(), size, nullptr)) {
    trace.Error("SetupDiClassNameFromGuid() failed!ec=0x%08x\n", platform::GetLastError());
    return nullptr;
  }
  return name;
}

BOOL VXRDev_FreeDriver(VXR_DRIVER *pVXRDriver) {
  const CallTrace trace = TraceCall();
  if (pVXRDriver == nullptr) return TRUE;
  FreeLogged(pVXRDriver->szDriver, "freeing szDriver=%s\n");
  FreeLogged(pVXRDriver->szService, "freeing szService=%s\n");
  FreeLogged(pVXRDriver->pDrvInfoData, "freeing pDrvInfoData=%p\n");
  FreeLogged(pVXRDriver->pDrvInfoDetailData, "freeing pDrvInfoDetailData=%p\n");
  trace.Check("freeing pVXRDriver=%p\n", pVXRDriver);
  FreeMember(pVXRDriver);
  return TRUE;
}

BOOL VXRDev_FreeDevice(VXR_DEVICE *pVXRDevice) {
  const CallTrace trace = TraceCall();
  if (pVXRDevice == nullptr) return TRUE;
  FreeLogged(pVXRDevice->szInstanceID, "freeing szInstanceID=%s\n");
  FreeLogged(pVXRDevice->szHardwareID, "freeing szHardwareID=%p\n");
  FreeLogged(pVXRDevice->szCompatibleIDs, "freeing szCompatibleIDs=%p\n");
  FreeLogged(pVXRDevice->szTargetOS, "freeing szTargetOS=%p\n");
  if (pVXRDevice->pVXRDriver != nullptr) {
    trace.Info("freeing pVXRDriver=%p...\n", pVXRDevice->pVXRDriver);
    VXRDev_FreeDriver(pVXRDevice->pVXRDriver);
    pVXRDevice->pVXRDriver = nullptr;
  }
  if (pVXRDevice->pVXRDevParent != nullptr) {
    trace.Info("freeing pVXRDevParent=%p...\n", pVXRDevice->pVXRDevParent);
    VXRDev_FreeDevice(pVXRDevice->pVXRDevParent);
    pVXRDevice->pVXRDevParent = nullptr;
  }
  trace.Check("freeing pVXRDevice=%p...\n", pVXRDevice);
  FreeMember(pVXRDevice);
  return TRUE;
}

BOOL VXRDev_FreeDevices(VXR_PARABLOCK *pVXRParaBlock) {
  const CallTrace trace = TraceCall();
  if (pVXRParaBlock == nullptr) return TRUE;
  for (DWORD i = 0; i < pVXRParaBlock->dwDevCnt && i < kMaxVxrDevices; ++i) {
    VXR_DEVICE *&device = pVXRParaBlock->pVXRDevices[i];
    if (device == nullptr) continue;
    VXRDev_FreeDevice(device);
    device = nullptr;
  }
  pVXRParaBlock->dwDevCnt = 0;
  return TRUE;
}

DeviceSet PresentDevices(const GUID *classGuid) {
  const DWORD flags = classGuid != nullptr ? DIGCF_PRESENT : DIGCF_PRESENT | DIGCF_ALLCLASSES;
  const HDEVINFO set = platform::SetupDiGetClassDevsA(classGuid, nullptr, nullptr, flags);
  return DeviceSet(set != INVALID_HANDLE_VALUE ? set : nullptr);
}
