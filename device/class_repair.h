#pragma once

#include "platform/platform.h"

// Writes "Class" and "ClassGUID" of the device's enumeration key in the running system's registry when they are missing,
// so that the platform puts the device into its class. TRUE when both are there afterwards.
BOOL VXRDev_FixDevRegistry(DWORD deviceType, const char *szInstanceID);
