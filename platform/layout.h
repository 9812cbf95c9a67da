// The record sizes and offsets of 64-bit Windows that the code relies on, asserted on every build.
#pragma once

#include "platform/platform.h"

static_assert(sizeof(DWORD) == 4 && sizeof(WCHAR) == 2 && sizeof(HANDLE) == 8);
static_assert(sizeof(GUID) == 16);
static_assert(sizeof(FILETIME) == 8 && alignof(FILETIME) == 4);
static_assert(sizeof(SYSTEMTIME) == 16);
static_assert(sizeof(WIN32_FILE_ATTRIBUTE_DATA) == 36);
static_assert(sizeof(WIN32_FIND_DATAA) == 320 && offsetof(WIN32_FIND_DATAA, cFileName) == 44);
static_assert(sizeof(STARTUPINFOA) == 104);
static_assert(sizeof(PROCESS_INFORMATION) == 24);
static_assert(sizeof(MEMORYSTATUSEX) == 64);
static_assert(sizeof(SYSTEM_INFO) == 48 && offsetof(SYSTEM_INFO, dwNumberOfProcessors) == 32);
static_assert(sizeof(OSVERSIONINFOEXA) == 156);
static_assert(sizeof(STORAGE_DEVICE_NUMBER) == 12);
static_assert(sizeof(DISK_GEOMETRY) == 24 && offsetof(DISK_GEOMETRY, TracksPerCylinder) == 12);
static_assert(offsetof(MOUNTDEV_NAME, Name) == 2 && offsetof(MOUNTDEV_UNIQUE_ID, UniqueId) == 2);
static_assert(sizeof(DISK_EXTENT) == 24 && offsetof(DISK_EXTENT, StartingOffset) == 8);
static_assert(offsetof(VOLUME_DISK_EXTENTS, Extents) == 8);
static_assert(sizeof(INFCONTEXT) == 24);
static_assert(sizeof(SP_DEVINFO_DATA) == 32 && offsetof(SP_DEVINFO_DATA, DevInst) == 20);
static_assert(sizeof(SP_DEVICE_INTERFACE_DATA) == 32);
static_assert(sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A) == 8);
static_assert(sizeof(SP_DEVINSTALL_PARAMS_A) == 320 && offsetof(SP_DEVINSTALL_PARAMS_A, DriverPath) == 60);
static_assert(sizeof(SP_DRVINFO_DATA_A) == 800 && offsetof(SP_DRVINFO_DATA_A, Description) == 16);
static_assert(sizeof(SP_DRVINFO_DETAIL_DATA_A) == 808 && offsetof(SP_DRVINFO_DETAIL_DATA_A, HardwareID) == 804);
