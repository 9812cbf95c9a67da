// The device calls: sets of present devices and disk interfaces, properties, parents.
#include <algorithm>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/description/current.h"
#include "platform/machine/description/setup_class.h"
#include "platform/machine/registry/registry.h"
#include "platform/machine/setup/device_set.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

constexpr GUID kDiskInterface = {0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
constexpr DWORD kInterfaceActive = 1;

// "PCI" is the enumerator of "PCI\VEN_...".
bool IsEnumeratedBy(const Device &device, const char *enumerator) {
  return CompareNoCase(device.instance.substr(0, device.instance.find('\\')), enumerator) == 0;
}

void AddInterfaces(const Description &machine, const char *enumerator, DeviceSet *set) {
  for (std::size_t i = 0; i < machine.disks.size(); ++i) {
    if (machine.disks[i].interfacePath.empty()) continue;
    const std::uint32_t device = DeviceOfDisk(i);
    if (enumerator != nullptr && (device == kNoDevice || !IsEnumeratedBy(machine.devices[device], enumerator))) {
      continue;
    }
    set->disks.push_back(i);
    if (device != kNoDevice) AddDevice(device, set);
  }
}

void FillDevice(std::uint32_t device, SP_DEVINFO_DATA *record) {
  record->ClassGuid = {};
  record->DevInst = 0;
  record->Reserved = 0;
  if (device == kNoDevice) return;
  ClassOf(device, &record->ClassGuid);
  record->DevInst = NodeOf(device);
  record->Reserved = device;
}

struct Property {
  DWORD type = REG_SZ;
  std::string bytes;  // empty: the device lacks it
};

Property TextProperty(const std::string &text) {
  return {REG_SZ, text.empty() ? std::string() : std::string(WithTerminator(text))};
}

Property TextList(const std::vector<std::string> &texts) {
  Property property{REG_MULTI_SZ, {}};
  if (texts.empty()) return property;
  for (const std::string &text : texts) property.bytes += WithTerminator(text);
  property.bytes += '\0';
  return property;
}

// What the description does not say comes from the device's key in the running registry.
Property RegistryProperty(const Device &device, const char *value) {
  std::string text;
  ReadRegistryText("SYSTEM\\CurrentControlSet\\Enum\\" + device.instance, value, &text);
  return TextProperty(text);
}

Property PropertyOf(const Device &device, DWORD number) {
  switch (number) {
    case SPDRP_DEVICEDESC:
      return RegistryProperty(device, "DeviceDesc");
    case SPDRP_HARDWAREID:
      return TextList(device.hardwareIds);
    case SPDRP_COMPATIBLEIDS:
      return TextList(device.compatibleIds);
    case SPDRP_SERVICE:
      return device.service.empty() ? RegistryProperty(device, "Service") : TextProperty(device.service);
    case SPDRP_CLASS:
      return RegistryProperty(device, "Class");
    case SPDRP_CLASSGUID:
      return RegistryProperty(device, "ClassGUID");
    case SPDRP_DRIVER:
      return RegistryProperty(device, "Driver");
    case SPDRP_MFG:
      return RegistryProperty(device, "Mfg");
    case SPDRP_FRIENDLYNAME:
      return RegistryProperty(device, "FriendlyName");
    case SPDRP_ENUMERATOR_NAME:
      return TextProperty(device.instance.substr(0, device.instance.find('\\')));
    default:
      return {};
  }
}

}  // namespace
}  // namespace machine

