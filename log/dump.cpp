#include "log/dump.h"

#include <cstdio>
#include <cstring>

#include "log/log.h"

namespace {

constexpr DWORD kUnknownProperty = 35;
constexpr SIZE_T kLineCapacity = 2048;  // no text of a line is longer
constexpr DWORD kBytesPerLine = 32;
constexpr DWORD kMaxListedTexts = 20;

// By property code; padded, so that the values of a log stand in one column.
constexpr const char *kPropertyNames[] = {
    "SPDRP_DEVICEDESC                 ", "SPDRP_HARDWAREID                 ", "SPDRP_COMPATIBLEIDS              ",
    "SPDRP_UNUSED0                    ", "SPDRP_SERVICE                    ", "SPDRP_UNUSED1                    ",
    "SPDRP_UNUSED2                    ", "SPDRP_CLASS                      ", "SPDRP_CLASSGUID                  ",
    "SPDRP_DRIVER                     ", "SPDRP_CONFIGFLAGS                ", "SPDRP_MFG                        ",
    "SPDRP_FRIENDLYNAME               ", "SPDRP_LOCATION_INFORMATION       ", "SPDRP_PHYSICAL_DEVICE_OBJECT_NAME",
    "SPDRP_CAPABILITIES               ", "SPDRP_UI_NUMBER                  ", "SPDRP_UPPERFILTERS               ",
    "SPDRP_LOWERFILTERS               ", "SPDRP_BUSTYPEGUID                ", "SPDRP_LEGACYBUSTYPE              ",
    "SPDRP_BUSNUMBER                  ", "SPDRP_ENUMERATOR_NAME            ", "SPDRP_SECURITY                   ",
    "SPDRP_SECURITY_SDS               ", "SPDRP_DEVTYPE                    ", "SPDRP_EXCLUSIVE                  ",
    "SPDRP_CHARACTERISTICS            ", "SPDRP_ADDRESS                    ", "SPDRP_UI_NUMBER_DESC_FORMAT      ",
    "SPDRP_DEVICE_POWER_DATA          ", "SPDRP_REMOVAL_POLICY             ", "SPDRP_REMOVAL_POLICY_HW_DEFAULT  ",
    "SPDRP_REMOVAL_POLICY_OVERRIDE    ", "SPDRP_INSTALL_STATE              ", "SPDRP_UNKOWN_ERROR               "};
static_assert(sizeof kPropertyNames / sizeof *kPropertyNames == kUnknownProperty + 1);

// The suite bits from 0x1 on.
constexpr const char *kSuiteNames[] = {
    " SMALLBUSINESS",     " ENTERPRISE", " BACKOFFICE",   " COMMUNICATIONS", " TERMINAL", " SMALLBUSINESS_RESTRICTED",
    " EMBEDDEDNT",        " DATACENTER", " SINGLEUSERTS", " PERSONAL",       " BLADE",    " EMBEDDED_RESTRICTED",
    " SECURITY_APPLIANCE"};

int32_t Precision(SIZE_T size) { return static_cast<int32_t>(size < kLineCapacity ? size : kLineCapacity); }

// The title of a list: what it is, and where in memory.
void DumpListTitle(const char *kind, const void *list, const char *caller) {
  if (caller != nullptr) {
    VXRDbg_Log(kCheck, "CHECK:%s:%s:%p\n", caller, kind, list);
  } else {
    VXRDbg_Log(kCheck, "CHECK:%s:%p\n", kind, list);
  }
}

// The texts of a multi-string that lies in `size` bytes, each on a numbered line.
void DumpTexts(const char *texts, SIZE_T size, const char *caller, DWORD maximum) {
  DumpListTitle("MultiString", texts, caller);
  for (DWORD number = 1; number <= maximum && size > 0 && *texts != '\0'; ++number) {
    const SIZE_T length = strnlen(texts, size);
    VXRDbg_Log(kCheck, "\t\t[(%d):%.*s]\n", number, Precision(length), texts);
    if (length == size) break;
    texts += length + 1;
    size -= length + 1;
  }
  VXRDbg_Log(kCheck, "\n");
}

// A number of up to 8 bytes from data that may hold fewer, at any address.
DWORD64 ReadNumber(const void *data, DWORD size, DWORD wanted) {
  DWORD64 number = 0;
  std::memcpy(&number, data, size < wanted ? size : wanted);
  return number;
}

void DumpWideText(const void *data, DWORD size) {
  WCHAR text[kLineCapacity] = {};
  const SIZE_T capacity = sizeof text - sizeof *text;
  std::memcpy(text, data, size < capacity ? size & ~1u : capacity);
  VXRDbg_Log(kCheck, "REG_LINK\t%S\n", text);
}

}  // namespace

