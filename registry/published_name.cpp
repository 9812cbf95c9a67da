#include "registry/published_name.h"

#include <algorithm>

#include "engine/base/strings.h"
#include "log/log.h"
#include "registry/boot_record.h"

namespace {

constexpr char kMap[] = "OemInfMap";
constexpr std::size_t kNames = 10000;  // more than any system has

std::string NameOf(std::size_t number) { return "oem" + std::to_string(number) + ".inf"; }

// The map has a bit for each number, number 0 the highest of its first byte.
unsigned char BitOf(std::size_t number) { return static_cast<unsigned char>(0x80u >> number % 8); }

bool HasBit(const std::string &map, std::size_t number) {
  return number / 8 < map.size() && (static_cast<unsigned char>(map[number / 8]) & BitOf(number)) != 0;
}

void SetBit(std::string *map, std::size_t number) {
  if (number / 8 >= map->size()) map->resize(number / 8 + 1);
  char &byte = (*map)[number / 8];
  byte = static_cast<char>(static_cast<unsigned char>(byte) | BitOf(number));
}

bool InUse(const RegistryEdits &edits, const std::string &windowsInf, const std::string &name) {
  return KeyExists(edits, kDatabaseInfFiles + name) ||
         (!windowsInf.empty() &&
          platform::GetFileAttributesA((windowsInf + "\\" + name).c_str()) != INVALID_FILE_ATTRIBUTES);
}

// The first free number, whose bit and those of numbers in use are then set; kNames when there is none.
std::size_t TakeNumber(const RegistryEdits &edits, const std::string &windowsInf, std::string *map) {
  for (std::size_t number = 0; number < kNames; ++number) {
    if (HasBit(*map, number)) continue;
    const bool used = InUse(edits, windowsInf, NameOf(number));
    SetBit(map, number);
    if (!used) return number;
  }
  return kNames;
}

}  // namespace

bool IsPublishedName(const std::string &name) {
  constexpr std::size_t kLongest = sizeof "oem9999.inf" - 1, kDigits = 3, kRest = sizeof "oem.inf" - 1;
  if (name.size() <= kRest || name.size() > kLongest || !BeginsWith(name.c_str(), "oem")) return false;
  const std::size_t end = name.size() - (kRest - kDigits);
  return std::all_of(name.begin() + kDigits, name.begin() + static_cast<std::ptrdiff_t>(end),
                     [](char c) { return c >= '0' && c <= '9'; }) &&
         VXREng_StrICmp(name.c_str() + end, ".inf") == 0;
}

bool TakePublishedName(const std::string &windowsInf, RegistryEdits *edits, std::string *name) {
  const CallTrace trace = TraceCall();
  RegistryData map;
  if (!ReadValue(*edits, kDriverDatabase, kMap, &map) || map.type != REG_BINARY) map = BytesData({});
  std::size_t number = TakeNumber(*edits, windowsInf, &map.bytes);
  if (number == kNames) {
    // A map without a free number is none that Windows wrote.
    map.bytes.clear();
    number = TakeNumber(*edits, windowsInf, &map.bytes);
  }
  if (number == kNames) {
    trace.Error("no name for an INF file is free up to %s\n", NameOf(kNames - 1).c_str());
    return false;
  }
  SetValue(edits, kDriverDatabase, kMap, map);
  *name = NameOf(number);
  trace.Check("the package is to be published as %s\n", name->c_str());
  return true;
}
