#include "log/record_dump.h"

#include <cstdio>
#include <cstring>

#include "log/dump.h"
#include "log/log.h"

namespace {

// A field's text within its field: an image from outside may hold one without a terminator.
template <SIZE_T kWidth>
void DumpField(const char *label, const char (&field)[kWidth]) {
  VXRDbg_Log(kCheck, "%s%.*s\n", label, static_cast<int32_t>(kWidth), field);
}

// An image from outside may count more entries than its table has.
DWORD CappedCount(VXR_LE32 count, DWORD capacity) {
  const DWORD value = VxrGet32(count);
  return value < capacity ? value : capacity;
}

const char *TrueOrFalse(BOOL value) { return value ? "TRUE" : "FALSE"; }

// The bytes of the volume's unique id on one line.
void DumpUniqueIdBytes(const VXR_VOLUME &volume) {
  char text[sizeof volume.UniqId * 3 + 1] = "";
  const DWORD count = CappedCount(volume.UniqIdLen, sizeof volume.UniqId);
  for (std::size_t i = 0; i < count; ++i) std::snprintf(text + i * 3, 4, "%02X ", volume.UniqId[i]);
  VXRDbg_Log(kCheck, "%s\n", text);
}

void DumpRecordedTime(const char *label, VXR_LE64 time) {
  const uint64_t ticks = VxrGet64(time);
  const FILETIME fileTime = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
  SYSTEMTIME converted{};
  if (platform::FileTimeToSystemTime(&fileTime, &converted)) VXRDbg_DumpSystemTime(&converted, label);
}

}  // namespace

void VXRDbg_DumpExtHeader(const VXR_EXTHEADER *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("VXR_EXTHEADER:", caller);
  VXRDbg_Log(kCheck, "Magic=0x%08X Verson=0x0%08x\n", VxrGet32(record->Magic), VxrGet32(record->Version));
}

void VXRDbg_DumpBMExtnson(const VXR_BMEXTNSON *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("VXR_BMEXTNSON\n", caller);
  VXRDbg_DumpArchitect(&record->Architect, caller);
  VXRDbg_DumpSysInfo(&record->SysInfo, caller);
  VXRDbg_DumpNetInfo(&record->NetInfo, caller);
  VXRDbg_DumpVolumes(&record->Volumes, caller);
}

void VXRDbg_DumpArchitect(const VXR_ARCHITECT *record, const char *caller) {
  constexpr const char *kKernels[] = {
      "\tKRNL Type = UP_x86 w/o PAE: ntoskrnl.exe\n", "\tKRNL Type = UP_x86 w/ PAE: ntkrnlpa.exe\n",
      "\tKRNL Type = MP_x86 w/o PAE: ntkrnlmp.exe\n", "\tKRNL Type = MP_x86 w/ PAE: ntoskrnl.exe\n"};
  constexpr const char *kHals[] = {"\tHAL Type  = Standard PC: hal.dll\n",
                                   "\tHAL Type  = ACPI PIC-based PC: halacpi.dll\t\n",
                                   "\tHAL Type  = ACPI APIC-based PC (UP): halaacpi.dll\n",
                                   "\tHAL Type  = ACPI APIC-based PC (MP): halmacpi.dll\n",
                                   "\tHAL Type  = MPS UP PC: halapic.dll\n",
                                   "\tHAL Type  = MPS MP PC: halmps.dll\n"};
  if (record == nullptr) return;
  DumpTitle("VXR_ARCHITECT\n", caller);
  const DWORD kernel = VxrGet32(record->KernelType);
  const DWORD hal = VxrGet32(record->HalType);
  if (kernel <= VXR_KRNL_MP_PAE) {
    VXRDbg_Log(kCheck, "%s", kKernels[kernel]);
  } else {
    VXRDbg_Log(kCheck, "\tKRNL Type = UNKNOWN %d\n", kernel);
  }
  if (hal <= VXR_HAL_MPS_MP) {
    VXRDbg_Log(kCheck, "%s", kHals[hal]);
  } else {
    VXRDbg_Log(kCheck, "\tHAL Type  = UNKNOWN %d\n", hal);
  }
}