GuidText FormatGuid(const GUID &guid) {
  GuidText text;
  const BYTE *tail = guid.Data4;
  std::snprintf(text.text, sizeof text.text, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                static_cast<unsigned>(guid.Data1), guid.Data2, guid.Data3, tail[0], tail[1], tail[2], tail[3], tail[4],
                tail[5], tail[6], tail[7]);
  return text;
}

void DumpTitle(const char *title, const char *caller) {
  if (caller != nullptr) {
    VXRDbg_Log(kCheck, "CHECK:%s:%s", caller, title);
  } else {
    VXRDbg_Log(kCheck, "CHECK:%s", title);
  }
}

void VXRDbg_DumpGuid(const GUID *guid, const char *caller) {
  if (guid == nullptr) return;
  VXRDbg_Log(kCheck, "CHECK:%s:[%p]=%s\n", caller != nullptr ? caller : "VXRDbg_DumpGuid", guid,
             FormatGuid(*guid).text);
}

const char *VXRDbg_GetPropertyName(DWORD property) {
  return kPropertyNames[property < kUnknownProperty ? property : kUnknownProperty];
}

void VXRDbg_DumpRegValue(DWORD type, DWORD size, DWORD property, const void *data, const char *caller) {
  if (data == nullptr || size == 0) return;
  if (property > kUnknownProperty) {
    type = REG_NONE;
    size = 0;
  }
  if (caller != nullptr) {
    VXRDbg_Log(kCheck, "CHECK:%s:%s:", caller, VXRDbg_GetPropertyName(property));
  } else {
    VXRDbg_Log(kCheck, "CHECK:%s:", VXRDbg_GetPropertyName(property));
  }
  const char *text = static_cast<const char *>(data);
  switch (type) {
    case REG_NONE:
      VXRDbg_Log(kCheck, "REG_NONE\n");
      break;
    case REG_SZ:
      VXRDbg_Log(kCheck, "REG_SZ\t%.*s\n", Precision(size), text);
      break;
    case REG_BINARY:
      VXRDbg_DumpMultiBinary(size, data, "REG_BINARY\t");
      break;
    case REG_DWORD:
      VXRDbg_Log(kCheck, "REG_DWORD\t%08X\n", static_cast<DWORD>(ReadNumber(data, size, 4)));
      break;
    case REG_LINK:
      DumpWideText(data, size);
      break;
    case REG_MULTI_SZ:
      DumpTexts(text, size, "REG_MULTI_SZ\t", kMaxListedTexts);
      break;
    case REG_QWORD: {
      const DWORD64 number = ReadNumber(data, size, 8);
      VXRDbg_Log(kCheck, "REG_QWORD\t%08X%08X\n", static_cast<DWORD>(number >> 32), static_cast<DWORD>(number));
      break;
    }
    default:
      VXRDbg_Log(kCheck, "Unsupported data type!\n");
  }
}

void VXRDbg_DumpMultiString(const char *texts, const char *caller, DWORD maximum) {
  if (texts != nullptr) DumpTexts(texts, PTRDIFF_MAX, caller, maximum);
}

void VXRDbg_DumpMultiBinary(DWORD count, const void *data, const char *caller) {
  if (data == nullptr) return;
  DumpListTitle("MultiBinary", data, caller);
  const BYTE *bytes = static_cast<const BYTE *>(data);
  for (DWORD i = 0; i < count; ++i) {
    VXRDbg_Log(kError, "%02X ", bytes[i]);
    if ((i + 1) % kBytesPerLine == 0) VXRDbg_Log(kError, "\n");
  }
  VXRDbg_Log(kError, "\n");
}

void VXRDbg_DumpSystemTime(const SYSTEMTIME *time, const char *label) {
  if (time == nullptr) return;
  if (label != nullptr) VXRDbg_Log(kCheck, "%s = ", label);
  VXRDbg_Log(kCheck, "%02d/%02d/%02d-%02d:%02d:%02d\n", time->wYear, time->wMonth, time->wDay, time->wHour,
             time->wMinute, time->wSecond);
}

