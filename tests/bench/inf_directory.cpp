#include "tests/bench/inf_directory.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>

namespace {

struct ClassName {
  const char *name, *guid;
};

constexpr std::array<ClassName, 5> kClasses = {{{"SCSIAdapter", "{4D36E97B-E325-11CE-BFC1-08002BE10318}"},
                                                {"Net", "{4D36E972-E325-11CE-BFC1-08002BE10318}"},
                                                {"Display", "{4D36E968-E325-11CE-BFC1-08002BE10318}"},
                                                {"USB", "{36FC9E60-C465-11CF-8056-444553540000}"},
                                                {"System", "{4D36E97D-E325-11CE-BFC1-08002BE10318}"}}};

constexpr std::array<const char *, 12> kVendors = {"Aldane", "Borrin", "Castel", "Dunmore", "Ellvik",  "Farrow",
                                                   "Gantry", "Hollin", "Iskan",  "Jorvik",  "Kestrel", "Lomond"};

template <typename... Arguments>
void Append(std::string *text, const char *format, Arguments... arguments) {
  char line[512];
  std::snprintf(line, sizeof line, format, arguments...);
  *text += line;
}

void AppendModels(std::string *text, std::mt19937 *random, unsigned file, const char *decoration, unsigned count) {
  Append(text, "\r\n[Models%s]\r\n", decoration);
  for (unsigned i = 0; i < count; ++i) {
    const unsigned vendor = 0x2000 + (*random)() % 0x4000, device = (*random)() % 0x10000;
    Append(text, "%%Device%u%% = Install%u, PCI\\VEN_%04X&DEV_%04X&SUBSYS_%08X, PCI\\VEN_%04X&DEV_%04X ; model %u\r\n",
           i % 8, file % 3, vendor, device, static_cast<unsigned>((*random)()), vendor, device, i);
  }
}

std::string InfText(std::mt19937 *random, unsigned file) {
  const ClassName &deviceClass = kClasses[(*random)() % kClasses.size()];
  const char *vendor = kVendors[(*random)() % kVendors.size()];
  const std::size_t size = 2048 + (*random)() % (38 * 1024);
  std::string text;
  Append(&text, "; %s driver package %u\r\n;\r\n\r\n[Version]\r\nSignature   = \"$Windows NT$\"\r\n", vendor, file);
  Append(&text, "Class       = %s\r\nClassGUID   = %s\r\nProvider    = %%Vendor%%\r\n", deviceClass.name,
         deviceClass.guid);
  Append(&text, "DriverVer   = %02u/%02u/20%02u,%u.%u.%u.0\r\nCatalogFile = drv%u.cat\r\n", 1 + file % 12,
         1 + file % 28, 5 + file % 15, 1 + file % 9, file % 10, file % 1000, file);
  Append(&text, "\r\n[Manufacturer]\r\n%%Vendor%% = Models, NTx86, NTamd64\r\n");
  const unsigned models = static_cast<unsigned>(size / 400);
  AppendModels(&text, random, file, ".NTx86", models);
  AppendModels(&text, random, file, ".NTamd64", models);
  for (unsigned i = 0; i < 3; ++i) {
    Append(&text, "\r\n[Install%u]\r\nCopyFiles = Copy%u\r\n\r\n[Copy%u]\r\ndrv%u.sys\r\n", i, i, i, file);
    Append(&text, "\r\n[Install%u.Services]\r\nAddService = drv%u, 0x00000002, Service\r\n", i, file);
  }
  Append(&text, "\r\n[Service]\r\nServiceType = 1\r\nStartType = 0\r\nErrorControl = 1\r\n");
  Append(&text, "ServiceBinary = %%12%%\\drv%u.sys\r\nLoadOrderGroup = SCSI miniport\r\n", file);
  Append(&text, "\r\n[Strings]\r\nVendor = \"%s Systems\"\r\n", vendor);
  for (unsigned i = 0; i < 8; ++i) Append(&text, "Device%u = \"%s adapter model %u; rev A\"\r\n", i, vendor, i);
  while (text.size() < size)
    Append(&text, "; %08X remark that a real package carries\r\n", static_cast<unsigned>((*random)()));
  return text;
}

std::string Utf16(const std::string &text) {
  std::string wide = "\xFF\xFE";
  for (const char c : text) {
    wide += c;
    wide += '\0';
  }
  return wide;
}

}  // namespace

void MakeInfDirectory(const std::filesystem::path &directory, unsigned count) {
  std::filesystem::create_directories(directory);
  std::mt19937 random(20261124);
  for (unsigned i = 0; i < count; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "drv%05u.inf", i);
    const std::string text = InfText(&random, i);
    std::ofstream(directory / name, std::ios::binary) << (i % 10 == 9 ? Utf16(text) : text);
  }
}
