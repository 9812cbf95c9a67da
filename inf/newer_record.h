// The record of a driver that the narrow reading found, for a restored system that reads DriverDatabase.
#pragma once

#include "vxr/device.h"

// Whether the job wants the record that the mounted hive's system reads, and that is DriverDatabase.
bool WantsNewerRecord();

// Records the driver and lets its service start with the system. FALSE, after logging and with the hive as it was.
BOOL VXRDev_CreateNewerRecord(const GUID *classGuid, const char *szService, const VXR_DRIVER *pVXRDriver);
