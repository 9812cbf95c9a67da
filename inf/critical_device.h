// Registration of a found driver in the restored system's critical-device database.
#pragma once

#include "vxr/device.h"

BOOL VXRDev_PostGetDriver(VXR_DRIVER *pVXRDriver, VXR_DEVICE *pVXRDevice);
BOOL VXRDev_CreateRegCRCDB(const GUID *classGuid, HDEVINFO hDevInfo, SP_DEVINFO_DATA *pDevInfoData,
                           VXR_DRIVER *pVXRDriver);
