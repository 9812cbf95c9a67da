// What a restored system's hive must hold so that its kernel starts a driver for a device that it has never met: up to
// 6.1 entries of the critical-device database, from 6.2 on a package in DriverDatabase.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "registry/edits.h"

// Where a DriverDatabase keeps its INF files, ids and packages; each ends in a backslash.
inline constexpr char kDriverDatabase[] = "DriverDatabase";
inline constexpr char kDatabaseInfFiles[] = "DriverDatabase\\DriverInfFiles\\";
inline constexpr char kDatabaseDeviceIds[] = "DriverDatabase\\DeviceIds\\";
inline constexpr char kDatabasePackages[] = "DriverDatabase\\DriverPackages\\";

struct BootRecordId {
  std::string id;            // as the model line lists it
  std::size_t position = 0;  // on that line: 0 its hardware id, k its compatible id number k from 1
};

struct BootRecord {
  std::string service;
  GUID classGuid = {};
  std::vector<BootRecordId> ids;  // those of the line that the device has
  std::vector<std::string> upperFilters, lowerFilters;

  // What the DriverDatabase keeps beside; empty texts are not written.
  WORD architecture = 0;     // PROCESSOR_ARCHITECTURE_... of the restored system
  bool configScope = false;  // 10.0 and later
  std::string infName;       // the package's own file name: "kstore.inf"
  std::string infPath;       // its directory, kept as the package's origin
  std::string catalog;
  std::string section;  // as the model line names it
  std::string provider;
  std::string description, manufacturer;                     // as written, with their tokens
  std::vector<std::pair<std::string, std::string>> strings;  // the tokens of these two, names without percent signs
  std::vector<std::string> includes;                         // INF files that the section includes
  DWORD featureScore = 0xFF;
  DWORD64 date = 0;     // 100 ns since 1601
  DWORD64 version = 0;  // the first of four numbers highest
  // Values below the package's Configurations\SECTION: keys relative to it, such as
  // "Device\Interrupt Management\MessageSignaledInterruptProperties" or "Services\kstore\Parameters".
  std::vector<RegistryEdit> configuration;
};

// Whether a text from outside can be one key's name: not empty, at most 255 characters, no backslash, no NUL.
bool PlainKeyName(const std::string &name);
// Whether it is such names with a backslash between them.
bool PlainKeyPath(const std::string &path);

// Whether the mounted hive is of a system that reads DriverDatabase.
bool HasDriverDatabase(const RegistryEdits &edits);

// Plans the record that the hive needs. `windowsInf` is the restored system's inf directory, in which a published name
// is not taken either. `*publishedName` gets the INF name under which a DriverDatabase keeps the package ("oem4.inf"):
// that of the same package when it is there already, else a free one; empty where the record needs none. False, with
// the reason and nothing planned, when a DriverDatabase has no free name, or the kernel could not find the record
// there.
bool PlanBootRecord(const BootRecord &record, const std::string &controlSet, const std::string &windowsInf,
                    RegistryEdits *edits, std::string *publishedName, std::string *reason);

// The key of an id's entry in the critical-device database, whose name has "#" for each "\". Empty when the id cannot
// name a key.
std::string CriticalDeviceKey(const std::string &controlSet, const std::string &id);
// Plans the entries of the critical-device database, also where the hive is of a system that does not read them.
void PlanCriticalDevices(const BootRecord &record, const std::string &controlSet, RegistryEdits *edits);

// Lets a service that is there start with the system: Start 0 and no StartOverride, in every control set that has it.
void PlanServiceStart(const std::string &service, RegistryEdits *edits);
// Whether the service is there and would not start with the system.
bool HeldBack(const RegistryEdits &edits, const std::string &controlSet, const std::string &service);
