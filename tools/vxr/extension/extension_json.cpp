#include <nlohmann/json.hpp>
#include <utility>

#include "tools/vxr/extension/extension_file.h"
#include "tools/vxr/extension/extension_words.h"

using Json = nlohmann::ordered_json;

namespace {

// An object in the making. Keys are known to differ, so they are appended, where Json itself would look for each among
// those before it. Most keys have fewer than 16 characters, which need no memory of their own.
struct Object {
  Json::object_t members;
  unsigned codePage;

  explicit Object(unsigned page, std::size_t size) : codePage(page) { members.reserve(size); }

  void Put(const char *key, Json value) { members.emplace_back(key, std::move(value)); }
  void Put(const char *key, VXR_LE32 number) { members.emplace_back(key, VxrGet32(number)); }
  void PutSigned(const char *key, VXR_LE32 number) {
    members.emplace_back(key, static_cast<std::int32_t>(VxrGet32(number)));
  }
  void Put(const char *key, VXR_LE64 number) { members.emplace_back(key, VxrGet64(number)); }
  void PutSigned(const char *key, VXR_LE64 number) {
    members.emplace_back(key, static_cast<std::int64_t>(VxrGet64(number)));
  }
  template <std::size_t kSize>
  void Put(const char *key, const char (&field)[kSize]) {
    members.emplace_back(key, FieldText(field, codePage));
  }
  void PutTime(const char *key, const char *keyInWords, VXR_LE64 time) {
    Put(key, time);
    std::string text = TimeText(time);
    members.emplace_back(keyInWords, text.empty() ? Json() : Json(std::move(text)));
  }
  // The platform's answer in a field, as far as it was delivered.
  template <std::size_t kSize>
  void PutAnswer(const char *key, const std::uint8_t (&field)[kSize], VXR_LE32 delivered) {
    const std::uint32_t size = VxrGet32(delivered);
    members.emplace_back(key, HexText(field, size < kSize ? size : kSize));
  }
};

Json FileJson(const VXR_FILEINFO &file, unsigned codePage) {
  Object object(codePage, 14);
  object.Put("file_name", file.FileName);
  object.Put("section", file.Section);
  object.Put("product_name", file.ProductName);
  object.Put("company_name", file.CompanyName);
  object.Put("product_version", file.ProductVersion);
  object.Put("description", file.FileDescription);
  object.Put("file_version", file.FileVersion);
  object.PutTime("created", "created_utc", file.CreationTime);
  object.PutTime("accessed", "accessed_utc", file.LastAccessTime);
  object.PutTime("written", "written_utc", file.LastWriteTime);
  object.Put("file_size", file.FileSize);
  return std::move(object.members);
}

Json ServiceJson(const VXR_SERVICE &service, unsigned codePage) {
  Object object(codePage, 8);
  object.Put("name", service.Name);
  object.Put("group", service.Group);
  object.Put("image", service.Image);
  object.Put("tag", service.Tag);
  object.Put("type", service.Type);
  object.Put("type_name", ServiceTypeWord(VxrGet32(service.Type)));
  object.Put("start", service.Start);
  object.Put("start_name", ServiceStartWord(VxrGet32(service.Start)));
  return std::move(object.members);
}

// Null for a record of zeroes, as the bus extender's is of all but IDE disks.
Json DriverJson(const VXR_DEVDRV &driver, unsigned codePage) {
  if (!IsRecorded(driver)) return nullptr;
  Object object(codePage, 10);
  object.Put("class_guid", GuidText(driver.DevGuid));
  object.Put("type", driver.DeviceType);
  object.Put("type_name", DeviceTypeWord(VxrGet32(driver.DeviceType)));
  object.Put("instance_id", driver.InstanceID);
  object.Put("description", driver.Description);
  object.Put("manufacturer", driver.Manufacturer);
  object.Put("provider", driver.ProviderName);
  object.Put("service", ServiceJson(driver.Service, codePage));
  object.Put("image_file", FileJson(driver.ImgFile, codePage));
  object.Put("inf_file", FileJson(driver.InfFile, codePage));
  return std::move(object.members);
}

Json DiskJson(const VXR_VOLDISK &disk, unsigned codePage) {
  Object object(codePage, 7);
  object.Put("disk_number", disk.DiskExtent.DiskNumber);
  object.Put("padding", HexText(disk.DiskExtent.Padding, sizeof disk.DiskExtent.Padding));
  object.PutSigned("starting_offset", disk.DiskExtent.StartingOffset);
  object.PutSigned("extent_length", disk.DiskExtent.ExtentLength);
  object.Put("disk_driver", DriverJson(disk.DiskDriver, codePage));
  object.Put("controller_driver", DriverJson(disk.CtrlDriver, codePage));
  object.Put("bus_extender_driver", DriverJson(disk.BusEDriver, codePage));
  return std::move(object.members);
}

Json VolumeJson(const VXR_VOLUME &volume, unsigned codePage) {
  Object object(codePage, 20);
  object.Put("mount_point", volume.MntPnt);
  object.Put("guid_path", volume.Volume);
  object.Put("device_name", DeviceNameText(volume));
  object.PutAnswer("device", volume.Device, volume.DeviceLen);
  object.Put("device_length", volume.DeviceLen);
  object.PutAnswer("unique_id", volume.UniqId, volume.UniqIdLen);
  object.Put("unique_id_length", volume.UniqIdLen);
  object.Put("label", volume.Label);
  object.Put("file_system", volume.FileSystem);
  object.Put("backup_name", volume.BMName);
  object.Put("serial", volume.Serial);
  object.Put("longest_name", volume.MaxLen);
  object.Put("file_system_flags", volume.Flags);
  object.Put("reserved", HexText(volume.reserved, sizeof volume.reserved));
  object.Put("volume_type", volume.VolType);
  object.Put("volume_type_names", VolumeTypeWords(VxrGet32(volume.VolType)));
  object.Put("disk_count", volume.VolDisks.DiskCount);
  object.Put("most_disks", volume.VolDisks.MaxDiskCount);
  Json disks = Json::array();
  for (std::uint32_t i = 0; i < UsableDisks(volume.VolDisks); ++i) {
    disks.push_back(DiskJson(volume.VolDisks.Disks[i], codePage));
  }
  object.Put("disks", std::move(disks));
  return std::move(object.members);
}

Json VolumesJson(const VXR_VOLUMES &volumes, unsigned codePage) {
  Object object(codePage, 5);
  object.Put("volume_count", volumes.VolCount);
  object.Put("most_volumes", volumes.MaxVolCount);
  object.PutSigned("boot_volume", volumes.BootVolInd);
  object.PutSigned("system_volume", volumes.SystVolInd);
  Json list = Json::array();
  for (std::uint32_t i = 0; i < UsableVolumes(volumes); ++i) list.push_back(VolumeJson(volumes.Vols[i], codePage));
  object.Put("list", std::move(list));
  return std::move(object.members);
}

Json OsJson(const VXR_SYSOSINFO &os) {
  Object object(0, 19);
  object.Put("major_version", os.MajorVersion);
  object.Put("minor_version", os.MinorVersion);
  object.Put("build_number", os.BuildNumber);
  object.Put("platform_id", os.PlatformId);
  object.Put("platform_name", PlatformWord(VxrGet32(os.PlatformId)));
  object.Put("service_pack_major", os.ServicePackMajor);
  object.Put("service_pack_minor", os.ServicePackMinor);
  object.Put("suite_mask", os.SuiteMask);
  object.Put("suite_names", SuiteWords(VxrGet32(os.SuiteMask)));
  object.Put("product_type", os.ProductType);
  object.Put("product_name", ProductWord(VxrGet32(os.ProductType)));
  object.Put("processors", os.NumberOfProcessors);
  object.Put("processor_type", os.ProcessorType);
  object.Put("processor_level", os.ProcessorLevel);
  object.Put("processor_revision", os.ProcessorRevision);
  object.Put("processor_architecture", os.ProcessorArchitecture);
  object.Put("processor_architecture_name", ArchitectureWord(VxrGet32(os.ProcessorArchitecture)));
  object.Put("page_size", os.PageSize);
  object.Put("physical_memory", os.TotalPhys);
  return std::move(object.members);
}

Json SystemJson(const VXR_SYSINFO &system, unsigned codePage) {
  Object object(codePage, 5);
  object.Put("boot_media", system.BootMedia);
  object.Put("boot_media_name", BootMediaWord(VxrGet32(system.BootMedia)));
  object.Put("system_path", system.SystemPath);
  object.Put("windows_path", system.WindowsPath);
  object.Put("os", OsJson(system.SysOs));
  return std::move(object.members);
}

Json ArchitectJson(const VXR_ARCHITECT &architect) {
  Object object(0, 4);
  object.Put("hal_type", architect.HalType);
  object.Put("hal_name", HalWord(VxrGet32(architect.HalType)));
  object.Put("kernel_type", architect.KernelType);
  object.Put("kernel_name", KernelWord(VxrGet32(architect.KernelType)));
  return std::move(object.members);
}

Json NamesJson(const VXR_NETINFO &names, unsigned codePage) {
  Object object(codePage, 9);
  object.Put("computer", names.ComputerName);
  object.Put("netbios", names.ComputerNameNetBIOS);
  object.Put("dns_hostname", names.ComputerNameDnsHostname);
  object.Put("dns_domain", names.ComputerNameDnsDomain);
  object.Put("dns_fully_qualified", names.ComputerNameDnsFullyQualified);
  object.Put("physical_netbios", names.ComputerNamePhysicalNetBIOS);
  object.Put("physical_dns_hostname", names.ComputerNamePhysicalDnsHostname);
  object.Put("physical_dns_domain", names.ComputerNamePhysicalDnsDomain);
  object.Put("physical_dns_fully_qualified", names.ComputerNamePhysicalDnsFullyQualified);
  return std::move(object.members);
}

}  // namespace

Json ExtensionDocument(const std::string &path, const VXR_EXTIMAGE &image, unsigned codePage) {
  const VXR_BMEXTNSON &extension = image.Extension;
  const std::uint32_t magic = VxrGet32(image.Header.Magic);
  Object object(codePage, 11);
  object.Put("file", path);
  object.Put("code_page", codePage);
  object.Put("kind", magic == VXR_EXT_MAGIC_HOT ? "hot" : "cold");
  object.Put("magic", magic);
  object.Put("version", image.Header.Version);
  object.Put("size", extension.Size);
  object.Put("architect", ArchitectJson(extension.Architect));
  object.Put("system", SystemJson(extension.SysInfo, codePage));
  object.Put("names", NamesJson(extension.NetInfo, codePage));
  object.Put("volumes", VolumesJson(extension.Volumes, codePage));
  object.Put("reserved", HexText(extension.reserved, sizeof extension.reserved));
  return std::move(object.members);
}

std::string DocumentText(const Json &document) { return document.dump(2, ' ', false, Json::error_handler_t::replace); }
