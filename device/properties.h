// Instance ids and registry properties of devices.
#pragma once

#include "log/heap.h"

// Where reading an instance id failed.
enum class InstanceIdStep { kSize, kMemory, kText };

// Instance id of a device of the set. Null with the last error set; `*failed` then tells where, for a line of the
// caller's own. Only want of memory is logged here, when a purpose is given for its line.
HeapText ReadInstanceId(HDEVINFO set, SP_DEVINFO_DATA *device, const char *purpose, InstanceIdStep *failed,
                        const Caller &trace);

// Property numbers from here on are refused: one more than the log has names for.
inline constexpr DWORD kPropertyLimit = 36;

// The raw value of a device's property (SPDRP_...), with two zero bytes behind the reported size, so that a stored text
// or multi-string without its end is one all the same. `*type` and `*size` get the registry data type and the count of
// bytes. Null, with both 0 and after a log line, when the device record or the set is missing, when the device lacks
// the property, or without memory.
HeapText VXRDev_GetRegPropByDevInfo(HDEVINFO hDevInfo, SP_DEVINFO_DATA *pDevInfoData, DWORD property, DWORD *type,
                                    DWORD *size);

// The same for the device at `index` of the class's present devices: in the caller's set when one is given, which stays
// open, else (null or the invalid handle) in one of its own. Null as well for a null class, a property number from
// kPropertyLimit on, or when no device stands at the index.
HeapText VXRDev_GetRegProperty(HDEVINFO hDevInfo, const GUID *classGuid, DWORD index, DWORD property, DWORD *size,
                               DWORD *type);
