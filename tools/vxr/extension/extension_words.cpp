#include "tools/vxr/extension/extension_words.h"

#include <cstddef>

#include "tools/vxr/extension/extension_file.h"

namespace {

struct Word {
  std::uint32_t value;
  const char *text;
};

constexpr Word kKernels[] = {{VXR_KRNL_UP, "one processor"},
                             {VXR_KRNL_UP_PAE, "one processor, 4 GiB or more (PAE)"},
                             {VXR_KRNL_MP, "several processors"},
                             {VXR_KRNL_MP_PAE, "several processors, 4 GiB or more (PAE)"}};

constexpr Word kHals[] = {{VXR_HAL_E_ISA_UP, "standard PC (hal.dll)"},
                          {VXR_HAL_ACPIPIC_UP, "ACPI PIC-based PC (halacpi.dll)"},
                          {VXR_HAL_ACPIAPIC_UP, "ACPI APIC-based PC, one processor (halaacpi.dll)"},
                          {VXR_HAL_ACPIAPIC_MP, "ACPI APIC-based PC, several processors (halmacpi.dll)"},
                          {VXR_HAL_MPS_UP, "MPS PC, one processor (halapic.dll)"},
                          {VXR_HAL_MPS_MP, "MPS PC, several processors (halmps.dll)"}};

constexpr Word kBootMedia[] = {{VXR_BOOTMEDIA_DISK, "fixed disk"},
                               {VXR_BOOTMEDIA_CDROM, "CD-ROM"},
                               {VXR_BOOTMEDIA_NET, "network"},
                               {VXR_BOOTMEDIA_RAM, "RAM disk"},
                               {VXR_BOOTMEDIA_UNKNOWN, "unknown"}};

constexpr Word kArchitectures[] = {{0, "x86"},  {1, "mips"},  {2, "alpha"},     {3, "ppc"},
                                   {4, "shx"},  {5, "arm"},   {6, "ia64"},      {7, "alpha64"},
                                   {8, "msil"}, {9, "amd64"}, {10, "ia32win64"}};

constexpr Word kPlatforms[] = {{0, "Win32s"}, {1, "Windows 9x"}, {2, "Windows NT"}};

constexpr Word kProducts[] = {{1, "workstation"}, {2, "domain controller"}, {3, "server"}};

constexpr Word kDeviceTypes[] = {{VXR_DEVTYPE_DISKDRIVE, "disk drive"},
                                 {VXR_DEVTYPE_HDC, "IDE controller"},
                                 {VXR_DEVTYPE_SCSIADAPTER, "SCSI or RAID controller"},
                                 {VXR_DEVTYPE_NET, "network adapter"},
                                 {VXR_DEVTYPE_UNKNOWN, "unknown"}};

constexpr Word kServiceTypes[] = {{0x1, "kernel driver"},     {0x2, "file system driver"}, {0x4, "adapter"},
                                  {0x8, "recognizer driver"}, {0x10, "own process"},       {0x20, "shared process"}};

constexpr Word kServiceStarts[] = {{0, "boot"}, {1, "system"}, {2, "automatic"}, {3, "manual"}, {4, "disabled"}};

constexpr Word kSuites[] = {{0x1, "small business"},
                            {0x2, "enterprise"},
                            {0x4, "back office"},
                            {0x8, "communications"},
                            {0x10, "terminal services"},
                            {0x20, "small business, restricted"},
                            {0x40, "embedded"},
                            {0x80, "datacenter"},
                            {0x100, "remote desktop for one user"},
                            {0x200, "home"},
                            {0x400, "web"},
                            {0x800, "embedded, restricted"},
                            {0x1000, "security appliance"}};

constexpr Word kVolumeTypes[] = {{0x1, "boot.ini"}, {0x2, "system directory"}, {0x400, "recorded"}};

template <std::size_t kCount>
std::string WordOf(const Word (&words)[kCount], std::uint32_t value) {
  for (const Word &word : words) {
    if (word.value == value) return word.text;
  }
  return "unknown " + std::to_string(value);
}

template <std::size_t kCount>
std::vector<std::string> BitWords(const Word (&words)[kCount], std::uint32_t bits) {
  std::vector<std::string> result;
  for (const Word &word : words) {
    if ((bits & word.value) != 0) result.emplace_back(word.text);
    bits &= ~word.value;
  }
  if (bits != 0) result.push_back(HexNumber(bits, 0));
  return result;
}

}  // namespace

std::string KernelWord(std::uint32_t type) { return WordOf(kKernels, type); }
std::string HalWord(std::uint32_t type) { return WordOf(kHals, type); }
std::string BootMediaWord(std::uint32_t media) { return WordOf(kBootMedia, media); }
std::string ArchitectureWord(std::uint32_t code) { return WordOf(kArchitectures, code); }
std::string PlatformWord(std::uint32_t platform) { return WordOf(kPlatforms, platform); }
std::string ProductWord(std::uint32_t type) { return WordOf(kProducts, type); }
std::string DeviceTypeWord(std::uint32_t type) { return WordOf(kDeviceTypes, type); }
std::string ServiceTypeWord(std::uint32_t type) { return WordOf(kServiceTypes, type); }
std::string ServiceStartWord(std::uint32_t start) { return WordOf(kServiceStarts, start); }
std::vector<std::string> SuiteWords(std::uint32_t mask) { return BitWords(kSuites, mask); }
std::vector<std::string> VolumeTypeWords(std::uint32_t bits) { return BitWords(kVolumeTypes, bits); }
