// The nodes of the described devices. Devices are numbered from 0 in the order of the machine file; a node's handle is
// that number plus one.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/machine/description/records.h"

namespace machine {

inline constexpr std::uint32_t kNoDevice = 0xFFFFFFFF;

inline DEVINST NodeOf(std::uint32_t device) { return device + 1; }
// kNoDevice when the handle is of no node.
std::uint32_t DeviceOfNode(DEVINST node);
// By instance id, without regard to case; kNoDevice when there is none.
std::uint32_t FindDevice(std::string_view instance);

// The device that an interface path of the disk names, by the disk's place in the machine file; kNoDevice when the path
// names none.
std::uint32_t DeviceOfDisk(std::size_t disk);

inline bool IsSame(const GUID &a, const GUID &b) { return std::memcmp(&a, &b, sizeof a) == 0; }
// Braced, upper-case hexadecimal.
std::string GuidText(const GUID &guid);
bool ParseGuid(std::string_view text, GUID *guid);

// The class that the running registry gives the device at this moment. False when it gives none.
bool ClassOf(std::uint32_t device, GUID *classGuid);

// Whether some device is of that class (a braced GUID, any case) at this moment.
bool IsPresentClass(std::string_view classGuid);

// Called when the machine opens and when it closes.
void OpenDevices(const Description &description);
void CloseDevices();

}  // namespace machine