namespace platform {

using namespace machine;

HDEVINFO SetupDiGetClassDevsA(const GUID *classGuid, const char *enumerator, HWND, DWORD flags) {
  VXR_FAULT(INVALID_HANDLE_VALUE, ERROR_GEN_FAILURE);
  const Description *machine = Current();
  if (machine == nullptr) return machine::FailOpen(ERROR_NOT_READY);
  const bool all = (flags & DIGCF_ALLCLASSES) != 0;
  if (classGuid == nullptr && !all) return machine::FailOpen(ERROR_INVALID_PARAMETER);
  DeviceSet set;
  if ((flags & DIGCF_DEVICEINTERFACE) != 0) {
    if (all || IsSame(*classGuid, kDiskInterface)) AddInterfaces(*machine, enumerator, &set);
    return AddSet(std::move(set));
  }
  for (std::uint32_t device = 0; device < machine->devices.size(); ++device) {
    if (enumerator != nullptr && !IsEnumeratedBy(machine->devices[device], enumerator)) continue;
    GUID deviceClass;
    if (all || (ClassOf(device, &deviceClass) && IsSame(deviceClass, *classGuid))) AddDevice(device, &set);
  }
  return AddSet(std::move(set));
}

BOOL SetupDiDestroyDeviceInfoList(HDEVINFO set) {
  VXR_FAULT(FALSE, ERROR_INVALID_HANDLE);
  return DropSet(set) ? TRUE : FailWith(ERROR_INVALID_HANDLE);
}

BOOL SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, SP_DEVINFO_DATA *device) {
  VXR_FAULT(FALSE, ERROR_NO_MORE_ITEMS);
  const DeviceSet *found = FindSet(set);
  if (found == nullptr) return FailWith(ERROR_INVALID_HANDLE);
  if (device == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  if (device->cbSize != sizeof *device) return FailWith(ERROR_INVALID_USER_BUFFER);
  if (index >= found->devices.size()) return FailWith(ERROR_NO_MORE_ITEMS);
  FillDevice(found->devices[index], device);
  return TRUE;
}

BOOL SetupDiGetDeviceInstanceIdA(HDEVINFO set, SP_DEVINFO_DATA *device, char *buffer, DWORD size, DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_GEN_FAILURE);
  NamedDevice named;
  if (const Status found = FindNamedDevice(set, device, &named); !found) return FailWith(found);
  return Answer(WithTerminator(Current()->devices[named.device].instance), SizeAlone::kFails, buffer, size,
                requiredSize);
}

BOOL SetupDiGetDeviceRegistryPropertyA(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD property, DWORD *type, BYTE *buffer,
                                       DWORD size, DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_INVALID_DATA);
  NamedDevice named;
  if (const Status found = FindNamedDevice(set, device, &named); !found) return FailWith(found);
  const Property found = PropertyOf(Current()->devices[named.device], property);
  if (found.bytes.empty()) return FailWith(ERROR_INVALID_DATA);
  if (type != nullptr) *type = found.type;
  return Answer(found.bytes, SizeAlone::kFails, buffer, size, requiredSize);
}