void VXRDbg_DumpFileTime(const FILETIME *time, const char *caller) {
  if (time == nullptr) return;
  SYSTEMTIME converted{};
  if (platform::FileTimeToSystemTime(time, &converted)) {
    VXRDbg_DumpSystemTime(&converted, caller);
  } else if (caller != nullptr) {
    VXRDbg_Log(kCheck, "CHECK:%s:N/A\n", caller);
  } else {
    VXRDbg_Log(kCheck, "N/A\n");
  }
}

void VXRDbg_DumpStorageDeviceNumber(const STORAGE_DEVICE_NUMBER *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("STORAGE_DEVICE_NUMBER:", caller);
  VXRDbg_Log(kCheck, "DeviceType =%08X:DeviceNumber =%02u:PartitionNumber =%02u\n", record->DeviceType,
             record->DeviceNumber, record->PartitionNumber);
}

void VXRDbg_DumpDiskExtent(const DISK_EXTENT *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("DISK_EXTENT:", caller);
  VXRDbg_Log(kCheck, "\tdisk #%d:start=%0I64u:len=%0I64u\n", record->DiskNumber, record->StartingOffset.QuadPart,
             record->ExtentLength.QuadPart);
}

void VXRDbg_DumpDiskExtents(const VOLUME_DISK_EXTENTS *record, const char *caller) {
  if (record == nullptr) return;
  const DISK_EXTENT *extents = record->Extents;
  for (DWORD i = 0; i < record->NumberOfDiskExtents; ++i) VXRDbg_DumpDiskExtent(&extents[i], caller);
}

void VXRDbg_DumpUniqueId(const MOUNTDEV_UNIQUE_ID *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("MOUNTDEV_UNIQUE_ID:", caller);
  VXRDbg_Log(kError, "Length = %d:", record->UniqueIdLength);
  const BYTE *bytes = record->UniqueId;
  for (DWORD i = 0; i < record->UniqueIdLength; ++i) VXRDbg_Log(kError, "%02X", bytes[i]);
  VXRDbg_Log(kError, "\n");
}

void DumpPlatformProductSuite(DWORD platform, DWORD product, DWORD suite) {
  constexpr const char *kPlatforms[] = {" PLATFORM_WIN32s\n", " PLATFORM_WIN32_WINDOWS\n", " PLATFORM_WIN32_NT\n"};
  constexpr const char *kProducts[] = {"", " WORKSTATION\n", " DOMAIN_CONTROLLER\n", " SERVER\n"};
  VXRDbg_Log(kCheck, "\tPlaftform ID = 0x%x:", platform);
  if (platform < 3) VXRDbg_Log(kCheck, "%s", kPlatforms[platform]);
  VXRDbg_Log(kCheck, "\tProduct Type = 0x%x:", product);
  if (product > 0 && product < 4) VXRDbg_Log(kCheck, "%s", kProducts[product]);
  VXRDbg_Log(kCheck, "\tSuite Masks = 0x%x:", suite);
  DWORD bit = 1;
  for (const char *name : kSuiteNames) {
    if (suite & bit) VXRDbg_Log(kCheck, "%s", name);
    bit <<= 1;
  }
}

void VXRDbg_DumpOsVersionInfo(const OSVERSIONINFOEXA *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("OSVERSIONINFOEX\n", caller);
  VXRDbg_Log(kCheck, "\tOS Major=0x%x:OS Minor=0x%x:Build=0x%x\n", record->dwMajorVersion, record->dwMinorVersion,
             record->dwBuildNumber);
  VXRDbg_Log(kCheck, "\t%.*s:SrvPack Major=0x%x:SrvPack Minor=0x%x\n", Precision(sizeof record->szCSDVersion),
             record->szCSDVersion, record->wServicePackMajor, record->wServicePackMinor);
  DumpPlatformProductSuite(record->dwPlatformId, record->wProductType, record->wSuiteMask);
  VXRDbg_Log(kCheck, "\n");
}

