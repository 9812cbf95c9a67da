// Registry properties of devices.
#pragma once

#include "log/heap.h"

inline constexpr DWORD kPropertyLimit = 36;  // property numbers from here on are refused

// The property's raw value, with two zero bytes behind the reported size; null when the device lacks it.
HeapText VXRDev_GetRegPropByDevInfo(HDEVINFO hDevInfo, SP_DEVINFO_DATA *pDevInfoData, DWORD property, DWORD *type,
                                    DWORD *size);
// The same for the device at `index` of the class's present devices, in the caller's set when one is given (it stays
// open), else in one of its own.
HeapText VXRDev_GetRegProperty(HDEVINFO hDevInfo, const GUID *classGuid, DWORD index, DWORD property, DWORD *size,
                               DWORD *type);
