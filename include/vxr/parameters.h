// The engine's parameter block: what every restore-time subsystem needs to know about the run. VXREng_Initialize builds
// the one block and VXREng_Cleanup releases it with all that it owns; gpVXRParaBlock (engine/base/parameters.h) is null
// while there is none.
#pragma once

#include "platform/platform.h"
#include "vxr/device.h"
#include "vxrcore/bmext.h"

// Room in the block's table of devices; the scan of the boot disk fills the first entry.
inline constexpr DWORD kMaxVxrDevices = 9;

struct VXR_PARABLOCK {
  char *szWindowsPath;  // owned: Windows directory of the running system
  char *szSystemPath;   // owned: its system directory
  char *szVrnltPath;    // owned: the product's directory, without trailing backslash
  DWORD dwJob;
  char *szJobKey;                           // owned: the job's key below HKEY_LOCAL_MACHINE
  DWORD dwCtrlSetIndex;                     // control set of the restored hive; 0 until it is mounted
  DWORD dwBootMedia;                        // VXR_BOOTMEDIA_... of the running system
  BOOL bInject;                             // FALSE: check only
  VXR_ARCHITECT Arch;                       // of the running system
  DWORD dwDevCnt;                           // entries in use
  VXR_DEVICE *pVXRDevices[kMaxVxrDevices];  // owned
};
