// Dumps of values and of the platform's records into the log. Each writes nothing for a null record; the title line
// carries `caller` when it is not null. Lines are at level 3 unless the function says otherwise.
#pragma once

#include "platform/platform.h"

// `caller` null: named after this function.
void VXRDbg_DumpGuid(const GUID *guid, const char *caller);
// The name of a device registry property (SPDRP_...), padded to 33 characters; that of every code from 35 on is
// "SPDRP_UNKOWN_ERROR".
const char *VXRDbg_GetPropertyName(DWORD property);
// A registry value by its type, labelled with the property's name (from 36 on as an unknown property without a value).
// Reads nothing past `size` bytes of `data`, whatever is missing in them.
void VXRDbg_DumpRegValue(DWORD type, DWORD size, DWORD property, const void *data, const char *caller);
// The texts of a multi-string on numbered lines, at most `maximum` of them.
void VXRDbg_DumpMultiString(const char *texts, const char *caller, DWORD maximum);
// The bytes at level 0, 32 a line.
void VXRDbg_DumpMultiBinary(DWORD count, const void *data, const char *caller);
// `label` and " = " before the time, when given.
void VXRDbg_DumpSystemTime(const SYSTEMTIME *time, const char *label);
// The time in UTC, labelled with `caller` when given; "N/A" when it is no time.
void VXRDbg_DumpFileTime(const FILETIME *time, const char *caller);

// --- The platform's records ----------------------------------------------------------------------------------------

void VXRDbg_DumpStorageDeviceNumber(const STORAGE_DEVICE_NUMBER *record, const char *caller);
void VXRDbg_DumpDiskExtent(const DISK_EXTENT *record, const char *caller);
// Without a title of its own: each extent by the dump above.
void VXRDbg_DumpDiskExtents(const VOLUME_DISK_EXTENTS *record, const char *caller);
// The length and the bytes at level 0.
void VXRDbg_DumpUniqueId(const MOUNTDEV_UNIQUE_ID *record, const char *caller);
void VXRDbg_DumpOsVersionInfo(const OSVERSIONINFOEXA *record, const char *caller);
void VXRDbg_DumpMemoryStatus(const MEMORYSTATUSEX *record, const char *caller);
void VXRDbg_DumpSystemInfo(const SYSTEM_INFO *record, const char *caller);
void VXRDbg_DumpDrvInfo(const SP_DRVINFO_DATA_A *record, const char *caller);
void VXRDbg_DumpDrvInfoDetail(const SP_DRVINFO_DETAIL_DATA_A *record, const char *caller);
void VXRDbg_DumpDevInstallParams(const SP_DEVINSTALL_PARAMS_A *record, const char *caller);
void VXRDbg_DumpDevInfo(const SP_DEVINFO_DATA *record, const char *caller);
void VXRDbg_DumpInfContext(const INFCONTEXT *record, const char *caller);

// --- What dumpers of records are made of ---------------------------------------------------------------------------

// "CHECK:<caller>:<title>", or "CHECK:<title>" when `caller` is null. The title brings its own line end, if any.
void DumpTitle(const char *title, const char *caller);

// A GUID in upper-case hexadecimal, without braces: 36 characters and the terminator.
struct GuidText {
  char text[37];
};
GuidText FormatGuid(const GUID &guid);

// The platform, product and suite lines that two records share; the suite line has no line end.
void DumpPlatformProductSuite(DWORD platform, DWORD product, DWORD suite);
