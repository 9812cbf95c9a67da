// The records that a machine's TOML file becomes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/platform.h"

namespace machine {

// Texts are in the machine's ANSI code page unless a comment says otherwise.

struct System {
  std::string systemDirectory;
  std::string windowsDirectory;
  DWORD osMajor = 0, osMinor = 0, osBuild = 0, osPlatform = 2, servicePackMajor = 0, servicePackMinor = 0;
  DWORD suite = 0, product = 1;
  DWORD processorCount = 1, processorArchitecture = 9, processorType = 8664, processorLevel = 6, processorRevision = 0;
  std::uint64_t memory = std::uint64_t{1} << 30;  // bytes
  DWORD pageSize = 4096;
  unsigned codePage = 1252;
  unsigned language = 0x0409;
  std::optional<std::int64_t> clock;   // seconds since 1970-01-01 UTC; the real clock when absent
  std::optional<std::string> program;  // empty: the host has no first argument
};

struct Names {
  std::string computer, netbios, dnsHostname, dnsDomain, dnsFullyQualified;
  std::string physicalNetbios, physicalDnsHostname, physicalDnsDomain, physicalDnsFullyQualified;
};

struct Extent {
  DWORD disk = 0;
  std::int64_t start = 0, length = 0;  // bytes
};

struct Drive {
  std::string root;            // such as X:\, upper case
  UINT type = 0;               // DRIVE_...
  std::filesystem::path path;  // host directory, absolute; empty: no medium
  std::string label, fileSystem, guidPath, deviceName;
  DWORD serial = 0, flags = 0, maxComponent = 255;
  std::vector<BYTE> uniqueId;
  std::vector<Extent> extents;
};

struct Disk {
  DWORD number = 0;
  std::optional<std::filesystem::path> image;  // host file or block device, absolute
  std::uint64_t cylinders = 0;
  DWORD heads = 0, sectors = 0, bytes = 512;  // geometry; bytes a sector
  std::string interfacePath;                  // empty: none
};

struct Device {
  std::string instance;
  std::string classGuid;  // braced, upper case; empty: no class values at the start
  std::string className;  // empty when the class is unknown by name
  std::vector<std::string> hardwareIds, compatibleIds;
  std::string service, parent;  // empty: none
};

struct HiveFile {
  std::string key;  // below HKEY_LOCAL_MACHINE
  std::filesystem::path file;
};

struct RawValue {
  DWORD type = 0;
  std::vector<BYTE> bytes;  // as stored in a hive
};

struct RegistryValue {
  std::string key, name;                                                              // below HKEY_LOCAL_MACHINE
  std::variant<std::string, std::uint32_t, std::vector<std::string>, RawValue> data;  // texts here are UTF-8
};

struct Prompts {
  std::vector<std::string> driverDirectory;  // a directory, "cancel" or "skip", in turn
  std::vector<std::string> cancelSearch;     // "yes" or "no", in turn
};

struct Description {
  std::filesystem::path file;  // absolute; of a machine from a text only its directory is real
  System system;
  Names names;
  std::vector<Drive> drives;
  std::vector<Disk> disks;
  std::vector<Device> devices;
  std::vector<HiveFile> hives;
  std::vector<RegistryValue> registry;
  Prompts prompts;
};

}  // namespace machine
