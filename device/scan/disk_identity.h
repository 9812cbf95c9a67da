// Which present device a disk is: from its device name to its instance id.
#pragma once

#include "log/heap.h"

// Lower-case instance id of a disk by name (at most 63 characters), or by number when the name is null; null, after
// logging, when no present disk has it or its interface path is not of the usual form.
HeapText VXRDev_GetDiskInstanceID(const char *szDisk, DWORD diskNumber);
// Interface path of the present disk with the named device's storage device number; null when none has it (logged, but
// for a list that ends without a match).
HeapText VXRDev_GetDiskDevicePath(const char *szDisk);
// The storage device number of a disk or of a device interface path. FALSE, after logging, with `*number` undefined.
BOOL VXRDev_GetStoragetDeviceNumber(const char *szDeviceName, STORAGE_DEVICE_NUMBER *number);
