#include "registry/edits.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>

#include "registry/edit_keys.h"

namespace {

std::string ValueId(const std::string &foldedKey, const std::string &name) { return foldedKey + '\0' + Folded(name); }

std::size_t NumberOf(const std::unordered_map<std::string, std::size_t> &numbers, const std::string &id) {
  const auto found = numbers.find(id);
  return found == numbers.end() ? 0 : found->second;
}

// Of the key and those above it, the longest first.
std::vector<std::string> PathsUpFrom(const std::string &key) {
  std::vector<std::string> paths;
  std::string path;
  for (const std::string &name : KeyNames(key)) {
    path += (path.empty() ? "" : "\\") + name;
    paths.push_back(path);
  }
  std::reverse(paths.begin(), paths.end());
  return paths;
}

// The latest deletion of the key or of one above it; 0 when there is none.
std::size_t LastDeletion(const RegistryEdits &edits, const std::string &foldedKey) {
  std::size_t last = 0;
  if (edits.keysDeleted.empty()) return 0;
  for (const std::string &path : PathsUpFrom(foldedKey)) last = std::max(last, NumberOf(edits.keysDeleted, path));
  return last;
}

// Remembers a read of the hive that failed. That something is not there is an answer.
void NoteRead(const RegistryEdits &edits, LSTATUS status, const std::string &key, const std::string &name = {}) {
  if (status == ERROR_SUCCESS || IsMissing(status) || !edits.unread.empty()) return;
  edits.unread = MountedKey(key) + (name.empty() ? "" : '\\' + name) + " (error " + std::to_string(status) + ')';
}

OpenedKey Open(const RegistryEdits &edits, const std::string &key) {
  LSTATUS status = ERROR_SUCCESS;
  OpenedKey opened = OpenHiveKey(key, &status);
  NoteRead(edits, status, key);
  return opened;
}

std::vector<std::string> NamesInHive(const RegistryEdits &edits, const std::string &key, NameAt nameAt) {
  std::vector<std::string> names;
  NoteRead(edits, ListHiveNames(key, nameAt, &names), key);
  return names;
}

bool Exists(const RegistryEdits &edits, const std::string &foldedKey) {
  const std::size_t deleted = LastDeletion(edits, foldedKey);
  if (NumberOf(edits.keysMade, foldedKey) > deleted) return true;
  return deleted == 0 && Open(edits, foldedKey) != nullptr;
}

// The names of the hive, then those of the list, each once, as far as they are there.
template <typename IsThere>
std::vector<std::string> Merged(std::vector<std::string> ofHive, const std::vector<std::string> *ofList,
                                const IsThere &isThere) {
  std::vector<std::string> merged;
  std::set<std::string> seen;
  for (std::string &name : ofHive) {
    if (seen.insert(Folded(name)).second && isThere(name)) merged.push_back(std::move(name));
  }
  if (ofList == nullptr) return merged;
  for (const std::string &name : *ofList) {
    if (seen.insert(Folded(name)).second && isThere(name)) merged.push_back(name);
  }
  return merged;
}

const std::vector<std::string> *ListOf(const std::unordered_map<std::string, std::vector<std::string>> &lists,
                                       const std::string &key) {
  const auto found = lists.find(key);
  return found == lists.end() ? nullptr : &found->second;
}

// Notes that the latest edit has the key exist, and those above it.
void NoteMade(RegistryEdits *edits, const std::string &key) {
  std::string above;
  for (const std::string &name : KeyNames(key)) {
    const std::string foldedAbove = Folded(above);
    above += (above.empty() ? "" : "\\") + name;
    const std::string folded = Folded(above);
    // A key that comes again behind a deletion is in the list already.
    if (NumberOf(edits->keysMade, folded) == 0) edits->newKeys[foldedAbove].push_back(name);
    edits->keysMade[folded] = edits->list.size();
  }
}

void Add(RegistryEdits *edits, RegistryEdit::Kind kind, const std::string &key, const std::string &name = {},
         const RegistryData &data = {}) {
  edits->list.push_back({kind, CleanKey(key), name, data});
}

}  // namespace

bool KeyExists(const RegistryEdits &edits, const std::string &key) { return Exists(edits, Folded(CleanKey(key))); }

bool ReadValue(const RegistryEdits &edits, const std::string &key, const std::string &name, RegistryData *data) {
  const std::string folded = Folded(CleanKey(key));
  const std::size_t deleted = LastDeletion(edits, folded), latest = NumberOf(edits.values, ValueId(folded, name));
  if (latest > deleted) {
    const RegistryEdit &edit = edits.list[latest - 1];
    if (edit.kind == RegistryEdit::Kind::kDeleteValue) return false;
    *data = edit.data;
    return true;
  }
  if (deleted != 0) return false;
  const OpenedKey opened = Open(edits, folded);
  if (opened == nullptr) return false;
  const LSTATUS status = ReadHiveValue(opened.get(), name, data);
  NoteRead(edits, status, folded, name);
  return status == ERROR_SUCCESS;
}

bool ReadNumber(const RegistryEdits &edits, const std::string &key, const std::string &name, DWORD *number) {
  RegistryData data;
  if (!ReadValue(edits, key, name, &data) || data.type != REG_DWORD || data.bytes.size() != sizeof *number)
    return false;
  std::memcpy(number, data.bytes.data(), sizeof *number);
  return true;
}