void VXRDbg_DumpMemoryStatus(const MEMORYSTATUSEX *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("MEMORYSTATUSEX:\n", caller);
  VXRDbg_Log(kCheck,
             "\tdwMemoryLoad= %u \n\tullTotalPhys= %I64u\n\tullAvailPhys= %I64u\n\tullTotalPageFile= %I64u\n"
             "\tullAvailPageFile= %I64u\n\tullTotalVirtual= %I64u\n\tullAvailVirtual= %I64u\n"
             "\tullAvailExtendedVirtual= %I64u\n",
             record->dwMemoryLoad, record->ullTotalPhys, record->ullAvailPhys, record->ullTotalPageFile,
             record->ullAvailPageFile, record->ullTotalVirtual, record->ullAvailVirtual,
             record->ullAvailExtendedVirtual);
}

void VXRDbg_DumpSystemInfo(const SYSTEM_INFO *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("SYSTEM_INFO:\n", caller);
  VXRDbg_Log(kCheck,
             "\tdwOemId = %08X\n\twProcessorArchitecture= %04X\n\twReserved= %04X\n\tdwPageSize= %08X\n"
             "\tlpMinimumApplicationAddress= %08p\n\tlpMaximumApplicationAddress= %08p\n"
             "\tdwActiveProcessorMask= %08X\n\tdwNumberOfProcessors= %08X\n\tdwProcessorType= %08X\n"
             "\tdwAllocationGranularity= %08X\n\twProcessorLevel= %04X\n\twProcessorRevision= %04X\n",
             record->dwOemId, record->wProcessorArchitecture, record->wReserved, record->dwPageSize,
             record->lpMinimumApplicationAddress, record->lpMaximumApplicationAddress,
             static_cast<DWORD>(record->dwActiveProcessorMask), record->dwNumberOfProcessors, record->dwProcessorType,
             record->dwAllocationGranularity, record->wProcessorLevel, record->wProcessorRevision);
}

void VXRDbg_DumpDrvInfo(const SP_DRVINFO_DATA_A *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("SP_DRVINFO_DATA:\n", caller);
  const int32_t width = Precision(LINE_LEN);
  VXRDbg_Log(kCheck, "\tDriverType   = %x\n\tManufacturer = %.*s\n\tDescription  = %.*s\n\tProviderName =%.*s\n",
             record->DriverType, width, record->MfgName, width, record->Description, width, record->ProviderName);
}

void VXRDbg_DumpDrvInfoDetail(const SP_DRVINFO_DETAIL_DATA_A *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle(caller != nullptr ? "SP_DRVINFO_DETAIL_DATA:\n\tInfDate=" : "SP_DRVINFO_DETAIL_DATA:\n\tInfDate = ",
            caller);
  VXRDbg_DumpFileTime(&record->InfDate, nullptr);
  VXRDbg_Log(kCheck,
             "\tSectionName     = %.*s\n\tInfFileName     = %.*s\n\tDrvDescription  = %.*s\n"
             "\tHardwareID Ptr  = 0x%08x\n\tCompatIDsOffset = 0x%08x\n\tCompatIDsLength = %u\n",
             Precision(sizeof record->SectionName), record->SectionName, Precision(sizeof record->InfFileName),
             record->InfFileName, Precision(sizeof record->DrvDescription), record->DrvDescription,
             LowHalf(record->HardwareID), record->CompatIDsOffset, record->CompatIDsLength);
  DumpTitle("HardwareID String:", caller);
  VXRDbg_DumpMultiString(record->HardwareID, "\t", kMaxListedTexts);
}

void VXRDbg_DumpDevInstallParams(const SP_DEVINSTALL_PARAMS_A *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("SP_DEVINSTALL_PARAMS:", caller);
  VXRDbg_Log(kCheck, "size=%u:Flags=0x%08X:FlagsEx=0x%08x:DriverPath=%.*s\n", record->cbSize, record->Flags,
             record->FlagsEx, Precision(sizeof record->DriverPath), record->DriverPath);
}

void VXRDbg_DumpDevInfo(const SP_DEVINFO_DATA *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("SP_DEVINFO_DATA:", caller);
  VXRDbg_Log(kCheck, "DevInst=0x%08X:Reserved=%08X:GUID= %s:", record->DevInst, static_cast<DWORD>(record->Reserved),
             FormatGuid(record->ClassGuid).text);
}

void VXRDbg_DumpInfContext(const INFCONTEXT *record, const char *caller) {
  if (record == nullptr) return;
  DumpTitle("INFCONTEXT:", caller);
  VXRDbg_Log(kCheck, "CurInf=0x%08p:Inf=0x%08p:Line=%03u:Sect=%03u\n", record->CurrentInf, record->Inf, record->Line,
             record->Section);
}
