// The restored Windows as its own files tell of it. Files are only read; every path is the host's.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/base/status.h"

namespace rescue {

struct RestoredSystem {
  std::filesystem::path volume;    // the root of its volume
  std::filesystem::path windows;   // its Windows directory, as spelled on disk
  std::filesystem::path system32;  // as spelled on disk; so are the next
  std::filesystem::path systemHive, softwareHive;
  char drive = 'C';  // its own letter for the volume

  std::uint32_t major = 0, minor = 0, build = 0;
  std::optional<std::uint32_t> revision;  // of the build ("UBR")
  std::uint32_t architecture = 9;         // 0 x86, 6 Itanium, 9 x64, 12 ARM64
  std::uint32_t product = 1;              // 1 workstation, 2 domain controller, 3 server
  std::uint32_t suite = 0;                // bits
  std::uint32_t language = 0x0409;
  std::uint32_t codePage = 1252;  // ANSI
  std::uint32_t controlSet = 1;
  bool driverDatabase = false;       // its SYSTEM hive has one: 6.2 and later
  std::string productName, edition;  // "Windows 10 Pro", "Professional"
  std::string release;               // "22H2"; empty: none
  std::string computerName;
  std::string hiveReplay;           // "replayed 14 entries from two logs"; empty: the hive was closed cleanly
  std::vector<std::string> doubts;  // where its files contradict each other, one line each
};

// The Windows directory below `root`, which is the volume's root or that directory itself. Fails, with one line that
// says what to name, when there is none, or more than one.
machine::Status FindWindows(const std::filesystem::path &root, RestoredSystem *system);

// All other facts of a system that was found. Fails, with one line, when they do not tell enough to choose drivers.
machine::Status ReadRestoredSystem(RestoredSystem *system);

}  // namespace rescue
