// Requests to disks.
#include <cstring>

#include "platform/machine/fault.h"
#include "platform/machine/handles.h"

namespace platform {

// Windows answers with partition 0 for a whole disk.
BOOL DeviceIoControl(HANDLE device, DWORD code, void *, DWORD, void *out, DWORD outSize, DWORD *returned, void *) {
  VXR_FAULT(FALSE, ERROR_GEN_FAILURE);
  if (returned != nullptr) *returned = 0;
  const machine::HandleRecord *record = machine::FindHandle(device);
  if (record == nullptr) return FALSE;
  const auto *disk = std::get_if<machine::DiskHandle>(record);
  if (disk == nullptr || code != IOCTL_STORAGE_GET_DEVICE_NUMBER) {
    SetLastError(ERROR_INVALID_FUNCTION);
    return FALSE;
  }
  if (out == nullptr || outSize < sizeof(STORAGE_DEVICE_NUMBER)) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  const STORAGE_DEVICE_NUMBER number = {FILE_DEVICE_DISK, disk->number, 0};
  std::memcpy(out, &number, sizeof number);
  if (returned != nullptr) *returned = sizeof(STORAGE_DEVICE_NUMBER);
  return TRUE;
}

}  // namespace platform
