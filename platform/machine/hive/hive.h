// One hive file: opened, brought up to date from its logs, read, changed in memory, saved. What is set is kept beside
// the file's content until the hive is saved, complete for each key: libhivex replaces all values of a key at once, and
// setting them one by one would write the key's whole list anew each time.
#pragma once

#include <hivex.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/status.h"
#include "platform/machine/hive/hive_recovery.h"
#include "platform/machine/hive/registry_path.h"
#include "platform/machine/hive/registry_value.h"

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

// A key's sub-keys in the file, those with a name that can be given; read once.
struct ChildKeys {
  std::vector<std::u16string> names;                      // in the hive's order
  std::unordered_map<std::u16string, hive_node_h> nodes;  // by folded name; of several the first
  bool unseen = false;                                    // the hive is damaged: there may be more
  bool shared = false;                                    // a key stands in the list twice
  bool unnamed = false;                                   // there are more, whose names cannot be given
};

struct Hive {
  Descriptor directory, file;  // the file is open for reading and locked against other runs
  std::string name;            // in the directory
  std::uint64_t size = 0;      // of the file, bytes
  BaseBlock head;              // the file's own
  std::vector<HiveLog> logs;   // beside it; read when needed
  bool recovered = false;      // what the hive is comes from the file and its logs
  Recovery recovery;           // of a hive that needed its logs
  Descriptor copy;             // what libhivex reads instead of the file, when that is not as it should be
  BaseBlock state;             // the base block of what is read

  std::unique_ptr<hive_h, HivexCloser> handle;  // null until ReadHive
  Status failure;                               // why ReadHive failed, once it has
  std::map<FoldedPath, hive_node_h> nodes;      // found so far; a key's node never moves
  std::map<hive_node_h, ChildKeys> children;    // read so far
  std::map<FoldedPath, ChangedKey> changes;     // a key comes before the keys below it
  std::set<FoldedPath> deleted;                 // of the file's keys; those below a deleted one are all in it too
  bool damaged = false;                         // a call was answered with kDamaged
};

// The file that holds what the hive is.
inline int ContentOf(const Hive &hive) { return hive.copy ? hive.copy.fd : hive.file.fd; }

enum class HiveUse { kLook, kChange };

// Opens the hive's `name` in its directory, both set by the caller; locks the file (for a look, against changes only),
// checks it and, where it was not closed cleanly, brings it up to date in memory from its logs. The files are not
// touched. Fails, with one line for people that follows its name, when it may not be changed: it is missing, in use by
// another run, damaged, or needs logs that are not there. What was found out until then is in the record.
Status OpenHive(Hive *hive, HiveUse use);

// The same for a file by its path on the host; sets directory and name.
Status OpenHiveFile(Hive *hive, const std::filesystem::path &file, HiveUse use);

// "replayed 14 entries from two logs", of a recovered hive.
std::string DescribeReplay(const Recovery &recovery);

// Has libhivex read the file, when that has not been done. The answer to a failure stays.
Status ReadHive(Hive *hive);

// Of a hive that has been read: has libhivex take changes to it. Nodes stay where they are. Fails when memory is short;
// the hive must not be used afterwards.
Status MakeHiveWritable(Hive *hive);

// Key paths are relative to the hive's root. Their failures have no text: kNotFound for no such key or value, kDamaged
// for a hive that cannot be read there, which `damaged` then remembers.
Status FindHiveKey(Hive *hive, const KeyPath &key);
Status FindHiveValue(Hive *hive, const KeyPath &key, const std::u16string &foldedName, StoredValue *value);
// Makes the key and those above it that are missing; kInvalid for a name longer than a key's may be.
Status CreateHiveKey(Hive *hive, const KeyPath &key);
// The key must exist. A value that is there already with the same data changes nothing. kUnsupported when the
// key could not be saved whole: it holds (or would hold) data longer than one cell, or a name that libhivex cannot give
// back.
Status SetHiveValue(Hive *hive, const KeyPath &key, StoredValue value);

// kNotFound without such a value.
Status DeleteHiveValue(Hive *hive, const KeyPath &key, const std::u16string &foldedName);
// A key without sub-keys that is not the root: EACCES for one that has some. kUnsupported for a key of a class, which
// libhivex cannot be trusted to delete.
Status DeleteHiveKey(Hive *hive, const KeyPath &key);

// Names of sub-keys, the file's in its order, then those made since; names that libhivex cannot give back are left out.
Status ListHiveKeys(Hive *hive, const KeyPath &key, std::vector<std::u16string> *names);
// In the same order. A value whose name cannot be given is left out.
Status ListHiveValues(Hive *hive, const KeyPath &key, std::vector<StoredValue> *values);

// Parts of these, for the files of this folder. The hive has been read; `path` is not of a deleted key.
Status FindHiveNode(Hive *hive, const FoldedPath &path, hive_node_h *node);
Status HiveChildren(Hive *hive, hive_node_h parent, const ChildKeys **children);
// Stores that the hive was found damaged, and says so.
Status DamagedHive(Hive *hive);
// Forgets what was changed and changed back, so that a hive that is as it was is not written.
void ForgetUnchanged(Hive *hive);
// A text as libhivex gives it.
std::u16string HiveText(const char *text);

// Whether the changes can be given to libhivex: every cell that it will free is named once.
Status CheckReplacedCells(Hive *hive);

// Writes the changes to a new file, flushes it and puts it in the old one's place, with the old one's owner, mode and
// extended attributes; without changes, or with such as are taken back, only has the disk know the names there, and
// stores size 0. `*digest`: while a rehearsal is on, SHA-256 of the new hive's
// bytes, which are only made in memory then; else empty. The new hive is clean, and no log beside it can be applied to
// it, now or later; the logs stay as they are, since they may be wanted as evidence. On failure the old file is whole,
// or the new one is in place but not surely on the disk, and its size is stored. The hive must not be used afterwards.
Status SaveHive(Hive *hive, std::uint64_t *size, std::string *digest);

// From now on only a hive with this SHA-256 is saved, one that a rehearsal made; empty: any.
void SaveOnly(std::string digest);

}  // namespace machine
