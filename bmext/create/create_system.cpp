#include <cstring>

#include "bmext/create/create.h"
#include "device/facts.h"
#include "log/log.h"

namespace {

constexpr int32_t kLoudFixme = 0;  // a cold collection is rare, and whoever reads its file must know

void FillOsVersion(VXR_SYSOSINFO *os, const Caller &trace) {
  OSVERSIONINFOEXA version = {};
  version.dwOSVersionInfoSize = sizeof version;
  if (!platform::GetVersionExA(&version)) {
    trace.Failed("GetVersionEx", "None");
    version = {};
  }
  os->MajorVersion = VxrPut32(version.dwMajorVersion);
  os->MinorVersion = VxrPut32(version.dwMinorVersion);
  os->BuildNumber = VxrPut32(version.dwBuildNumber);
  os->PlatformId = VxrPut32(version.dwPlatformId);
  os->ServicePackMajor = VxrPut32(version.wServicePackMajor);
  os->ServicePackMinor = VxrPut32(version.wServicePackMinor);
  os->SuiteMask = VxrPut32(version.wSuiteMask);
  os->ProductType = VxrPut32(version.wProductType);
}

void FillMemorySize(VXR_SYSOSINFO *os, const Caller &trace) {
  MEMORYSTATUSEX memory = {};
  memory.dwLength = sizeof memory;
  if (!platform::GlobalMemoryStatusEx(&memory)) {
    trace.Failed("GlobalMemoryStatusEx", "None");
    memory = {};
  }
  os->TotalPhys = VxrPut64(memory.ullTotalPhys);
}

void FillProcessor(VXR_SYSOSINFO *os) {
  SYSTEM_INFO system = {};
  platform::GetSystemInfo(&system);
  os->PageSize = VxrPut32(system.dwPageSize);
  os->NumberOfProcessors = VxrPut32(system.dwNumberOfProcessors);
  os->ProcessorType = VxrPut32(system.dwProcessorType);
  os->ProcessorLevel = VxrPut32(system.wProcessorLevel);
  os->ProcessorRevision = VxrPut32(system.wProcessorRevision);
  os->ProcessorArchitecture = VxrPut32(system.wProcessorArchitecture);
}

// A directory that does not fit leaves its field empty, whatever the platform left there.
template <SIZE_T kSize>
void FillDirectory(UINT (*directory)(char *, UINT), char (&field)[kSize]) {
  if (directory(field, kSize) >= kSize) std::memset(field, 0, kSize);
}

BOOL VXRExt_BuildVXRSysInfoHBM(VXR_SYSINFO *pVXRSysInfo) {
  const CallTrace trace = TraceCall();
  if (!Given(pVXRSysInfo, "pVXRSysInfo")) return FALSE;
  FillOsVersion(&pVXRSysInfo->SysOs, trace);
  FillMemorySize(&pVXRSysInfo->SysOs, trace);
  FillProcessor(&pVXRSysInfo->SysOs);
  FillDirectory(platform::GetSystemDirectoryA, pVXRSysInfo->SystemPath);
  FillDirectory(platform::GetWindowsDirectoryA, pVXRSysInfo->WindowsPath);
  return TRUE;
}

BOOL VXRExt_BuildVXRSysInfoCBM(VXR_SYSINFO *pVXRSysInfo) {
  const CallTrace trace = TraceCall();
  trace.Log(kLoudFixme, "FIXME", "Cold BM:TO-BE-IMPLEMENTED:Fake it as HBM!\n");
  return VXRExt_BuildVXRSysInfoHBM(pVXRSysInfo);
}

// --- Names ----------------------------------------------------------------------------------------------------------

using NameField = char[16];

// `told`: whether the platform had a name that fits; without one the field is empty.
void KeepName(BOOL told, NameField &field) {
  if (!told) std::memset(field, 0, sizeof field);
}

void FillName(COMPUTER_NAME_FORMAT format, NameField &field) {
  DWORD size = sizeof field;
  KeepName(platform::GetComputerNameExA(format, field, &size), field);
}

BOOL VXRExt_BuildVXRNetInfoHBM(VXR_NETINFO *net) {
  const CallTrace trace = TraceCall();
  DWORD size = sizeof net->ComputerName;
  KeepName(platform::GetComputerNameA(net->ComputerName, &size), net->ComputerName);
  FillName(ComputerNameNetBIOS, net->ComputerNameNetBIOS);
  FillName(ComputerNameDnsHostname, net->ComputerNameDnsHostname);
  FillName(ComputerNameDnsDomain, net->ComputerNameDnsDomain);
  FillName(ComputerNameDnsFullyQualified, net->ComputerNameDnsFullyQualified);
  FillName(ComputerNamePhysicalNetBIOS, net->ComputerNamePhysicalNetBIOS);
  FillName(ComputerNamePhysicalDnsHostname, net->ComputerNamePhysicalDnsHostname);
  FillName(ComputerNamePhysicalDnsDomain, net->ComputerNamePhysicalDnsDomain);
  FillName(ComputerNamePhysicalDnsFullyQualified, net->ComputerNamePhysicalDnsFullyQualified);
  trace.Fixme("HOT BM:ADD-MORE-HERE!\n");
  return TRUE;
}

BOOL VXRExt_BuildVXRNetInfoCBM(VXR_NETINFO *net) {
  const CallTrace trace = TraceCall();
  trace.Log(kLoudFixme, "FIXME", "Cold BM:TO-BE-IMPLEMENTED:Fake it by HBM\n");
  return VXRExt_BuildVXRNetInfoHBM(net);
}

}  // namespace

BOOL VXRExt_BuildVXRSysInfo(VXR_SYSINFO *pVXRSysInfo) {
  const CallTrace trace = TraceCall();
  if (!Given(pVXRSysInfo, "pVXRSysInfo")) return FALSE;
  DWORD bootMedia = 0;
  const BOOL known = VXRDev_GetBootMediaType(&bootMedia);
  pVXRSysInfo->BootMedia = VxrPut32(bootMedia);
  if (!known) {
    trace.Failed("VXRDev_GetBootMediaType", "None");
    return FALSE;
  }
  return bootMedia != 0 ? VXRExt_BuildVXRSysInfoCBM(pVXRSysInfo) : VXRExt_BuildVXRSysInfoHBM(pVXRSysInfo);
}

BOOL VXRExt_BuildVXRNetInfo(DWORD cold, VXR_NETINFO *pVXRNetInfo) {
  const CallTrace trace = TraceCall();
  if (!Given(pVXRNetInfo, "pVXRNetInfo")) return FALSE;
  return cold != 0 ? VXRExt_BuildVXRNetInfoCBM(pVXRNetInfo) : VXRExt_BuildVXRNetInfoHBM(pVXRNetInfo);
}
