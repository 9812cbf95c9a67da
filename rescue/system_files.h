// What single files of a restored system tell of it. Files are only read; every path is the host's.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/base/status.h"
#include "platform/machine/hive/hive.h"

namespace rescue {

struct SystemVersion {
  std::uint32_t major = 0, minor = 0;
  auto operator<=>(const SystemVersion &) const = default;
};

std::string Text(const SystemVersion &version);  // "6.1"

// The first that keeps its critical devices in DriverDatabase.
inline constexpr SystemVersion kFirstWithDatabase = {6, 2};

// Of a program or a driver.
struct ImageFacts {
  std::optional<SystemVersion> version;       // of its version resource
  std::uint32_t build = 0, revision = 0;      // of the same; 0 without
  std::optional<std::uint32_t> architecture;  // 0 x86, 5 ARM, 6 Itanium, 9 x64, 12 ARM64; nothing: it is no image
};

// Fails, in the form that follows the file's name, when it cannot be read; what it does not tell stays empty.
machine::Status ReadImage(const std::filesystem::path &file, ImageFacts *facts);

// Why a hive cannot be opened or read, without the hive library's word for damage, which tells nothing.
std::string HiveWords(const machine::Status &failure);
// The same of a restored system's hive: the file has its place, so that no other can be named.
std::string RestoredHiveWords(const machine::Status &failure);

// Values of a hive that was opened; nothing when there is none, or it is of another type.
std::optional<std::uint32_t> ReadHiveNumber(machine::Hive *hive, const std::u16string &key, const char16_t *name);
// UTF-8, up to the terminator.
std::optional<std::string> ReadHiveText(machine::Hive *hive, const std::u16string &key, const char16_t *name);
// The texts of a list, or a single one.
std::vector<std::string> ReadHiveTexts(machine::Hive *hive, const std::u16string &key, const char16_t *name);

// "ControlSet001"
std::u16string ControlSetName(std::uint32_t number);

// By a SOFTWARE hive.
std::optional<SystemVersion> SoftwareVersion(machine::Hive *software);
// Whether a SYSTEM hive is of 6.2 or later; nothing when it has the records of neither.
std::optional<bool> HasDriverDatabase(machine::Hive *system);

}  // namespace rescue