void VXRDbg_DumpSysInfo(const VXR_SYSINFO *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("VXR_SYSINFO\n", caller);
  VXRDbg_Log(kCheck, "\tBoot Media Type     =%d\n", VxrGet32(record->BootMedia));
  DumpField("\tOriginal SystemPath =", record->SystemPath);
  DumpField("\tOriginal WindowsPath=", record->WindowsPath);
  VXRDbg_DumpSysOsInfo(&record->SysOs, caller);
}

void VXRDbg_DumpSysOsInfo(const VXR_SYSOSINFO *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("VXR_SYSOSINFO\n", caller);
  VXRDbg_Log(kCheck, "\tOS Version =0x%x:0x%x:Build=0x%x:ServPack:0x%x:0x%x\n", VxrGet32(record->MajorVersion),
             VxrGet32(record->MinorVersion), VxrGet32(record->BuildNumber), VxrGet32(record->ServicePackMajor),
             VxrGet32(record->ServicePackMinor));
  DumpPlatformProductSuite(VxrGet32(record->PlatformId), VxrGet32(record->ProductType), VxrGet32(record->SuiteMask));
  VXRDbg_Log(kCheck, "\tullTotalPhys= %I64u\n", VxrGet64(record->TotalPhys));
  VXRDbg_Log(kCheck,
             "\tdwPageSize= %08X\n\tdwNumberOfProcessors= %08X\n\tdwProcessorType= %08X\n\twProcessorLevel= %04X\n"
             "\twProcessorRevision= %04X\n\tProcessorArchitecture= %08X\n",
             VxrGet32(record->PageSize), VxrGet32(record->NumberOfProcessors), VxrGet32(record->ProcessorType),
             VxrGet32(record->ProcessorLevel), VxrGet32(record->ProcessorRevision),
             VxrGet32(record->ProcessorArchitecture));
  VXRDbg_Log(kCheck, "\n");
}

void VXRDbg_DumpNetInfo(const VXR_NETINFO *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("VXR_NETINFO\n", caller);
  DumpField("\tComputerName = ", record->ComputerName);
  DumpField("\tComputerNameNetBIOS = ", record->ComputerNameNetBIOS);
  DumpField("\tComputerNameDnsDomain = ", record->ComputerNameDnsDomain);
  DumpField("\tComputerNameDnsHostname = ", record->ComputerNameDnsHostname);
  DumpField("\tComputerNameDnsFullyQualified = ", record->ComputerNameDnsFullyQualified);
  DumpField("\tComputerNamePhysicalNetBIOS = ", record->ComputerNamePhysicalNetBIOS);
  DumpField("\tComputerNamePhysicalDnsDomain = ", record->ComputerNamePhysicalDnsDomain);
  DumpField("\tComputerNamePhysicalDnsHostname = ", record->ComputerNamePhysicalDnsHostname);
  DumpField("\tComputerNamePhysicalDnsFullyQualified = ", record->ComputerNamePhysicalDnsFullyQualified);
}

void VXRDbg_DumpVolumes(const VXR_VOLUMES *record, const char *caller) {
  if (record == nullptr) return;
  char title[48];
  std::snprintf(title, sizeof title, "VXR_VOLUMES:total %d vxr vols\n",
                static_cast<int32_t>(VxrGet32(record->VolCount)));
  DumpTitle(title, caller);
  const DWORD count = CappedCount(record->VolCount, VXR_MAX_VOLUMES);
  for (DWORD i = 0; i < count; ++i) VXRDbg_DumpVolume(&record->Vols[i], caller);
}

