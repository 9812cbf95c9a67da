// Class values of devices that no driver was ever set up for.
#pragma once

#include "platform/platform.h"

// Writes "Class" and "ClassGUID" of the device's enumeration key in the running system's registry, each only when it is
// missing, so that the platform finds the device among those of its class. A value that is there stays, whatever it
// holds. TRUE when both are there afterwards; FALSE, after a log line, for a null id, a type whose class has no name,
// or a value that cannot be written; nothing written before is undone.
BOOL VXRDev_FixDevRegistry(DWORD deviceType, const char *szInstanceID);
