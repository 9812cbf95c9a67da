// Access to the engine's parameter block. engine/lifecycle builds and releases it.
#pragma once

#include "vxr/parameters.h"

extern VXR_PARABLOCK *gpVXRParaBlock;

// Texts of the block, which keeps them; null without a block.
const char *VXREng_GetJobKey();
const char *VXREng_GetProductPath();