void VXRDbg_DumpVolume(const VXR_VOLUME *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("VXR_VOLUME\n", caller);
  VXRDbg_Log(kCheck, "\tSerial=0x%08X:Flags=0x%08x:MaxLen=%u:Label=%.*s:FileSystem=%.*s\n", VxrGet32(record->Serial),
             VxrGet32(record->Flags), VxrGet32(record->MaxLen), static_cast<int32_t>(sizeof record->Label),
             record->Label, static_cast<int32_t>(sizeof record->FileSystem), record->FileSystem);
  DumpField("\tMntPnt = ", record->MntPnt);
  DumpField("\tVolume = ", record->Volume);
  // From the field's first byte, so the length before the name shows as its first character.
  WCHAR device[sizeof record->Device / sizeof(WCHAR) + 1] = {};
  std::memcpy(device, record->Device, sizeof record->Device);
  VXRDbg_Log(kCheck, "\tDevice = %S\n", device);
  DumpField("\tBMName = ", record->BMName);
  VXRDbg_Log(kCheck, "\tUnique ID:%u bytes:", VxrGet32(record->UniqIdLen));
  DumpUniqueIdBytes(*record);
  VXRDbg_DumpVolDisks(&record->VolDisks, caller);
}

void VXRDbg_DumpVolDisks(const VXR_VOLDISKS *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("VXR_VOLDISKS:", caller);
  const DWORD count = CappedCount(record->DiskCount, VXR_MAX_VOLUME_DISKS);
  for (DWORD i = 0; i < count; ++i) VXRDbg_DumpVolDisk(&record->Disks[i], caller);
}

void VXRDbg_DumpVolDisk(const VXR_VOLDISK *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("VXR_VOLDISK:", caller);
  VXRDbg_DumpDevDrv(&record->DiskDriver, "DiskDriver");
  VXRDbg_DumpDevDrv(&record->BusEDriver, "BusEDriver");
  VXRDbg_DumpDevDrv(&record->CtrlDriver, "CtrlDriver");
  DISK_EXTENT extent{};
  extent.DiskNumber = VxrGet32(record->DiskExtent.DiskNumber);
  extent.StartingOffset.QuadPart = static_cast<LONG64>(VxrGet64(record->DiskExtent.StartingOffset));
  extent.ExtentLength.QuadPart = static_cast<LONG64>(VxrGet64(record->DiskExtent.ExtentLength));
  VXRDbg_DumpDiskExtent(&extent, "DiskExtent");
}

void VXRDbg_DumpDevDrv(const VXR_DEVDRV *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("VXR_DEVDRV\n", caller);
  VXRDbg_Log(kCheck, "\tDeviceType   = %x\n", VxrGet32(record->DeviceType));
  DumpField("\tInstanceID   = ", record->InstanceID);
  DumpField("\tManufacturer = ", record->Manufacturer);
  DumpField("\tDescription  = ", record->Description);
  DumpField("\tProviderName = ", record->ProviderName);
  VXRDbg_DumpService(&record->Service, caller);
  VXRDbg_DumpFileInfo(&record->ImgFile, caller);
  VXRDbg_DumpFileInfo(&record->InfFile, caller);
}

void VXRDbg_DumpService(const VXR_SERVICE *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("VXR_SERVICE\n", caller);
  DumpField("\tName  = ", record->Name);
  DumpField("\tImage = ", record->Image);
  DumpField("\tGroup = ", record->Group);
  VXRDbg_Log(kCheck, "\tTag   = 0x%08x\n", VxrGet32(record->Tag));
  VXRDbg_Log(kCheck, "\tType  = 0x%08x\n", VxrGet32(record->Type));
  VXRDbg_Log(kCheck, "\tStart = 0x%08x\n", VxrGet32(record->Start));
}

