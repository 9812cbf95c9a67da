// The Windows types, records and constants, from the SDK.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
// clang-format off
#include <windows.h>
#include <winioctl.h>
#include <winver.h>
#include <setupapi.h>
#include <cfgmgr32.h>
// clang-format on

#include <cstddef>
#include <cstdint>

// Of the mount manager, whose header is in the driver kit alone.
inline constexpr DWORD IOCTL_MOUNTDEV_QUERY_UNIQUE_ID = 0x004D0000;
inline constexpr DWORD IOCTL_MOUNTDEV_QUERY_DEVICE_NAME = 0x004D0008;

struct MOUNTDEV_NAME {
  USHORT NameLength;  // bytes
  WCHAR Name[1];
};

struct MOUNTDEV_UNIQUE_ID {
  USHORT UniqueIdLength;
  UCHAR UniqueId[1];
};
