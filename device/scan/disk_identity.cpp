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
                           const Caller &trace) {
  DWORD size = 0;
  platform::SetupDiGetDeviceInterfaceDetailA(set, interfaceData, nullptr, 0, &size, nullptr);
  if (size == 0) {
    trace.Error("SetupDiGetDeviceInterfaceDetail() faield to get size!ec=0x%08x\n", platform::GetLastError());
    return Search::kGoOn;
  }
  // Never less than the fixed part, whose size field is set below.
  size = std::max<DWORD>(size, sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A));
  detail->reset(reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A *>(AllocTextUnlogged(size).release()));
  if (*detail == nullptr) {
    trace.Error("AllocHeap(%d bytes) faield for pDevIntfDetailData!ec=0x%08x\n", size, platform::GetLastError());
    return Search::kEnd;
  }
  (*detail)->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);
  SP_DEVINFO_DATA device = {};
  device.cbSize = sizeof(device);
  if (!platform::SetupDiGetDeviceInterfaceDetailA(set, interfaceData, detail->get(), size, nullptr, &device)) {
    trace.Error("SetupDiGetDeviceInterfaceDetail() faield!ec=0x%08x\n", platform::GetLastError());
    detail->reset();
    return Search::kEnd;
  }
  return Search::kGoOn;
}

// The storage device number of `name`, a failure logged with the disk's name; there the number is the system error
// code.
BOOL ReadDeviceNumber(const char *name, const char *disk, STORAGE_DEVICE_NUMBER *number, const Caller &trace) {
  if (VXRDev_GetStoragetDeviceNumber(name, number)) return TRUE;
  trace.Error("VXRDev_GetStoragetDeviceNumber(%s) failed!%d\n", disk, platform::GetLastError());
  return FALSE;
}

HeapText CopyText(const char *text, const char *purpose, const Caller &trace) {
  const SIZE_T size = std::strlen(text) + 1;
  HeapText copy = AllocText(size, purpose, trace);
  if (copy != nullptr) std::memcpy(copy.get(), text, size);
  return copy;
}

// Whether the disk behind the path has the device number sought; ends the search when that cannot be told.
Search CompareDevice(const char *path, DWORD index, const char *disk, DWORD sought, bool *same, const Caller &trace) {
  STORAGE_DEVICE_NUMBER number = {};
  if (!ReadDeviceNumber(path, disk, &number, trace)) return Search::kEnd;
  *same = number.DeviceNumber == sought;
  if (*same) {
    trace.Check("found matched devic at iEnum=%d\n", index + 1);
    VXRDbg_DumpStorageDeviceNumber(&number, trace.name);
    return Search::kEnd;
  }
  trace.Flush("NOT THIS DISK!iEnum=%d:In =%d:%s\n", index + 1, sought, disk);
  trace.Flush("NOT THIS DISK!iEnum=%d:Out=%d:%s\n", index + 1, number.DeviceNumber, path);
  return Search::kGoOn;
}

// The disk's name or, without one, the name of the disk with that number. FALSE, after logging, when it is too long.
BOOL FormDiskName(const char *disk, DWORD number, char (&name)[kDiskNameSize], const Caller &trace) {
  const int length = disk == nullptr
                         ? std::snprintf(name, sizeof(name), "\\\\.\\PhysicalDrive%u", static_cast<unsigned>(number))
                         : std::snprintf(name, sizeof(name), "%s", disk);
  if (length >= 0 && static_cast<SIZE_T>(length) < sizeof(name)) return TRUE;
  trace.Error("disk name has %d characters, at most %u are possible, correct the job's Disk:%s\n", length,
              static_cast<DWORD>(sizeof(name) - 1), disk);
  return FALSE;
}

// Cuts the interface GUID and the "#" before it off the path. FALSE, after logging, when there is none to cut.
BOOL CutInterfaceGuid(char *path, const Caller &trace) {
  char *brace = VXREng_StrChr(path, '{');
  if (brace == nullptr || brace == path) {
    trace.Error(" szStr=%p:szInstID=%p:failed to remove {\n", brace, path);
    return FALSE;
  }
  brace[-1] = '\0';
  trace.Check("fixed to:%s...\n", path);
  return TRUE;
}

// Turns "#" into backslashes, drops the device path prefix, and lowers the case. FALSE, after logging, when nothing
// would remain: an empty id would be the beginning of every device's.
BOOL StripPrefix(char *path, const Caller &trace) {
  VXREng_FixStr('#', '\\', path);
  const SIZE_T length = std::strlen(path);
  if (length <= kDevicePathPrefix) {
    trace.Error("interface path holds no instance id:%s\n", path);
    return FALSE;
  }
  std::memmove(path, path + kDevicePathPrefix, length - kDevicePathPrefix + 1);
  trace.Check("fixed to:%s...\n", path);
  VXREng_StrLwr(path);
  return TRUE;
}