BOOL SetupDiEnumDeviceInterfaces(HDEVINFO set, SP_DEVINFO_DATA *device, const GUID *interfaceGuid, DWORD index,
                                 SP_DEVICE_INTERFACE_DATA *interfaceData) {
  VXR_FAULT(FALSE, ERROR_NO_MORE_ITEMS);
  const DeviceSet *found = FindSet(set);
  if (found == nullptr) return FailWith(ERROR_INVALID_HANDLE);
  NamedDevice named;
  const Status known = device != nullptr ? FindNamedDevice(set, device, &named) : Status();
  if (!known) return FailWith(known);
  if (interfaceGuid == nullptr || interfaceData == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  if (interfaceData->cbSize != sizeof *interfaceData) return FailWith(ERROR_INVALID_USER_BUFFER);
  if (!IsSame(*interfaceGuid, kDiskInterface)) return FailWith(ERROR_NO_MORE_ITEMS);
  std::vector<std::size_t> own;
  for (const std::size_t disk : found->disks) {
    if (device != nullptr && DeviceOfDisk(disk) == named.device) own.push_back(disk);
  }
  const std::vector<std::size_t> &disks = device == nullptr ? found->disks : own;
  if (index >= disks.size()) return FailWith(ERROR_NO_MORE_ITEMS);
  interfaceData->InterfaceClassGuid = kDiskInterface;
  interfaceData->Flags = kInterfaceActive;
  interfaceData->Reserved = disks[index];
  return TRUE;
}

BOOL SetupDiGetDeviceInterfaceDetailA(HDEVINFO set, SP_DEVICE_INTERFACE_DATA *interfaceData,
                                      SP_DEVICE_INTERFACE_DETAIL_DATA_A *detail, DWORD size, DWORD *requiredSize,
                                      SP_DEVINFO_DATA *device) {
  VXR_FAULT(FALSE, ERROR_GEN_FAILURE);
  const DeviceSet *found = FindSet(set);
  if (found == nullptr) return FailWith(ERROR_INVALID_HANDLE);
  if (interfaceData == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  if (interfaceData->cbSize != sizeof *interfaceData || (detail != nullptr && detail->cbSize != sizeof *detail) ||
      (device != nullptr && device->cbSize != sizeof *device)) {
    return FailWith(ERROR_INVALID_USER_BUFFER);
  }
  const std::size_t number = interfaceData->Reserved;
  if (!std::binary_search(found->disks.begin(), found->disks.end(), number)) {
    return FailWith(ERROR_INVALID_PARAMETER);
  }
  const Disk &disk = Current()->disks[number];
  const std::size_t fixed = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath);
  // The record's own size is the least, so that a caller may fill its size field in what it allocated.
  const auto needed = static_cast<DWORD>(std::max(fixed + disk.interfacePath.size() + 1, sizeof *detail));
  if (requiredSize != nullptr) *requiredSize = needed;
  if (device != nullptr) FillDevice(DeviceOfDisk(number), device);
  if (detail == nullptr && size != 0) return FailWith(ERROR_INVALID_PARAMETER);
  if (detail == nullptr || size < needed) return FailWith(ERROR_INSUFFICIENT_BUFFER);
  std::memcpy(reinterpret_cast<char *>(detail) + fixed, disk.interfacePath.c_str(), disk.interfacePath.size() + 1);
  return TRUE;
}

BOOL SetupDiClassNameFromGuidA(const GUID *classGuid, char *name, DWORD size, DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_INVALID_CLASS);
  if (classGuid == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  if (requiredSize != nullptr) *requiredSize = 0;
  const std::string guid = GuidText(*classGuid);
  std::string text;
  if (const SetupClass *known = FindSetupClass(guid)) {
    text = known->name;
  } else if (!ReadRegistryText("SYSTEM\\CurrentControlSet\\Control\\Class\\" + guid, "Class", &text)) {
    return FailWith(ERROR_INVALID_CLASS);
  }
  return Answer(WithTerminator(text), SizeAlone::kFails, name, size, requiredSize);
}

CONFIGRET CM_Get_Parent(DEVINST *parent, DEVINST child, DWORD) {
  VXR_FAULT(CR_NO_SUCH_DEVNODE, ERROR_GEN_FAILURE);
  if (parent == nullptr) return CR_INVALID_POINTER;
  const std::uint32_t device = DeviceOfNode(child);
  if (device == kNoDevice) return CR_INVALID_DEVNODE;
  const std::string &instance = Current()->devices[device].parent;
  const std::uint32_t found = instance.empty() ? kNoDevice : FindDevice(instance);
  if (found == kNoDevice) return CR_NO_SUCH_DEVNODE;
  *parent = NodeOf(found);
  return CR_SUCCESS;
}

CONFIGRET CM_Get_Device_ID_Size(DWORD *length, DEVINST device, DWORD) {
  VXR_FAULT(CR_FAILURE, ERROR_GEN_FAILURE);
  if (length == nullptr) return CR_INVALID_POINTER;
  const std::uint32_t number = DeviceOfNode(device);
  if (number == kNoDevice) return CR_INVALID_DEVNODE;
  *length = static_cast<DWORD>(Current()->devices[number].instance.size());  // without the terminator
  return CR_SUCCESS;
}

CONFIGRET CM_Get_Device_IDA(DEVINST device, char *buffer, DWORD length, DWORD) {
  VXR_FAULT(CR_FAILURE, ERROR_GEN_FAILURE);
  if (buffer == nullptr) return CR_INVALID_POINTER;
  const std::uint32_t number = DeviceOfNode(device);
  if (number == kNoDevice) return CR_INVALID_DEVNODE;
  const std::string_view instance = WithTerminator(Current()->devices[number].instance);
  if (length < instance.size()) return CR_BUFFER_SMALL;
  std::memcpy(buffer, instance.data(), instance.size());
  return CR_SUCCESS;
}

}  // namespace platform
