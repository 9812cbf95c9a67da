// The restore job's settings.
#pragma once

#include "vxr/restore_settings.h"
#include "platform/platform.h"

extern VXR_BMRESTORE *gpVXRBMRestore;

// Reads the settings from the job's key; an earlier block is released. FALSE, without a block, when one is missing.
BOOL VXRRlm_Initialize(DWORD job, void *header);
BOOL VXRRlm_Cleanup();
// Texts of the block, which keeps them; null without a block.
const char *VXRRlm_GetBootDisk();
const char *VXRRlm_GetBootPart();
const char *VXRRlm_GetRootPath();
const char *VXRRlm_GetInfDir();
// First character of the root path; 'C' without a block.
char VXRRlm_GetRootDrive();