// An interface path has "#" for a slash as well as for a backslash. An id has no backslash from "ven_" to "rev_", so
// what became one there was a slash.
void FixProductName(char *id, const Caller &trace) {
  char *vendor = FindText(id, "ven_");
  char *revision = FindText(id, "rev_");
  if (vendor == nullptr || revision == nullptr) return;
  trace.Check("validating %s from %p to %p...\n", id, vendor, revision);
  for (char *at = VXREng_StrChr(vendor, '\\'); at != nullptr && at < revision; at = VXREng_StrChr(at, '\\')) {
    *at = '/';
    trace.Check("fixed to %s at %p...\n", id, at);
  }
  trace.Check("fixed to:%s...\n", id);
}

}  // namespace

HeapText VXRDev_GetDiskInstanceID(const char *szDisk, DWORD diskNumber) {
  const CallTrace trace = TraceCall();
  char disk[kDiskNameSize] = {};
  if (!FormDiskName(szDisk, diskNumber, disk, trace)) return nullptr;
  trace.Check("checking disk %s...\n", disk);
  HeapText id = VXRDev_GetDiskDevicePath(disk);
  if (id == nullptr) {
    trace.Failed("VXRDev_GetDiskDevicePath", disk);
    return nullptr;
  }
  trace.Check("disk %s:retireved device path as:%s...\n", disk, id.get());
  if (!CutInterfaceGuid(id.get(), trace) || !StripPrefix(id.get(), trace)) return nullptr;
  FixProductName(id.get(), trace);
  trace.Check("disk #%d:%s:dev instid:%s\n", diskNumber, disk, id.get());
  return id;
}

HeapText VXRDev_GetDiskDevicePath(const char *szDisk) {
  const CallTrace trace = TraceCall();
  STORAGE_DEVICE_NUMBER sought = {};
  if (!ReadDeviceNumber(szDisk, szDisk, &sought, trace)) return nullptr;
  VXRDbg_DumpStorageDeviceNumber(&sought, trace.name);
  const HDEVINFO handle =
      platform::SetupDiGetClassDevsA(&kDiskInterface, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  if (handle == INVALID_HANDLE_VALUE) {
    trace.Error("SetupDiGetClassDevs() failed!ec=0x%08x\n", platform::GetLastError());
    return nullptr;
  }
  const DeviceSet set(handle);
  SP_DEVICE_INTERFACE_DATA interfaceData = {};
  interfaceData.cbSize = sizeof(interfaceData);
  for (DWORD i = 0; platform::SetupDiEnumDeviceInterfaces(set.get(), nullptr, &kDiskInterface, i, &interfaceData);
       ++i) {
    InterfaceDetail detail;
    if (ReadInterfaceDetail(set.get(), &interfaceData, &detail, trace) == Search::kEnd) return nullptr;
    if (detail == nullptr) continue;
    const char *path = detail->DevicePath;
    bool same = false;
    const Search next = CompareDevice(path, i, szDisk, sought.DeviceNumber, &same, trace);
    if (same) return CopyText(path, "szDevicePath", trace);
    if (next == Search::kEnd) return nullptr;
  }
  return nullptr;
}

BOOL VXRDev_GetStoragetDeviceNumber(const char *szDeviceName, STORAGE_DEVICE_NUMBER *number) {
  const CallTrace trace = TraceCall();
  if (szDeviceName == nullptr) {
    trace.Null("szDeviceName");
    return FALSE;
  }
  // No access rights: the question needs none, and a disk in use can still be asked.
  const HANDLE device =
      platform::CreateFileA(szDeviceName, 0, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (device == INVALID_HANDLE_VALUE) {
    trace.Error("CreateFile(%s) faield!ec=0x%08x\n", szDeviceName, platform::GetLastError());
    return FALSE;
  }
  *number = {};
  DWORD returned = 0;
  const BOOL answered = platform::DeviceIoControl(device, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, number,
                                                  sizeof(*number), &returned, nullptr);
  if (!answered) {
    trace.Error("DeviceIoControl(IOCTL_STORAGE_GET_DEVICE_NUMBER:hDevice=%p) faield!ec=0x%08x\n", device,
                platform::GetLastError());
  }
  platform::CloseHandle(device);
  return answered;
}