void VXRDbg_DumpFileInfo(const VXR_FILEINFO *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("VXR_FILEINFO\n", caller);
  DumpField("\tFileName = ", record->FileName);
  DumpField("\tFileVersion = ", record->FileVersion);
  DumpField("\tFileDescription = ", record->FileDescription);
  DumpField("\tCompanyName = ", record->CompanyName);
  DumpField("\tProductName = ", record->ProductName);
  DumpField("\tProductVersion= ", record->ProductVersion);
  VXRDbg_Log(kCheck, "\tFileSize = %I64u bytes\n", VxrGet64(record->FileSize));
  DumpRecordedTime("\tCreationTime", record->CreationTime);
  DumpRecordedTime("\tLastAccessTime", record->LastAccessTime);
  DumpRecordedTime("\tLastWriteTime", record->LastWriteTime);
}

void VXRDbg_DumpDriver(const VXR_DRIVER *record, const char *caller) {
  if (record == nullptr) return;
  if (caller != nullptr) DumpTitle("", caller);
  VXRDbg_Log(kCheck, "VXR_DRIVER [0x%08p]\n", record);
  if (record->pDrvInfoData != nullptr) {
    VXRDbg_DumpDrvInfo(record->pDrvInfoData, caller);
  } else {
    VXRDbg_Log(kCheck, "\tVXR_DRIVER:pDrvInfoData is NULL\n");
  }
  if (record->pDrvInfoDetailData != nullptr) {
    VXRDbg_DumpDrvInfoDetail(record->pDrvInfoDetailData, caller);
  } else {
    VXRDbg_Log(kCheck, "\tVXR_DRIVER:pDrvInfoDData is NULL\n");
  }
}

void VXRDbg_DumpDevices(const VXR_PARABLOCK *record, const char *caller) {
  if (record == nullptr) return;
  if (caller != nullptr) DumpTitle("", caller);
  for (DWORD i = 0; i < record->dwDevCnt && i < kMaxVxrDevices; ++i) {
    VXRDbg_Log(kCheck, "\n#### [%02d]:", i);
    VXRDbg_DumpDevice(record->pVXRDevices[i], nullptr);
  }
}

void VXRDbg_DumpDevice(const VXR_DEVICE *record, const char *caller) {
  if (record == nullptr) return;
  if (caller != nullptr) DumpTitle("", caller);
  VXRDbg_Log(kCheck, "VXR_DEVICE [0x%08p]\n", record);
  if (record->szInstanceID != nullptr) VXRDbg_Log(kCheck, "  szInstanceID =%s\n", record->szInstanceID);
  VXRDbg_Log(kCheck, "  guDevice = %s\n", FormatGuid(record->guDevice).text);
  VXRDbg_Log(kCheck, "  pVXRDriver=0x%08p\n  iBMDevIndex=0x%d\n  VXRDevType=0x%d\n  iDevEnum=0x%d\n  hDevInst=0x%08X\n",
             record->pVXRDriver, record->iBMDevIndex, record->VXRDevType, record->iDevEnum, record->hDevInst);
  VXRDbg_Log(kCheck, "  ##Parent Device Link List##\n");
  for (const VXR_DEVICE *device = record; device != nullptr; device = device->pVXRDevParent) {
    VXRDbg_Log(kCheck, "  0x%08p:", device);
    VXRDbg_Log(kCheck, "%s --> ", device->szInstanceID != nullptr ? device->szInstanceID : "N/A");
    VXRDbg_Log(kCheck, "0x%08p\n", device->pVXRDevParent);
  }
}

void VXRDbg_DumpFileMap(const VXR_FILEMAP *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("VXR_FILEMAP\n", caller);
  DumpField("\tFile = ", record->File);
  DumpField("\tName = ", record->Name);
  VXRDbg_Log(kCheck, "\tSize = %u\n", record->Size);
  VXRDbg_Log(kCheck, "\tStart= 0x%08X\n", LowHalf(record->Start));
  VXRDbg_Log(kCheck, "\tOffset= 0x%08X\n", record->Offset);
  VXRDbg_Log(kCheck, "\thFile = 0x%08p\n", record->hFile);
  VXRDbg_Log(kCheck, "\thMap  = 0x%08p\n", record->hMap);
  VXRDbg_Log(kCheck, "\tMapped= %s\n", TrueOrFalse(record->Mapped));
}
