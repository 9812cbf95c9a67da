// What an install section asks for, as data: read, not yet judged against a system.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "package/read/inf_source.h"

namespace package {

// A file of a copy list. `list` is the section that names it, empty for "@file"; names are as the INF file has them and
// hostile. The source's is the target's where the line gives none.
struct FileLine {
  std::string list, target, source;
  DWORD flags = 0;
  bool serves = false;  // a service of the installation names it as its binary
  std::size_t inf = 0;  // of Installation::infs
};

enum class RegistryVerb { kAdd, kDelete, kBits };

// A line of an AddReg, DelReg or BitReg section, tokens replaced.
struct RegistryLine {
  RegistryVerb verb = RegistryVerb::kAdd;
  std::string section;  // for messages
  std::string root, key, name;
  std::string flagsText;          // as it stands; empty: none
  std::vector<std::string> data;  // fields from the value on
};

// An AddService line and its service-install section.
struct ServiceLines {
  std::string name;
  DWORD flags = 0;      // SPSVCINST_...
  std::string section;  // service-install section
  std::optional<DWORD> type, start, errorControl, bootFlags;
  std::string binary;  // as written: "%12%\x.sys"
  std::string group, displayName, description, startName;
  std::vector<std::string> dependOnServices, dependOnGroups;
  std::vector<RegistryLine> registry;  // in the order in which they are carried out; HKR is the service's key
  std::size_t inf = 0;                 // of Installation::infs
};
inline constexpr DWORD kFunctionDriver = 0x2;  // SPSVCINST_ASSOCSERVICE
inline constexpr DWORD kDriverTypes = 0xB;     // of a service's type: kernel, file system, recognizer
inline constexpr DWORD kUsualType = 0x1;       // a kernel driver: what a service is that does not say

struct Installation {
  std::vector<InfSource> infs;  // the driver's own first, then those that Include named
  std::string section;          // the section taken, its suffix included
  std::vector<FileLine> files;
  std::vector<RegistryLine> registry;  // the install section's; HKR is the device's software key
  std::vector<RegistryLine> hardware;  // its .HW section's; HKR is the device's key below Enum
  std::vector<ServiceLines> services;  // in file order
  bool noService = false;              // "AddService = ,2": the device needs none
  std::vector<std::string> excludedIds;
  std::vector<std::string> includes;  // INF files that Include names, found or not
  std::vector<std::string> notes;     // what was passed over, a sentence each
  std::vector<std::string> absent;    // the notes on what Include and Needs name and is not found; the first few
  std::string catalog;                // of [Version], the platform's own form first; empty: none
  DWORD featureScore = 0xFF;          // 0x00 to 0xFF
  std::string date, version;          // of DriverVer, the section's own over [Version]'s; as written
};

// Where INF files that Include names are sought: the restored system's inf directory, then its driver store's folders
// of that name. Empty: only the driver's own file.
struct IncludePlaces {
  std::string infDirectory;
  std::string driverStore;  // its FileRepository
};

// The section that the target takes for an install section's name (".ntamd64", ".nt", none); empty when there is none.
std::string ActualSection(machine::InfFile *file, const std::string &name, const Target &target);

// Reads what the section `name` of a model line asks for. False, with the reason, when no form of it is there, or when
// it asks for more than any driver does.
bool ReadInstallation(const InfSource &inf, const std::string &name, const Target &target, const IncludePlaces &places,
                      Installation *installation, std::string *reason);

// The first service that is the device's function driver; null when there is none.
const ServiceLines *FunctionDriver(const Installation &installation);

}  // namespace package
