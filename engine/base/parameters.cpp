#include "engine/base/parameters.h"

VXR_PARABLOCK *gpVXRParaBlock = nullptr;

const char *VXREng_GetJobKey() { return gpVXRParaBlock != nullptr ? gpVXRParaBlock->szJobKey : nullptr; }

const char *VXREng_GetProductPath() { return gpVXRParaBlock != nullptr ? gpVXRParaBlock->szVrnltPath : nullptr; }
