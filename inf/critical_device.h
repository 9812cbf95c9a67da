// Registration of a found driver in the restored system's critical-device database: what lets that system start its
// controller before it has ever seen it.
#pragma once

#include "vxr/device.h"

// Registers the driver for the device, which must still be at its position among the present devices of its class. TRUE
// when the entry was written. Every failure is logged; nothing written is taken back.
BOOL VXRDev_PostGetDriver(VXR_DRIVER *pVXRDriver, VXR_DEVICE *pVXRDevice);

// Writes "ClassGUID", then "Service", into the entry named after the model line's hardware id, or after the id that
// matched when the line has none. The service is the INF file's, or the one that the running system has for the device
// (`hDevInfo`, `pDevInfoData`). FALSE, with nothing written, when there is no name for the entry or no service.
BOOL VXRDev_CreateRegCRCDB(const GUID *classGuid, HDEVINFO hDevInfo, SP_DEVINFO_DATA *pDevInfoData,
                           VXR_DRIVER *pVXRDriver);
