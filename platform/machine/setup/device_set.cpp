#include "platform/machine/setup/device_set.h"

#include <unordered_map>

namespace machine {
namespace {

// A handle is a number that is never given out again, so that one that was destroyed is recognised.
std::unordered_map<ULONG_PTR, DeviceSet> sets;
ULONG_PTR lastSet = 0;

}  // namespace

void AddDevice(std::uint32_t device, DeviceSet *set) {
  set->devices.push_back(device);
  if (set->members.size() <= device) set->members.resize(device + 1);
  set->members[device] = true;
}

HDEVINFO AddSet(DeviceSet set) {
  lastSet += 4;
  sets.emplace(lastSet, std::move(set));
  return reinterpret_cast<HDEVINFO>(lastSet);
}

DeviceSet *FindSet(HDEVINFO set) {
  const auto found = sets.find(reinterpret_cast<ULONG_PTR>(set));
  if (found != sets.end()) return &found->second;
  platform::SetLastError(ERROR_INVALID_HANDLE);
  return nullptr;
}

bool DropSet(HDEVINFO set) {
  if (sets.erase(reinterpret_cast<ULONG_PTR>(set)) != 0) return true;
  platform::SetLastError(ERROR_INVALID_HANDLE);
  return false;
}

void CloseDeviceSets() { sets.clear(); }

std::size_t OpenDeviceSets() { return sets.size(); }

DeviceSet *FindSetOf(HDEVINFO set, const SP_DEVINFO_DATA *record, std::uint32_t *device) {
  DeviceSet *found = FindSet(set);
  if (found == nullptr) return nullptr;
  DWORD error = NO_ERROR;
  if (record == nullptr) {
    error = ERROR_INVALID_PARAMETER;
  } else if (record->cbSize != sizeof *record) {
    error = ERROR_INVALID_USER_BUFFER;
  } else {
    *device = DeviceOfNode(record->DevInst);
    // Asked by every call about a device: a search through the set would make an enumeration of it quadratic.
    if (*device >= found->members.size() || !found->members[*device]) error = ERROR_NO_SUCH_DEVINST;
  }
  if (error == NO_ERROR) return found;
  platform::SetLastError(error);
  return nullptr;
}

}  // namespace machine
