// The registry below HKEY_LOCAL_MACHINE as the machine sees it: values in memory laid over the running system's hives,
// and hives mounted beside them.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/machine/hive/hive.h"
#include "platform/machine/hive/registry_path.h"
#include "platform/machine/hive/registry_value.h"

namespace machine {

struct MountedHive {
  std::string key;  // where it is mounted, as written
  KeyPath at;
  std::string subject;     // the hive file for people, in the machine's ANSI code page
  bool running = false;    // of the running system: saved when the machine closes
  bool discarded = false;  // holds what must not be saved
  std::unique_ptr<Hive> hive;
};

struct OverlayKey {
  std::u16string name;  // its own, as spelled when it was made
  std::vector<StoredValue> values;
};
using OverlayKeys = std::unordered_map<FoldedPath, OverlayKey, FoldedPathHash>;

template <class Item>
struct Listing {
  std::uint64_t changes = 0;  // the state's when it was made
  FoldedPath key;
  std::vector<Item> items;
};

struct RegistryState {
  bool open = false;
  std::uint64_t changes = 0;
  // Where SYSTEM\CurrentControlSet leads, while nothing changed: every question about a device passes through it.
  std::optional<std::pair<std::uint64_t, KeyPath>> controlSet;
  // The last key that was listed, while nothing changed: lists are asked for name by name.
  std::optional<Listing<std::u16string>> keys;
  std::optional<Listing<StoredValue>> values;
  OverlayKeys overlay;
  std::vector<MountedHive> hives;
};

RegistryState &Registry();

// Key paths begin below HKEY_LOCAL_MACHINE. SYSTEM\CurrentControlSet stands for the running system's control set. Their
// failures have no text; CreateKey and SetValue also answer kInvalid where there is no place for a key.
Status FindKey(const KeyPath &key);
Status CreateKey(const KeyPath &key);
Status QueryValue(KeyPath key, const std::u16string &name, StoredValue *value);
Status SetValue(const KeyPath &key, StoredValue value);  // the key must exist
// Lays the value over whatever is there, until the machine closes. Never saved.
void LayOverValue(const KeyPath &key, StoredValue value);

// A key that is mounted or that every Windows has is not deleted, nor one with sub-keys: EACCES.
Status DeleteKey(const KeyPath &key);
Status DeleteValue(const KeyPath &key, const std::u16string &name);
// Of a key that exists. They stay good until the next of these calls, or the next change.
Status ListKeys(const KeyPath &key, const std::vector<std::u16string> **names);
Status ListValues(const KeyPath &key, const std::vector<StoredValue> **values);

// Where a key is: its path without a link in it, and the hive that holds it with its path there; null when none does.
struct KeyPlace {
  KeyPath key;
  MountedHive *mounted = nullptr;
  KeyPath below;
};
KeyPlace PlaceOfKey(const KeyPath &given);

// Tells the debugger and the observer of a hive that was brought up to date from its logs (hive_mount.cpp).
void TellReplay(const MountedHive &mounted);

// The hive that holds the key will not be saved (hive_mount.cpp).
void DiscardHiveOf(const KeyPath &key);

// Unmounts the hives that are not the running system's, without saving them (hive_mount.cpp).
void DropMountedHives();

// Forgets every key handle (registry.cpp); count of those open at or below a key.
void DropKeyHandles();
std::size_t OpenKeysBelow(const KeyPath &key);

}  // namespace machine
