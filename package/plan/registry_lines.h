// Lines of AddReg, DelReg and BitReg sections: what one asks for, and what it makes of a value.
#pragma once

#include <string>
#include <vector>

#include "package/read/installation.h"
#include "registry/edits.h"

namespace package {

inline constexpr std::size_t kKeyLevels = 32;         // that one call creates
inline constexpr std::size_t kValueNameMax = 16383;   // characters
inline constexpr std::size_t kValueBytesMax = 16344;  // as stored: what every hive can hold in one piece

// A line, its flags and data read.
struct RegistryChange {
  enum class Kind {
    kCreateKey,
    kSetValue,
    kAppendTexts,  // to a REG_MULTI_SZ
    kDeleteKey,
    kDeleteValue,
    kDeleteText,  // from a REG_MULTI_SZ
    kBits
  };
  Kind kind = Kind::kSetValue;
  bool onlyMissing = false, onlyPresent = false;  // set the value only when there is none yet, or there is one
  RegistryData data;
  std::vector<std::string> texts;  // of the kinds that are about single ones
  BYTE mask = 0;                   // kBits
  DWORD byte = 0;
  bool setBits = false;
};

// False, with what is wrong in `*problem`, for a line that cannot be carried out. `*problem` may be set beside true:
// what was taken for another than it says.
bool ReadRegistryLine(const RegistryLine &line, RegistryChange *change, std::string *problem);

// The components of a key path, empty ones left out; false when one is no name of a key, or there are too many.
bool KeyComponents(const std::string &path, std::vector<std::string> *components);
// With backslashes between them.
std::string JoinComponents(const std::vector<std::string> &components);

// What the change makes of the value that was there, if any (REG_NONE and no bytes otherwise). False when it leaves it.
bool ChangedValue(const RegistryChange &change, bool present, const RegistryData &old, RegistryData *changed);

// The change as planned. False, with nothing changed, when the value would be larger than kValueBytesMax.
bool PlanChange(const RegistryChange &change, const std::string &key, const std::string &name, RegistryEdits *edits);

}  // namespace package