bool ReadText(const RegistryEdits &edits, const std::string &key, const std::string &name, std::string *text) {
  RegistryData data;
  if (!ReadValue(edits, key, name, &data) || (data.type != REG_SZ && data.type != REG_EXPAND_SZ)) return false;
  *text = data.bytes.substr(0, data.bytes.find('\0'));
  return true;
}

std::vector<std::string> SubKeys(const RegistryEdits &edits, const std::string &key) {
  const std::string folded = Folded(CleanKey(key));
  std::vector<std::string> ofHive;
  if (LastDeletion(edits, folded) == 0) ofHive = NamesInHive(edits, folded, KeyNameAt);
  const bool untouched = edits.keysDeleted.empty();
  const auto isThere = [&](const std::string &name) {
    const std::string below = (folded.empty() ? "" : folded + '\\') + Folded(name);
    if (untouched) return true;
    const std::size_t deleted = LastDeletion(edits, below);
    return deleted == 0 || NumberOf(edits.keysMade, below) > deleted;
  };
  return Merged(std::move(ofHive), ListOf(edits.newKeys, folded), isThere);
}

std::vector<std::string> ValueNames(const RegistryEdits &edits, const std::string &key) {
  const std::string folded = Folded(CleanKey(key));
  const std::size_t deleted = LastDeletion(edits, folded);
  std::vector<std::string> ofHive;
  if (deleted == 0) ofHive = NamesInHive(edits, folded, ValueNameAt);
  const auto isThere = [&](const std::string &name) {
    const std::size_t latest = NumberOf(edits.values, ValueId(folded, name));
    if (latest <= deleted) return deleted == 0;
    return edits.list[latest - 1].kind == RegistryEdit::Kind::kSetValue;
  };
  return Merged(std::move(ofHive), ListOf(edits.newValues, folded), isThere);
}

void CreateKey(RegistryEdits *edits, const std::string &key) {
  if (KeyExists(*edits, key)) return;
  Add(edits, RegistryEdit::Kind::kCreateKey, key);
  NoteMade(edits, key);
}

void SetValue(RegistryEdits *edits, const std::string &key, const std::string &name, const RegistryData &data) {
  RegistryData old;
  if (ReadValue(*edits, key, name, &old) && old.type == data.type && old.bytes == data.bytes) return;
  Add(edits, RegistryEdit::Kind::kSetValue, key, name, data);
  NoteMade(edits, key);
  const std::string folded = Folded(CleanKey(key));
  std::size_t &latest = edits->values[ValueId(folded, name)];
  if (latest == 0) edits->newValues[folded].push_back(name);
  latest = edits->list.size();
}

void DeleteValue(RegistryEdits *edits, const std::string &key, const std::string &name) {
  RegistryData old;
  if (!ReadValue(*edits, key, name, &old)) return;
  Add(edits, RegistryEdit::Kind::kDeleteValue, key, name);
  const std::string folded = Folded(CleanKey(key));
  std::size_t &latest = edits->values[ValueId(folded, name)];
  if (latest == 0) edits->newValues[folded].push_back(name);
  latest = edits->list.size();
}

void DeleteKey(RegistryEdits *edits, const std::string &key) {
  if (CleanKey(key).empty() || !KeyExists(*edits, key)) return;
  Add(edits, RegistryEdit::Kind::kDeleteKey, key);
  edits->keysDeleted[Folded(CleanKey(key))] = edits->list.size();
}

RegistryData NumberData(DWORD number) {
  return {REG_DWORD, std::string(reinterpret_cast<const char *>(&number), sizeof number)};
}

RegistryData TextData(const std::string &text, DWORD type) { return {type, text + '\0'}; }

RegistryData ListData(const std::vector<std::string> &texts) {
  RegistryData data = {REG_MULTI_SZ, {}};
  for (const std::string &text : texts) {
    if (!text.empty()) data.bytes += text + '\0';  // an empty one would end the list
  }
  data.bytes += '\0';
  return data;
}

RegistryData BytesData(const std::string &bytes, DWORD type) { return {type, bytes}; }

std::vector<std::string> ListTexts(const RegistryData &data) {
  std::vector<std::string> texts;
  for (std::size_t at = 0; at < data.bytes.size() && data.bytes[at] != '\0';) {
    const std::size_t end = std::min(data.bytes.find('\0', at), data.bytes.size());
    texts.push_back(data.bytes.substr(at, end - at));
    at = end + 1;
  }
  return texts;
}

std::string ControlSetName(DWORD number) {
  char name[32];
  std::snprintf(name, sizeof name, "ControlSet%03u", static_cast<unsigned>(number));
  return name;
}

std::vector<std::string> ControlSets(const RegistryEdits &edits) {
  constexpr std::size_t kNameLength = 10, kDigits = 3;
  std::vector<std::string> sets;
  for (std::string &name : SubKeys(edits, "")) {
    const std::string folded = Folded(name);
    if (folded.size() != kNameLength + kDigits || folded.compare(0, kNameLength, "CONTROLSET") != 0) continue;
    if (folded.find_first_not_of("0123456789", kNameLength) == std::string::npos) sets.push_back(std::move(name));
  }
  std::sort(sets.begin(), sets.end(), [](const std::string &a, const std::string &b) {
    return a.compare(kNameLength, kDigits, b, kNameLength, kDigits) < 0;
  });
  return sets;
}
