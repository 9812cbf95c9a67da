// Changes of the mounted restored hive that are decided and not made yet. Reading through them shows the hive as it
// would be; a change that would leave everything as it is is not taken up, so a second run plans nothing. What cannot
// be read is remembered (`unread`).
//
// Keys are paths below the hive's root, such as "ControlSet001\Services\disk"; names of keys and values have no regard
// to case. The empty value name is the key's default value. Texts are in the ANSI code page and stored as
// RegSetValueExA takes them: with their terminators.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/platform.h"

struct RegistryData {
  DWORD type = REG_NONE;
  std::string bytes;
};

struct RegistryEdit {
  enum class Kind { kCreateKey, kSetValue, kDeleteValue, kDeleteKey };
  Kind kind = Kind::kSetValue;
  std::string key, name;
  RegistryData data;
};

struct RegistryEdits {
  std::vector<RegistryEdit> list;  // in order; only the functions below add to it

  // What the list makes of keys and values, by their names without regard to case: numbers of edits, from 1 on.
  std::unordered_map<std::string, std::size_t> keysMade, keysDeleted;  // the latest that has the key exist, or not
  std::unordered_map<std::string, std::size_t> values;                 // the latest of a value, by key, NUL and name
  // Of a key: names of sub-keys and of values that came into the list.
  std::unordered_map<std::string, std::vector<std::string>> newKeys, newValues;

  // The first key or value of the hive that could not be read, and why; empty: none so far. It counted as missing, so
  // the list is built on what may not be so: it is not to be used, and ApplyEdits refuses it.
  mutable std::string unread;
};

bool KeyExists(const RegistryEdits &edits, const std::string &key);
bool ReadValue(const RegistryEdits &edits, const std::string &key, const std::string &name, RegistryData *data);
bool ReadNumber(const RegistryEdits &edits, const std::string &key, const std::string &name, DWORD *number);
// A text without its terminator; false when there is none or it is of another type.
bool ReadText(const RegistryEdits &edits, const std::string &key, const std::string &name, std::string *text);
// Names in the hive's order, created ones behind.
std::vector<std::string> SubKeys(const RegistryEdits &edits, const std::string &key);
std::vector<std::string> ValueNames(const RegistryEdits &edits, const std::string &key);

// Creates the key and those above it where they are missing.
void CreateKey(RegistryEdits *edits, const std::string &key);
// Creates the key too.
void SetValue(RegistryEdits *edits, const std::string &key, const std::string &name, const RegistryData &data);
void DeleteValue(RegistryEdits *edits, const std::string &key, const std::string &name);
// With everything below it.
void DeleteKey(RegistryEdits *edits, const std::string &key);

RegistryData NumberData(DWORD number);
RegistryData TextData(const std::string &text, DWORD type = REG_SZ);
RegistryData ListData(const std::vector<std::string> &texts);  // REG_MULTI_SZ
RegistryData BytesData(const std::string &bytes, DWORD type = REG_BINARY);
// The texts of a REG_MULTI_SZ.
std::vector<std::string> ListTexts(const RegistryData &data);

// "ControlSet001" of 1.
std::string ControlSetName(DWORD number);
// The control sets of the mounted hive, such as {"ControlSet001", "ControlSet002"}, in the order of their numbers.
std::vector<std::string> ControlSets(const RegistryEdits &edits);

// Makes the changes, in order. On a failure, which is logged and named in `*failed`, takes back what was made, the last
// one first, and returns false; `*restored` then says whether the hive is as it was; one that is not is discarded
// (DiscardHive). Something to be deleted that is not there is a failure too: it was there when the change was planned.
bool ApplyEdits(const RegistryEdits &edits, std::string *failed, bool *restored);
