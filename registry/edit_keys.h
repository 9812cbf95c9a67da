// Keys of the mounted restored hive by their paths below its root.
#pragma once

#include <string>
#include <vector>

#include "registry/edits.h"
#include "registry/opened_key.h"

inline constexpr std::size_t kKeyNameMax = 255;  // characters of one key's name; what the registry takes

// The names that a path consists of; empty ones are dropped. A backslash that is the second byte of a character
// separates nothing.
std::vector<std::string> KeyNames(const std::string &key);
// The path of these names.
std::string CleanKey(const std::string &key);
// A path or a name as those are compared.
std::string Folded(std::string text);
// A path below HKEY_LOCAL_MACHINE.
std::string MountedKey(const std::string &key);

// Whether a registry call says that there is no such key or value, which is an answer and no failure.
bool IsMissing(LSTATUS status);

// Null when the key cannot be opened, with the reason in `*status` when given. Logs nothing.
OpenedKey OpenHiveKey(const std::string &key, LSTATUS *status = nullptr);
// The value whole, or what the registry call that failed returned. Logs nothing.
LSTATUS ReadHiveValue(HKEY key, const std::string &name, RegistryData *data);

// The name that a list of the key has at a number from 0 on, as the registry calls give it.
using NameAt = LSTATUS (*)(HKEY key, DWORD index, char *name, DWORD *length);
LSTATUS KeyNameAt(HKEY key, DWORD index, char *name, DWORD *length);
LSTATUS ValueNameAt(HKEY key, DWORD index, char *name, DWORD *length);
// All names of that list, or as many as could be read and why there are no more. Logs nothing.
LSTATUS ListHiveNames(const std::string &key, NameAt nameAt, std::vector<std::string> *names);
// Has the name spelled as that list has it; one that is not there stays as it is. Logs nothing.
LSTATUS SpellName(const std::string &key, NameAt nameAt, std::string *name);
