// Real hive files for tests and examples.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

// One value, or one key: with an empty name and no data the key alone is made, with data its default value. Texts are
// UTF-8.
struct HiveValue {
  std::string key;  // below the root, such as Select or ControlSet001\Services\disk; made when missing; empty: the root
  std::string name;
  uint32_t type = 1;
  std::vector<uint8_t> data;  // as stored; at most 16,344 bytes
};

inline constexpr uint32_t kNoCell = 0xFFFFFFFF;  // in the place of an offset

// The letter as hives compare and hash it: Latin-1 in upper case, others as they are.
char16_t HiveUpper(char16_t c);

// The bytes of a clean hive (regf 1.5, sequence numbers 1/1) that holds these values: subkeys in the order that Windows
// keeps, with their hashes; names in Latin-1 where they can be, else in UTF-16; bins of 4,096 bytes. The later of two
// values of one name holds.
std::vector<uint8_t> BuildHive(const std::vector<HiveValue> &values);
// A hive with nothing but its root key.
std::vector<uint8_t> MinimalHive();
// Writes a hive that holds these values; an old file is replaced. Throws when it cannot be written.
void WriteHive(const std::filesystem::path &file, const std::vector<HiveValue> &values);
// Sets the base block's checksum (with its two exceptions) after a test has changed the block.
void SetHiveChecksum(std::vector<uint8_t> *hive);

HiveValue OnlyKey(std::string key);
// Values as stored: UTF-16LE with terminator, and a 32-bit number.
HiveValue TextValue(std::string key, std::string name, const std::string &utf8);
HiveValue NumberValue(std::string key, std::string name, uint32_t number);
// The values of a SYSTEM hive: Select with Current, Default, LastKnownGood; control sets 001 and 002, each with
// Services, Control\CriticalDeviceDatabase, Enum, and a few of their usual entries.
std::vector<HiveValue> SystemHiveValues(uint32_t current);
