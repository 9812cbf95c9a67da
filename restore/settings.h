// The restore job's settings.
#pragma once

#include "platform/platform.h"
#include "vxr/restore_settings.h"

// Null until VXRRlm_Initialize succeeds. The values never change while the block lives.
extern VXR_BMRESTORE *gpVXRBMRestore;

// Reads the settings from the job's key, which the engine's parameter block names (`job` itself is not used), and keeps
// `header`, the host's extension or null, without owning it. An earlier block is released. FALSE, after logging and
// without a block, when the parameter block or one of the four values is missing, or without memory.
BOOL VXRRlm_Initialize(DWORD job, void *header);
// Releases the block, if any. Always TRUE.
BOOL VXRRlm_Cleanup();
// Texts of the block, which keeps them; null without a block.
const char *VXRRlm_GetBootDisk();
const char *VXRRlm_GetBootPart();
const char *VXRRlm_GetRootPath();
const char *VXRRlm_GetInfDir();
// How drivers are chosen: "DriverRules" of the job's key, "exact" unless it says "windows".
enum class DriverRules { kExact, kWindows };
DriverRules VXRRlm_GetDriverRules();
// What names a driver for its device in the restored hive: "BootRecord" of the job's key, "exact" (a critical-device
// entry) unless it says "auto" (what the hive's system reads).
enum class BootRecordKind { kExact, kAutomatic };
BootRecordKind VXRRlm_GetBootRecord();
// First character of the root path (NUL when that is empty); 'C' without a block.
char VXRRlm_GetRootDrive();
