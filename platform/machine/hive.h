// One hive file: opened, read, changed in memory, saved. What is set is kept beside the file's content until the hive
// is saved, complete for each key: libhivex replaces all values of a key at once, and setting them one by one would
// write the key's whole list anew each time.
#pragma once

#include <hivex.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include "platform/machine/descriptor.h"
#include "platform/machine/registry_path.h"
#include "platform/machine/registry_value.h"

namespace machine {

struct Free {
  void operator()(void *memory) const { std::free(memory); }
};
// What libhivex hands out.
template <typename T>
using Malloced = std::unique_ptr<T, Free>;

struct HivexCloser {
  void operator()(hive_h *handle) const { hivex_close(handle); }
};

// A key that was made, or had a value set, since the hive was opened.
struct ChangedKey {
  std::u16string name;              // its own, as spelled when it was made
  bool valuesSet = false;           // else only made
  std::vector<StoredValue> values;  // all of the key's, the unchanged ones too
};

struct Hive {
  Descriptor directory, file;  // the file is open for reading and locked against other runs
  std::string name;            // in the directory
  std::uint32_t minorVersion = 0;
  std::uint32_t binsSize = 0;  // bytes
  bool exceptionalChecksum = false;
  std::unique_ptr<hive_h, HivexCloser> handle;  // null until ReadHive
  std::string failure;                          // why ReadHive failed, once it has
  std::map<FoldedPath, hive_node_h> nodes;      // found so far; a key's node never moves
  std::map<FoldedPath, ChangedKey> changes;     // a key comes before the keys below it
};

// Opens `name` in the directory, locks the file and checks it; takes over the descriptor. Null with the reason, one
// line for people, when it is missing, in use by another run, or not a hive that may be changed. The file is not
// touched.
std::unique_ptr<Hive> OpenHive(Descriptor directory, const std::string &name, std::string *reason);

// Has libhivex read the file, when that has not been done. False, with `failure` set, when it cannot.
bool ReadHive(Hive *hive);

// Key paths are relative to the hive's root. These return Windows' error codes: ERROR_FILE_NOT_FOUND for no such key or
// value, ERROR_BADDB for a hive that cannot be read there.
LSTATUS FindHiveKey(Hive *hive, const KeyPath &key);
LSTATUS FindHiveValue(Hive *hive, const KeyPath &key, const std::u16string &foldedName, StoredValue *value);
// Makes the key and those above it that are missing.
LSTATUS CreateHiveKey(Hive *hive, const KeyPath &key);
// The key must exist. A value that is there already with the same data changes nothing. ERROR_NOT_SUPPORTED when the
// key could not be saved whole: it holds (or would hold) data longer than one cell, or a name that libhivex cannot give
// back.
LSTATUS SetHiveValue(Hive *hive, const KeyPath &key, StoredValue value);

// Whether the changes can be given to libhivex: every cell that it will free is named once. Empty, or the reason.
std::string CheckReplacedCells(Hive *hive);

// Writes the changes to a new file, flushes it and puts it in the old one's place, with the old one's owner, mode and
// extended attributes; without changes does nothing and stores size 0. On failure stores the reason; the old file is
// then whole, unless the reason says that the new one is in place. The hive must not be used afterwards.
bool SaveHive(Hive *hive, std::uint64_t *size, std::string *reason);

}  // namespace machine
