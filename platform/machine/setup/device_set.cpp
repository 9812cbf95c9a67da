#include "platform/machine/setup/device_set.h"

#include "platform/machine/base/handle_table.h"

namespace machine {
namespace {

HandleTable<DeviceSet> sets;

}  // namespace

void AddDevice(std::uint32_t device, DeviceSet *set) {
  set->devices.push_back(device);
  if (set->members.size() <= device) set->members.resize(device + 1);
  set->members[device] = true;
}

HDEVINFO AddSet(DeviceSet set) { return AddTo<HDEVINFO>(&sets, std::move(set)); }

DeviceSet *FindSet(HDEVINFO set) { return FindIn(&sets, set); }

bool DropSet(HDEVINFO set) { return DropFrom(&sets, set); }

void CloseDeviceSets() { sets.records.clear(); }

std::size_t OpenDeviceSets() { return sets.records.size(); }

Status FindNamedDevice(HDEVINFO set, const SP_DEVINFO_DATA *record, NamedDevice *named) {
  named->set = FindSet(set);
  if (named->set == nullptr) return Status::Windows(ERROR_INVALID_HANDLE);
  if (record == nullptr) return Status::Windows(ERROR_INVALID_PARAMETER);
  if (record->cbSize != sizeof *record) return Status::Windows(ERROR_INVALID_USER_BUFFER);
  named->device = DeviceOfNode(record->DevInst);
  // Asked by every call about a device: a search through the set would make an enumeration of it quadratic.
  const std::vector<bool> &members = named->set->members;
  const bool member = named->device < members.size() && members[named->device];
  return member ? Status() : Status::Windows(ERROR_NO_SUCH_DEVINST);
}

}  // namespace machine
