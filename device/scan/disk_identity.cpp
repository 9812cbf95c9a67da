#include "device/scan/disk_identity.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "device/records.h"
#include "engine/base/strings.h"
#include "log/dump.h"
#include "log/log.h"

namespace {

constexpr SIZE_T kDiskNameSize = 64;
constexpr SIZE_T kDevicePathPrefix = 4;  // "\\?\"

constexpr GUID kDiskInterface = {0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};

using InterfaceDetail = HeapPtr<SP_DEVICE_INTERFACE_DETAIL_DATA_A>;

enum class Search { kGoOn, kEnd };

// Reads the path of one interface into `detail`; it stays null when there is none to compare.
Search ReadInterfaceDetail(HDEVINFO set, SP_DEVICE_INTERFACE_DATA *interfaceData, InterfaceDetail *detail,
                           const char *caller) {
  DWORD size = 0;
  platform::SetupDiGetDeviceInterfaceDetailA(set, interfaceData, nullptr, 0, &size, nullptr);
  if (size == 0) {
    VXRDbg_Log(kError, "ERROR:%s:SetupDiGetDeviceInterfaceDetail() faield to get size!ec=0x%08x\n", caller,
               platform::GetLastError());
    return Search::kGoOn;
  }
  // Never less than the fixed part, whose size field is set below.
  size = std::max<DWORD>(size, sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A));
  detail->reset(reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A *>(AllocTextUnlogged(size).release()));
  if (*detail == nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:AllocHeap(%d bytes) faield for pDevIntfDetailData!ec=0x%08x\n", caller, size,
               platform::GetLastError());
    return Search::kEnd;
  }
  (*detail)->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);
  SP_DEVINFO_DATA device = {};
  device.cbSize = sizeof(device);
  if (!platform::SetupDiGetDeviceInterfaceDetailA(set, interfaceData, detail->get(), size, nullptr, &device)) {
    VXRDbg_Log(kError, "ERROR:%s:SetupDiGetDeviceInterfaceDetail() faield!ec=0x%08x\n", caller,
               platform::GetLastError());
    detail->reset();
    return Search::kEnd;
  }
  return Search::kGoOn;
}

// The storage device number of `name`, a failure logged with the disk's name; there the number is the system error
// code.
BOOL ReadDeviceNumber(const char *name, const char *disk, STORAGE_DEVICE_NUMBER *number, const char *caller) {
  if (VXRDev_GetStoragetDeviceNumber(name, number)) return TRUE;
  VXRDbg_Log(kError, "ERROR:%s:VXRDev_GetStoragetDeviceNumber(%s) failed!%d\n", caller, disk, platform::GetLastError());
  return FALSE;
}

HeapText CopyText(const char *text, const char *purpose, const char *caller) {
  const SIZE_T size = std::strlen(text) + 1;
  HeapText copy = AllocText(size, purpose, caller);
  if (copy != nullptr) std::memcpy(copy.get(), text, size);
  return copy;
}

// Whether the disk behind the path has the device number sought; ends the search when that cannot be told.
Search CompareDevice(const char *path, DWORD index, const char *disk, DWORD sought, bool *same, const char *caller) {
  STORAGE_DEVICE_NUMBER number = {};
  if (!ReadDeviceNumber(path, disk, &number, caller)) return Search::kEnd;
  *same = number.DeviceNumber == sought;
  if (*same) {
    VXRDbg_Log(kCheck, "CHECK:%s:found matched devic at iEnum=%d\n", caller, index + 1);
    VXRDbg_DumpStorageDeviceNumber(&number, caller);
    return Search::kEnd;
  }
  VXRDbg_Log(kFlush, "FLUSH:%s:NOT THIS DISK!iEnum=%d:In =%d:%s\n", caller, index + 1, sought, disk);
  VXRDbg_Log(kFlush, "FLUSH:%s:NOT THIS DISK!iEnum=%d:Out=%d:%s\n", caller, index + 1, number.DeviceNumber, path);
  return Search::kGoOn;
}

// The disk's name or, without one, the name of the disk with that number. FALSE, after logging, when it is too long.
BOOL FormDiskName(const char *disk, DWORD number, char (&name)[kDiskNameSize], const char *caller) {
  const int length = disk == nullptr
                         ? std::snprintf(name, sizeof(name), "\\\\.\\PhysicalDrive%u", static_cast<unsigned>(number))
                         : std::snprintf(name, sizeof(name), "%s", disk);
  if (length >= 0 && static_cast<SIZE_T>(length) < sizeof(name)) return TRUE;
  VXRDbg_Log(kError, "ERROR:%s:disk name has %d characters, at most %u are possible, correct the job's Disk:%s\n",
             caller, length, static_cast<DWORD>(sizeof(name) - 1), disk);
  return FALSE;
}

// Cuts the interface GUID and the "#" before it off the path. FALSE, after logging, when there is none to cut.
BOOL CutInterfaceGuid(char *path, const char *caller) {
  char *brace = VXREng_StrChr(path, '{');
  if (brace == nullptr || brace == path) {
    VXRDbg_Log(kError, "ERROR:%s: szStr=%p:szInstID=%p:failed to remove {\n", caller, brace, path);
    return FALSE;
  }
  brace[-1] = '\0';
  VXRDbg_Log(kCheck, "CHECK:%s:fixed to:%s...\n", caller, path);
  return TRUE;
}

