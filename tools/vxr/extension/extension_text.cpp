#include "tools/vxr/extension/extension_text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <set>
#include <vector>

#include "platform/text/ansi_case.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/extension/extension_words.h"

namespace {

constexpr std::size_t kLabelWidth = 16;

using Lines = std::vector<std::string>;

// What a page of one file knows while it is printed.
struct Page {
  unsigned codePage;
  std::set<Lines> drivers;  // those printed so far: many disks have the same
};

// A labelled line; none when there is nothing to tell.
void AddRow(Lines *lines, std::size_t indent, const std::string &label, const std::string &text) {
  if (text.empty()) return;
  std::string line(indent, ' ');
  line += label;
  line.resize(std::max(line.size() + 1, indent + kLabelWidth), ' ');
  lines->push_back(line + text);
}

void Print(const Lines &lines) {
  for (const std::string &line : lines) PrintLine(line);
}

void Row(std::size_t indent, const std::string &label, const std::string &text) {
  Lines line;
  AddRow(&line, indent, label, text);
  Print(line);
}

// Those parts that are not empty, with commas.
std::string Joined(const std::vector<std::string> &parts) {
  std::string text;
  for (const std::string &part : parts) {
    if (!part.empty()) text += (text.empty() ? "" : ", ") + part;
  }
  return text;
}

std::string Quoted(const std::string &text) { return text.empty() ? "" : "\"" + text + "\""; }

std::string Prefixed(const char *prefix, const std::string &text) { return text.empty() ? "" : prefix + text; }

// "59.9 GiB"; below 1 KiB in bytes.
std::string HumanSize(std::uint64_t bytes) {
  static const char *const kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  if (bytes < 1024) return Bytes(bytes);
  auto size = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  // The printed number rounds up to 1024.0 from here on.
  for (; size >= 1023.95 && unit + 1 < std::size(kUnits); ++unit) size /= 1024;
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", size, kUnits[unit]);
  return text;
}

// Of a signed number, which only a file from elsewhere has below zero.
std::string HumanSize(VXR_LE64 bytes) {
  const std::uint64_t size = VxrGet64(bytes);
  return size >> 63 == 0 ? HumanSize(size) : std::to_string(static_cast<std::int64_t>(size)) + " bytes";
}

std::string Decimal(VXR_LE32 number) { return std::to_string(VxrGet32(number)); }

std::string SerialText(VXR_LE32 serial) {
  char text[16];
  std::snprintf(text, sizeof text, "%04X-%04X", VxrGet32(serial) >> 16, VxrGet32(serial) & 0xFFFF);
  return text;
}

void PrintHead(const std::string &path, const VXR_EXTIMAGE &image) {
  PrintLine(path, Style::kBold);
  const bool hot = VxrGet32(image.Header.Magic) == VXR_EXT_MAGIC_HOT;
  PrintLine(hot ? "  hot: recorded while the machine's own system ran"
                : "  cold: recorded while the machine ran from another medium");
}

std::string OsText(const VXR_SYSOSINFO &os) {
  std::string text = VxrGet32(os.PlatformId) == 2 ? "Windows" : PlatformWord(VxrGet32(os.PlatformId));
  text += " " + Decimal(os.MajorVersion) + "." + Decimal(os.MinorVersion) + " build " + Decimal(os.BuildNumber);
  if (VxrGet32(os.ServicePackMajor) != 0 || VxrGet32(os.ServicePackMinor) != 0) {
    text += " Service Pack " + Decimal(os.ServicePackMajor);
    if (VxrGet32(os.ServicePackMinor) != 0) text += "." + Decimal(os.ServicePackMinor);
  }
  if (VxrGet32(os.ProductType) != 0) text += ", " + ProductWord(VxrGet32(os.ProductType));
  return text;
}

void PrintSystem(const VXR_SYSINFO &system, const VXR_ARCHITECT &architect, unsigned codePage) {
  const VXR_SYSOSINFO &os = system.SysOs;
  PrintLine("System", Style::kBold);
  Row(2, "OS", OsText(os));
  Row(2, "Suites", Joined(SuiteWords(VxrGet32(os.SuiteMask))));
  Row(2, "Processors",
      Joined({Decimal(os.NumberOfProcessors), ArchitectureWord(VxrGet32(os.ProcessorArchitecture)),
              "type " + Decimal(os.ProcessorType), "level " + Decimal(os.ProcessorLevel),
              "revision " + HexNumber(VxrGet32(os.ProcessorRevision), 4)}));
  Row(2, "Memory", HumanSize(VxrGet64(os.TotalPhys)) + ", pages of " + Bytes(VxrGet32(os.PageSize)));
  Row(2, "Kernel", KernelWord(VxrGet32(architect.KernelType)));
  Row(2, "HAL", HalWord(VxrGet32(architect.HalType)));
  Row(2, "Ran from", BootMediaWord(VxrGet32(system.BootMedia)));
  Row(2, "System path", FieldText(system.SystemPath, codePage));
  Row(2, "Windows path", FieldText(system.WindowsPath, codePage));
}

// Those names that tell more than the ones before them: as a rule most are the computer's, in one case or the other.
void PrintNames(const VXR_NETINFO &names, unsigned codePage) {
  const auto text = [&](const char(&field)[16]) { return FieldText(field, codePage); };
  const std::string computer = text(names.ComputerName), host = text(names.ComputerNameDnsHostname);
  const std::string netbios = text(names.ComputerNameNetBIOS), domain = text(names.ComputerNameDnsDomain);
  const std::string full = text(names.ComputerNameDnsFullyQualified);
  const struct {
    const char *label;
    std::string text, known;
  } all[] = {{"Computer", computer, ""},
             {"NetBIOS", netbios, computer},
             {"DNS host", host, computer},
             {"DNS domain", domain, ""},
             {"DNS full", full, domain.empty() ? host : host + "." + domain},
             {"Own NetBIOS", text(names.ComputerNamePhysicalNetBIOS), netbios},
             {"Own DNS host", text(names.ComputerNamePhysicalDnsHostname), host},
             {"Own DNS domain", text(names.ComputerNamePhysicalDnsDomain), domain},
             {"Own DNS full", text(names.ComputerNamePhysicalDnsFullyQualified), full}};
  Lines lines;
  for (const auto &name : all) {
    if (!machine::SameUtf8(name.text, name.known)) AddRow(&lines, 2, name.label, name.text);
  }
  if (!lines.empty()) PrintLine("Names", Style::kBold);
  Print(lines);
}

// "2026-11-19 12:00:00 UTC".
std::string HumanTime(VXR_LE64 time) {
  std::string text = TimeText(time);
  if (text.empty()) return "";
  text.resize(text.find_first_of(".Z"));
  text[text.find('T')] = ' ';
  return text + " UTC";
}

// The version resource's texts, as far as they tell more than the file's version and the driver's makers.
std::string ResourceText(const VXR_FILEINFO &file, const VXR_DEVDRV &driver, unsigned codePage) {
  const std::string version = FieldText(file.ProductVersion, codePage), company = FieldText(file.CompanyName, codePage);
  const bool newVersion = version != FieldText(file.FileVersion, codePage);
  const bool newCompany =
      company != FieldText(driver.Manufacturer, codePage) && company != FieldText(driver.ProviderName, codePage);
  return Joined({Quoted(FieldText(file.FileDescription, codePage)), FieldText(file.ProductName, codePage),
                 newVersion ? Prefixed("product version ", version) : "", newCompany ? company : ""});
}

void AddFile(Lines *lines, const char *label, const VXR_FILEINFO &file, const VXR_DEVDRV &driver, unsigned codePage) {
  const std::string name = FieldText(file.FileName, codePage);
  const std::uint64_t size = VxrGet64(file.FileSize);
  const std::string facts = Joined({Prefixed("version ", FieldText(file.FileVersion, codePage)),
                                    size == 0 ? "" : Bytes(size), HumanTime(file.LastWriteTime)});
  AddRow(lines, 8, label, Joined({name, Prefixed("section ", FieldText(file.Section, codePage))}));
  AddRow(lines, 8, name.empty() ? label : "", facts);
  AddRow(lines, 8, "", ResourceText(file, driver, codePage));
}

// Empty for a record without a service.
std::string ServiceText(const VXR_SERVICE &service, unsigned codePage) {
  const std::string name = FieldText(service.Name, codePage), group = FieldText(service.Group, codePage);
  const std::uint32_t type = VxrGet32(service.Type), start = VxrGet32(service.Start), tag = VxrGet32(service.Tag);
  if (name.empty() && group.empty() && type == 0) return "";
  return Joined({name, type == 0 ? "" : ServiceTypeWord(type), ServiceStartWord(start) + " start",
                 Prefixed("group ", Quoted(group)), tag == 0 ? "" : "tag " + std::to_string(tag)});
}

std::string DriverTitle(const VXR_DEVDRV &driver, unsigned codePage) {
  const std::string manufacturer = FieldText(driver.Manufacturer, codePage);
  const std::string provider = FieldText(driver.ProviderName, codePage);
  const std::string title = Joined({FieldText(driver.Description, codePage), manufacturer,
                                    provider == manufacturer ? "" : Prefixed("driver from ", provider)});
  return title.empty() ? "not identified" : title;
}

// Empty when neither is set: 0 stands for a type, too.
std::string DeviceClassText(const VXR_DEVDRV &driver) {
  const VXR_GUID none{};
  const bool hasDevice = driver.InstanceID[0] != '\0';
  const bool hasClass = std::memcmp(&driver.DevGuid, &none, sizeof none) != 0;
  return Joined(
      {hasDevice ? DeviceTypeWord(VxrGet32(driver.DeviceType)) : "", hasClass ? GuidText(driver.DevGuid) : ""});
}

// The service's image path, unless it is the end of the image's own.
std::string StartedAs(const VXR_DEVDRV &driver, unsigned codePage) {
  const std::string path = FieldText(driver.Service.Image, codePage),
                    file = FieldText(driver.ImgFile.FileName, codePage);
  const bool isEnd = path.size() <= file.size() && machine::SameUtf8(file.substr(file.size() - path.size()), path);
  return isEnd ? "" : path;
}

void PrintDriver(const char *label, const VXR_DEVDRV &driver, Page *page) {
  if (!IsRecorded(driver)) return;
  const unsigned codePage = page->codePage;
  Row(6, label, DriverTitle(driver, codePage));
  Row(8, "device", FieldText(driver.InstanceID, codePage));
  Lines lines;
  AddRow(&lines, 8, "class", DeviceClassText(driver));
  AddRow(&lines, 8, "service", ServiceText(driver.Service, codePage));
  AddRow(&lines, 8, "started as", StartedAs(driver, codePage));
  AddFile(&lines, "image", driver.ImgFile, driver, codePage);
  AddFile(&lines, "INF file", driver.InfFile, driver, codePage);
  if (lines.size() < 2 || page->drivers.insert(lines).second) {
    Print(lines);
  } else {
    Row(8, "driver", Joined({FieldText(driver.Service.Name, codePage), "as above"}));
  }
}

void PrintDisk(const VXR_VOLDISK &disk, Page *page) {
  PrintLine("    Disk " + Decimal(disk.DiskExtent.DiskNumber) + ": " + HumanSize(disk.DiskExtent.ExtentLength) +
            ", from " + HumanSize(disk.DiskExtent.StartingOffset) + " on");
  PrintDriver("Disk", disk.DiskDriver, page);
  PrintDriver("Controller", disk.CtrlDriver, page);
  PrintDriver("Bus extender", disk.BusEDriver, page);
}

// Says when a file claims more than it can hold.
void PrintClaim(std::uint32_t claimed, std::uint32_t usable, const char *what) {
  if (claimed == usable) return;
  PrintLine("  The file claims " + std::to_string(claimed) + " " + what + "; it has room for " + std::to_string(usable),
            Style::kBad);
}

void PrintVolume(const VXR_VOLUMES &volumes, std::uint32_t index, Page *page) {
  const unsigned codePage = page->codePage;
  const VXR_VOLUME &volume = volumes.Vols[index];
  const std::uint32_t disks = UsableDisks(volume.VolDisks);
  std::uint64_t size = 0;
  for (std::uint32_t i = 0; i < disks; ++i) size += VxrGet64(volume.VolDisks.Disks[i].DiskExtent.ExtentLength);
  const std::uint32_t flags = VxrGet32(volume.Flags), longest = VxrGet32(volume.MaxLen);
  PrintLine("Volume " + std::to_string(index) + "  " +
                Joined({FieldText(volume.MntPnt, codePage), Quoted(FieldText(volume.Label, codePage)),
                        disks == 0 ? "" : HumanSize(VxrPut64(size)), Prefixed("with ", HeldText(volumes, index))}),
            Style::kBold);
  Row(2, "File system",
      Joined({FieldText(volume.FileSystem, codePage), "serial " + SerialText(volume.Serial),
              longest == 0 ? "" : "names up to " + std::to_string(longest) + " characters",
              flags == 0 ? "" : "flags " + HexNumber(flags, 8)}));
  Row(2, "GUID path", FieldText(volume.Volume, codePage));
  Row(2, "Device", DeviceNameText(volume));
  Row(2, "Name in backup", HasBackupName(volume, codePage) ? FieldText(volume.BMName, codePage) : "none");
  PrintClaim(VxrGet32(volume.VolDisks.DiskCount), disks, "disks for this volume");
  for (std::uint32_t i = 0; i < disks; ++i) PrintDisk(volume.VolDisks.Disks[i], page);
}

}  // namespace

void PrintExtension(const std::string &path, const VXR_EXTIMAGE &image, unsigned codePage) {
  const VXR_BMEXTNSON &extension = image.Extension;
  Page page = {codePage, {}};
  PrintHead(path, image);
  PrintSystem(extension.SysInfo, extension.Architect, codePage);
  PrintNames(extension.NetInfo, codePage);
  const std::uint32_t count = UsableVolumes(extension.Volumes);
  PrintClaim(VxrGet32(extension.Volumes.VolCount), count, "volumes");
  if (count == 0) PrintLine("No volumes recorded", Style::kBold);
  for (std::uint32_t i = 0; i < count; ++i) PrintVolume(extension.Volumes, i, &page);
}
