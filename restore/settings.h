// The restore job's settings.
#pragma once

#include <optional>
#include <string>

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
// What only some jobs say, in further values of the job's key.
enum class DriverRules { kExact, kWindows };
enum class BootRecordKind { kExact, kAutomatic };
struct RestoreChoices {
  DriverRules rules = DriverRules::kExact;           // "DriverRules": how drivers are chosen
  BootRecordKind record = BootRecordKind::kExact;    // "BootRecord": what names a driver for its device in the hive
  std::optional<DWORD> osBuild, osProduct, osSuite;  // "OSBuild", "OSProduct", "OSSuite": of the restored system
  std::string infDirs,
      disks;  // "MoreInfDirs", "MoreDisks": multi-strings, of what is worked on beside the one; or empty
};
// Those of the job; the usual ones without a block.
const RestoreChoices &VXRRlm_GetChoices();
// First character of the root path (NUL when that is empty); 'C' without a block.
char VXRRlm_GetRootDrive();
