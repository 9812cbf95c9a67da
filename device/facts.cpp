#include "device/facts.h"

#include "device/class_guids.h"
#include "device/properties.h"
#include "engine/base/strings.h"
#include "log/log.h"
#include "registry/values.h"

namespace {

constexpr DWORD64 kPaeThreshold = 0x100000000;  // bytes of physical memory that need PAE
constexpr char kHalKey[] = "SYSTEM\\CurrentControlSet\\Enum\\Root\\ACPI_HAL\\0000";

struct Medium {
  UINT driveType;
  DWORD medium;
  int32_t level;
  const char *line;
};

constexpr Medium kMedia[] = {
    {DRIVE_FIXED, VXR_BOOTMEDIA_DISK, kCheck, "CHECK:%s:DRIVE_FIXED -> VXR_BOOTMEDIA_DISK\n"},
    {DRIVE_CDROM, VXR_BOOTMEDIA_CDROM, kCheck, "CHECK:%s:DRIVE_CDROM -> VXR_BOOTMEDIA_CDROM\n"},
    {DRIVE_REMOTE, VXR_BOOTMEDIA_NET, kCheck, "CHECK:%s:DRIVE_REMOTE -> VXR_BOOTMEDIA_NET\n"},
    {DRIVE_RAMDISK, VXR_BOOTMEDIA_RAM, kCheck, "CHECK:%s:DRIVE_RAMDISK -> VXR_BOOTMEDIA_RAM\n"},
    {DRIVE_REMOVABLE, VXR_BOOTMEDIA_UNKNOWN, kWarning, "WARNG:%s:DRIVE_REMOVABLE -> VXR_BOOTMEDIA_UNKNOWN\n"},
    {DRIVE_NO_ROOT_DIR, VXR_BOOTMEDIA_UNKNOWN, kWarning, "WARNG:%s:DRIVE_NO_ROOT_DIR -> VXR_BOOTMEDIA_UNKNOWN\n"},
};
constexpr Medium kUnknownMedium = {DRIVE_UNKNOWN, VXR_BOOTMEDIA_UNKNOWN, kWarning,
                                   "WARNG:%s:DRIVE_UNKNOWN -> VXR_BOOTMEDIA_UNKNOWN\n"};

const Medium &MediumOfDriveType(UINT driveType) {
  for (const Medium &medium : kMedia) {
    if (medium.driveType == driveType) return medium;
  }
  return kUnknownMedium;
}

// The beginning of the computer device's hardware id, by HAL type.
constexpr const char *kHalIds[] = {"E_ISA_UP", "ACPIPIC_UP", "ACPIAPIC_UP", "ACPIAPIC_MP", "MPS_UP", "MPS_MP"};

// The computer device's hardware ids; null when neither the platform nor the registry tells them.
HeapText ComputerHardwareId(const Caller &trace) {
  DWORD type = 0, size = 0;
  HeapText id = VXRDev_GetRegProperty(nullptr, &kComputerClass, 0, SPDRP_HARDWAREID, &size, &type);
  if (id != nullptr) return id;
  trace.Error("VXRDev_GetRegProperty() failed! read registry directly\n");
  id = VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, kHalKey, "HardwareID", &type, &size);
  if (id == nullptr) trace.Error("VXRReg_GetRegistryValue() failed!\n");
  return id;
}

}  // namespace

BOOL VXRDev_GetBootMediaType(DWORD *pBootMedia) {
  const CallTrace trace = TraceCall();
  if (pBootMedia == nullptr) {
    trace.Null("pBootMedia");
    return FALSE;
  }
  char root[MAX_PATH] = "";
  platform::GetSystemDirectoryA(root, sizeof root);
  root[2] = '\0';  // the drive's letter and its colon stay
  const UINT driveType = platform::GetDriveTypeA(root);
  trace.Check("checking root drive type:root=%s:type=%d\n", root, driveType);
  const Medium &medium = MediumOfDriveType(driveType);
  VXRDbg_Log(medium.level, medium.line, trace.name);
  *pBootMedia = medium.medium;
  return medium.medium != VXR_BOOTMEDIA_UNKNOWN;
}

BOOL VXRDev_GetKrnlType(DWORD *pKrnlType) {
  const CallTrace trace = TraceCall();
  *pKrnlType = VXR_KRNL_UP;
  MEMORYSTATUSEX memory{};
  memory.dwLength = sizeof memory;
  if (!platform::GlobalMemoryStatusEx(&memory)) {
    trace.Error("GlobalMemoryStatusEx() failed!ec=0x%08x\n", platform::GetLastError());
    return FALSE;
  }
  SYSTEM_INFO system{};
  platform::GetSystemInfo(&system);
  const bool pae = memory.ullTotalPhys >= kPaeThreshold;
  if (system.dwNumberOfProcessors == 1) {
    *pKrnlType = pae ? VXR_KRNL_UP_PAE : VXR_KRNL_UP;
  } else {
    *pKrnlType = pae ? VXR_KRNL_MP_PAE : VXR_KRNL_MP;
  }
  return TRUE;
}

BOOL VXRDev_GetHalType(DWORD *pHalType) {
  const CallTrace trace = TraceCall();
  *pHalType = VXR_HAL_E_ISA_UP;
  const HeapText id = ComputerHardwareId(trace);
  if (id == nullptr) return FALSE;
  trace.Check("retrieved hardwareid =%s\n", id.get());
  for (DWORD hal = VXR_HAL_E_ISA_UP; hal <= VXR_HAL_MPS_MP; ++hal) {
    if (BeginsWith(id.get(), kHalIds[hal])) {
      *pHalType = hal;
      return TRUE;
    }
  }
  trace.Error("failed to translate %s:set to VXR_HAL_E_ISA_UP\n", id.get());
  return TRUE;
}

BOOL VXRDev_GetArchInfo([[maybe_unused]] DWORD bootMedia, VXR_ARCHITECT *pArch) {
  const CallTrace trace = TraceCall();
  if (pArch == nullptr) {
    trace.Null("pArch");
    return FALSE;
  }
  DWORD kernel = 0, hal = 0;
  const BOOL kernelKnown = VXRDev_GetKrnlType(&kernel);
  pArch->KernelType = VxrPut32(kernel);
  if (!kernelKnown) {
    trace.Error("VXRDev_GetKrnlType() failed\n");
    return FALSE;
  }
  const BOOL halKnown = VXRDev_GetHalType(&hal);
  pArch->HalType = VxrPut32(hal);
  if (!halKnown) trace.Error("VXRDev_GetHalType() failed!\n");
  return halKnown;
}
