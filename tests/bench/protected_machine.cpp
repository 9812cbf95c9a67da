#include "tests/bench/protected_machine.h"

#include <fstream>
#include <string>

#include "tests/bench/inf_directory.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned kRecordedDisks = 8, kVolumes = 4;
constexpr unsigned kOtherInfFiles = 50;

constexpr const char *kSystem = R"(
[system]
system_directory = 'C:\Windows\System32'
windows_directory = 'C:\Windows'
os = { major = 6, minor = 1, build = 7601, platform = 2, sp_major = 1, sp_minor = 0, suite = 0x100, product = 1 }
processor = { count = 2, architecture = 9, type = 8664, level = 6, revision = 0x3A09 }
memory = 8589934592

[names]
computer = 'PROTECTED'

[registry.'SOFTWARE\Varnelt\Halcyra']
HCDIR = 'C:\Halcyra'

[registry.'SYSTEM\CurrentControlSet\Services\disk']
Type = 1
Start = 0
Group = 'SCSI Class'
Tag = 2
ImagePath = 'System32\DRIVERS\disk.sys'

[registry.'SYSTEM\CurrentControlSet\Services\fast']
Type = 1
Start = 0
Group = 'SCSI miniport'
Tag = 33
ImagePath = 'fast.sys'

[[device]]
instance = 'ROOT\ACPI_HAL\0000'
class = 'Computer'
hardware_ids = ['acpiapic_mp']
)";

std::string InfText(const char *className, const char *guid, const char *id, const char *service) {
  return std::string("[Version]\r\nSignature = \"$Windows NT$\"\r\nClass = ") + className + "\r\nClassGUID = " + guid +
         "\r\nProvider = %Maker%\r\nDriverVer = 03/04/2011,1.2.3.4\r\n\r\n[Manufacturer]\r\n%Maker% = Models, "
         "NTamd64\r\n"
         "\r\n[Models.NTamd64]\r\n%Name% = Inst, " +
         id + "\r\n\r\n[Inst.Services]\r\nAddService = " + service +
         ", 2, Service\r\n\r\n[Service]\r\nServiceType = 1\r\n\r\n[Strings]\r\nMaker = \"Maker\"\r\nName = "
         "\"Device\"\r\n";
}

void AddAdapter(unsigned number, std::string *toml) {
  const std::string at = std::to_string(number);
  *toml += "\n[[device]]\ninstance = 'PCI\\VEN_1000&DEV_0030&SUBSYS_00000000&REV_01\\3&" + at +
           "&0&80'\nclass = 'SCSIAdapter'\nhardware_ids = ['PCI\\VEN_1000&DEV_0030']\nservice = 'fast'\n"
           "parent = 'ROOT\\ACPI_HAL\\0000'\n";
}

void AddDisk(unsigned number, std::string *toml) {
  const std::string at = std::to_string(number);
  *toml += "\n[[device]]\ninstance = 'SCSI\\Disk&Ven_ACME&Prod_FAST_DISK&Rev_1.0\\4&" + at +
           "&0&000000'\nclass = 'DiskDrive'\nhardware_ids = ['GenDisk']\nservice = 'disk'\n"
           "parent = 'PCI\\VEN_1000&DEV_0030&SUBSYS_00000000&REV_01\\3&" +
           at + "&0&80'\n\n[[disk]]\nnumber = " + at +
           "\ngeometry = { cylinders = 7832, heads = 255, sectors = 63, bytes = 512 }\n"
           "interface = '\\\\?\\scsi#disk&ven_acme&prod_fast_disk&rev_1.0#4&" +
           at + "&0&000000#{53f56307-b6bf-11d0-94f2-00a0c91efb8b}'\n";
}

void AddOther(unsigned number, std::string *toml) {
  *toml += "\n[[device]]\ninstance = 'PCI\\VEN_8086&DEV_10D3&SUBSYS_00000000&REV_00\\4&" + std::to_string(number) +
           "&0&00E0'\nclass = 'Net'\nhardware_ids = ['PCI\\VEN_8086&DEV_10D3']\n";
}

void AddVolume(unsigned index, unsigned firstDisk, std::string *toml) {
  const std::string letter(1, static_cast<char>('C' + index));
  const std::string first = std::to_string(firstDisk), second = std::to_string(firstDisk + 1);
  *toml +=
      "\n[[drive]]\nroot = '" + letter + ":\\'\ntype = 'fixed'\npath = '" + letter + "'\nlabel = 'VOLUME" + letter +
      "'\nfile_system = 'NTFS'\nserial = 305419896\nguid_path = '\\\\?\\Volume{11111111-0000-0000-0000-00000000000" +
      std::to_string(index) + "}\\'\ndevice_name = '\\Device\\HarddiskVolume" + std::to_string(index + 1) +
      "'\nunique_id = '01 02 03 04'\nextents = [{ disk = " + first +
      ", start = 1048576, length = 1073741824 }, { disk = " + second + ", start = 1048576, length = 1073741824 }]\n";
}

}  // namespace

BenchMachine MakeProtectedMachine(unsigned devices) {
  const fs::path folder = MakeBenchFolder();
  for (const char *directory : {"C/Windows/System32/drivers", "C/Halcyra/logs.dir", "D", "E", "F"})
    fs::create_directories(folder / directory);
  MakeInfDirectory(folder / "C/Windows/inf", kOtherInfFiles);
  std::ofstream(folder / "C/Windows/inf/disk.inf")
      << InfText("DiskDrive", "{4D36E967-E325-11CE-BFC1-08002BE10318}", "GenDisk", "disk");
  std::ofstream(folder / "C/Windows/inf/fast.inf")
      << InfText("SCSIAdapter", "{4D36E97B-E325-11CE-BFC1-08002BE10318}", "PCI\\VEN_1000&DEV_0030", "fast");
  for (const char *driver : {"disk.sys", "fast.sys"})
    std::ofstream(folder / "C/Windows/System32/drivers" / driver) << "a driver without a version";

  std::string toml = kSystem;
  const unsigned others = devices - 2 * kRecordedDisks - 1;
  const unsigned otherDisks = others / 4;
  for (unsigned i = 0; i < otherDisks; ++i) AddAdapter(i, &toml);
  for (unsigned i = 0; i < otherDisks; ++i) AddDisk(i, &toml);
  for (unsigned i = 2 * otherDisks; i < others; ++i) AddOther(i, &toml);
  for (unsigned i = 0; i < kRecordedDisks; ++i) AddAdapter(otherDisks + i, &toml);
  for (unsigned i = 0; i < kRecordedDisks; ++i) AddDisk(otherDisks + i, &toml);
  for (unsigned i = 0; i < kVolumes; ++i) AddVolume(i, otherDisks + 2 * i, &toml);
  std::ofstream(folder / "machine.toml") << toml;
  return {folder};
}
