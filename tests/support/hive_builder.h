// Real hive files for tests and examples.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

struct HiveValue {
  std::string key;   // below the root, such as Select or ControlSet001\Services\disk; made when missing
  std::string name;
  uint32_t type = 1;
  std::vector<uint8_t> data;  // as stored
};

// A clean hive (regf 1.5) with nothing but its root key.
std::vector<uint8_t> MinimalHive();
// Writes a hive that holds these values. A value with an empty name only makes its key.
void WriteHive(const std::filesystem::path &file, const std::vector<HiveValue> &values);
// Values as stored: UTF-16LE with terminator, and a 32-bit number.
HiveValue TextValue(std::string key, std::string name, const std::string &utf8);
HiveValue NumberValue(std::string key, std::string name, uint32_t number);
// The values of a SYSTEM hive: Select with Current, Default, LastKnownGood; control sets 001 and 002, each with Services,
// Control\CriticalDeviceDatabase, Enum, and a few of their usual entries.
std::vector<HiveValue> SystemHiveValues(uint32_t current);
