// The new machine's devices and the drivers found for them. Allocated zero-filled on the process heap, as is every
// member called owned below; VXRDev_FreeDevice and VXRDev_FreeDriver (device/records.h) release a record with all that
// it owns. A borrowed member belongs to somebody else, who keeps it as long as this record names it.
#pragma once

#include "platform/platform.h"

struct VXR_DEVICE;

// The driver chosen for one device.
struct VXR_DRIVER {
  DWORD iDevEnum;  // copies of the device's members
  DWORD iDrvEnum;  // entry of the driver list built from the INF file: always the first, 0
  DWORD hDevInst;
  GUID guDevice;
  BOOL bInject;                                  // copy files and write services only when TRUE
  char *szDriver;                                // owned; no operation fills it
  char *szService;                               // owned: service name of the INF file's AddService line
  const char *szMatchedID;                       // borrowed: matching id of the detail record, the device or the job
  SP_DRVINFO_DATA_A *pDrvInfoData;               // owned
  SP_DRVINFO_DETAIL_DATA_A *pDrvInfoDetailData;  // owned; its id list follows the fixed part
  VXR_DEVICE *pVXRDevice;                        // borrowed: the device the driver belongs to
};

// One device of the new machine. A disk owns its controller, an IDE channel its bus extender, through pVXRDevParent.
struct VXR_DEVICE {
  DWORD iBMDevIndex;          // disk of the extension's list to which the device belongs
  char *szInstanceID;         // owned
  char *szHardwareID;         // owned multi-string
  char *szCompatibleIDs;      // owned multi-string, or null
  char *szTargetOS;           // owned multi-string: decorations of the restored system
  DWORD VXRDevType;           // VXR_DEVTYPE_...
  DWORD iDevEnum;             // position among the present devices of its class
  DWORD hDevInst;             // device node
  GUID guDevice;              // set-up class as the platform reports it
  VXR_DRIVER *pVXRDriver;     // owned, or null (disks)
  VXR_DEVICE *pVXRDevParent;  // owned, or null
  BOOL bInject;
};
