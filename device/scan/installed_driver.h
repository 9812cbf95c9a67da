// The driver that a present device of the running system has, as an extension file records it.
#pragma once

#include "log/heap.h"
#include "vxrcore/bmext.h"

// Fills the record for the first present device of the type's class (VXR_DEVTYPE_...) whose id `szInstanceID` begins
// with, without regard to case, whose driver can be told and whose parent is known. Returns the parent's instance id;
// null, after logging, when there is no such device. The record then holds what was found out: the class GUID always,
// device type and instance id only when the device's detail could be read.
HeapText VXRDev_GetVXRDevDriver(DWORD deviceType, const char *szInstanceID, VXR_DEVDRV *pVXRDevDrv);

// Fills the record's driver, service and file fields for one device of the set. FALSE, after logging, when the driver,
// the service's name, or its type, start or image path cannot be read; what was filled before stays.
BOOL VXRDev_GetVXRDevDriverDetail(HDEVINFO hDevInfo, SP_DEVINFO_DATA *pDevInfoData, VXR_DEVDRV *pVXRDevDrv);
