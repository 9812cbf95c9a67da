// The set-up classes of devices that the system deals with.
#pragma once

#include "platform/platform.h"

// All of them differ in the first number alone.
constexpr GUID SetupClassGuid(DWORD first) {
  return {first, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
}

inline constexpr GUID kComputerClass = SetupClassGuid(0x4D36E966);
inline constexpr GUID kDiskDriveClass = SetupClassGuid(0x4D36E967);
inline constexpr GUID kIdeControllerClass = SetupClassGuid(0x4D36E96A);
inline constexpr GUID kNetworkAdapterClass = SetupClassGuid(0x4D36E972);
inline constexpr GUID kScsiAdapterClass = SetupClassGuid(0x4D36E97B);