// Turns "#" into backslashes, drops the device path prefix, and lowers the case. FALSE, after logging, when nothing
// would remain: an empty id would be the beginning of every device's.
BOOL StripPrefix(char *path, const char *caller) {
  VXREng_FixStr('#', '\\', path);
  const SIZE_T length = std::strlen(path);
  if (length <= kDevicePathPrefix) {
    VXRDbg_Log(kError, "ERROR:%s:interface path holds no instance id:%s\n", caller, path);
    return FALSE;
  }
  std::memmove(path, path + kDevicePathPrefix, length - kDevicePathPrefix + 1);
  VXRDbg_Log(kCheck, "CHECK:%s:fixed to:%s...\n", caller, path);
  VXREng_StrLwr(path);
  return TRUE;
}

// An interface path has "#" for a slash as well as for a backslash. An id has no backslash from "ven_" to "rev_", so
// what became one there was a slash.
void FixProductName(char *id, const char *caller) {
  char *vendor = FindText(id, "ven_");
  char *revision = FindText(id, "rev_");
  if (vendor == nullptr || revision == nullptr) return;
  VXRDbg_Log(kCheck, "CHECK:%s:validating %s from %p to %p...\n", caller, id, vendor, revision);
  for (char *at = VXREng_StrChr(vendor, '\\'); at != nullptr && at < revision; at = VXREng_StrChr(at, '\\')) {
    *at = '/';
    VXRDbg_Log(kCheck, "CHECK:%s:fixed to %s at %p...\n", caller, id, at);
  }
  VXRDbg_Log(kCheck, "CHECK:%s:fixed to:%s...\n", caller, id);
}

}  // namespace

HeapText VXRDev_GetDiskInstanceID(const char *szDisk, DWORD diskNumber) {
  const CallTrace trace = TraceCall();
  char disk[kDiskNameSize] = {};
  if (!FormDiskName(szDisk, diskNumber, disk, __func__)) return nullptr;
  VXRDbg_Log(kCheck, "CHECK:%s:checking disk %s...\n", __func__, disk);
  HeapText id = VXRDev_GetDiskDevicePath(disk);
  if (id == nullptr) {
    LogFailure("VXRDev_GetDiskDevicePath", disk);
    return nullptr;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:disk %s:retireved device path as:%s...\n", __func__, disk, id.get());
  if (!CutInterfaceGuid(id.get(), __func__) || !StripPrefix(id.get(), __func__)) return nullptr;
  FixProductName(id.get(), __func__);
  VXRDbg_Log(kCheck, "CHECK:%s:disk #%d:%s:dev instid:%s\n", __func__, diskNumber, disk, id.get());
  return id;
}

HeapText VXRDev_GetDiskDevicePath(const char *szDisk) {
  const CallTrace trace = TraceCall();
  STORAGE_DEVICE_NUMBER sought = {};
  if (!ReadDeviceNumber(szDisk, szDisk, &sought, __func__)) return nullptr;
  VXRDbg_DumpStorageDeviceNumber(&sought, __func__);
  const HDEVINFO handle =
      platform::SetupDiGetClassDevsA(&kDiskInterface, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  if (handle == INVALID_HANDLE_VALUE) {
    VXRDbg_Log(kError, "ERROR:%s:SetupDiGetClassDevs() failed!ec=0x%08x\n", __func__, platform::GetLastError());
    return nullptr;
  }
  const DeviceSet set(handle);
  SP_DEVICE_INTERFACE_DATA interfaceData = {};
  interfaceData.cbSize = sizeof(interfaceData);
  for (DWORD i = 0; platform::SetupDiEnumDeviceInterfaces(set.get(), nullptr, &kDiskInterface, i, &interfaceData);
       ++i) {
    InterfaceDetail detail;
    if (ReadInterfaceDetail(set.get(), &interfaceData, &detail, __func__) == Search::kEnd) return nullptr;
    if (detail == nullptr) continue;
    const char *path = detail->DevicePath;
    bool same = false;
    const Search next = CompareDevice(path, i, szDisk, sought.DeviceNumber, &same, __func__);
    if (same) return CopyText(path, "szDevicePath", __func__);
    if (next == Search::kEnd) return nullptr;
  }
  return nullptr;
}

BOOL VXRDev_GetStoragetDeviceNumber(const char *szDeviceName, STORAGE_DEVICE_NUMBER *number) {
  const CallTrace trace = TraceCall();
  if (szDeviceName == nullptr) {
    LogNull("szDeviceName");
    return FALSE;
  }
  // No access rights: the question needs none, and a disk in use can still be asked.
  const HANDLE device =
      platform::CreateFileA(szDeviceName, 0, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (device == INVALID_HANDLE_VALUE) {
    VXRDbg_Log(kError, "ERROR:%s:CreateFile(%s) faield!ec=0x%08x\n", __func__, szDeviceName, platform::GetLastError());
    return FALSE;
  }
  *number = {};
  DWORD returned = 0;
  const BOOL answered = platform::DeviceIoControl(device, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, number,
                                                  sizeof(*number), &returned, nullptr);
  if (!answered) {
    VXRDbg_Log(kError, "ERROR:%s:DeviceIoControl(IOCTL_STORAGE_GET_DEVICE_NUMBER:hDevice=%p) faield!ec=0x%08x\n",
               __func__, device, platform::GetLastError());
  }
  platform::CloseHandle(device);
  return answered;
}
