// Making the edits of a hive, and taking them back.
#include "log/log.h"
#include "platform/discard_hive.h"
#include "registry/edit_keys.h"
#include "registry/edits.h"
#include "vxrcore/events.h"

namespace {

struct OldValue {
  std::string name;
  RegistryData data;
};

// One step back.
struct Undo {
  enum class Kind { kRemoveKey, kRemoveValue, kPutBack };  // the last: the key with the values
  Kind kind;
  std::string key, name;
  std::vector<OldValue> values;
};
using Journal = std::vector<Undo>;

// What goes wrong in an edit: the call, what it was for, and its error.
struct Failure {
  const char *call = nullptr;
  std::string what;
  LSTATUS status = ERROR_SUCCESS;
};

bool Fail(Failure *failure, const char *call, std::string what, LSTATUS status) {
  *failure = {call, std::move(what), status};
  return false;
}

std::string ValuePath(const std::string &key, const std::string &name) { return MountedKey(key) + '\\' + name; }

// Opens the key, after making what is missing of it level by level: each that was made is one step back.
bool MakeKey(const std::string &key, Journal *journal, OpenedKey *opened, Failure *failure) {
  LSTATUS status = ERROR_SUCCESS;
  *opened = OpenHiveKey(key, &status);
  if (*opened != nullptr) return true;
  if (!IsMissing(status)) return Fail(failure, "RegOpenKey", MountedKey(key), status);
  std::string path;
  for (const std::string &name : KeyNames(key)) {
    path += (path.empty() ? "" : "\\") + name;
    *opened = OpenHiveKey(path, &status);
    if (*opened != nullptr) continue;
    if (!IsMissing(status)) return Fail(failure, "RegOpenKey", MountedKey(path), status);
    HKEY made = nullptr;
    status = platform::RegCreateKeyA(HKEY_LOCAL_MACHINE, MountedKey(path).c_str(), &made);
    if (status != ERROR_SUCCESS) return Fail(failure, "RegCreateKey", MountedKey(path), status);
    *opened = OpenedKey(made);
    journal->push_back({Undo::Kind::kRemoveKey, path, {}, {}});
  }
  return true;
}

LSTATUS StoreValue(HKEY key, const std::string &name, const RegistryData &data) {
  return platform::RegSetValueExA(key, name.c_str(), 0, data.type, reinterpret_cast<const BYTE *>(data.bytes.data()),
                                  static_cast<DWORD>(data.bytes.size()));
}

bool ApplySet(const RegistryEdit &edit, Journal *journal, Failure *failure) {
  OpenedKey key;
  OldValue old = {edit.name, {}};
  if (!MakeKey(edit.key, journal, &key, failure)) return false;
  const LSTATUS read = ReadHiveValue(key.get(), edit.name, &old.data);
  if (read != ERROR_SUCCESS && !IsMissing(read)) {
    return Fail(failure, "RegQueryValueEx", ValuePath(edit.key, edit.name), read);
  }
  const LSTATUS status = StoreValue(key.get(), edit.name, edit.data);
  if (status != ERROR_SUCCESS) return Fail(failure, "RegSetValueEx", ValuePath(edit.key, edit.name), status);
  if (read == ERROR_SUCCESS) {
    journal->push_back({Undo::Kind::kPutBack, edit.key, {}, {std::move(old)}});
  } else {
    journal->push_back({Undo::Kind::kRemoveValue, edit.key, edit.name, {}});
  }
  return true;
}

bool ApplyDeleteValue(const RegistryEdit &edit, Journal *journal, Failure *failure) {
  LSTATUS status = ERROR_SUCCESS;
  OldValue old = {edit.name, {}};
  const OpenedKey key = OpenHiveKey(edit.key, &status);
  if (key == nullptr) return Fail(failure, "RegOpenKey", MountedKey(edit.key), status);
  status = ReadHiveValue(key.get(), edit.name, &old.data);
  if (status != ERROR_SUCCESS) return Fail(failure, "RegQueryValueEx", ValuePath(edit.key, edit.name), status);
  status = SpellName(edit.key, ValueNameAt, &old.name);
  if (status != ERROR_SUCCESS) return Fail(failure, "RegEnumValue", MountedKey(edit.key), status);
  status = platform::RegDeleteValueA(key.get(), edit.name.c_str());
  if (status != ERROR_SUCCESS) return Fail(failure, "RegDeleteValue", ValuePath(edit.key, edit.name), status);
  journal->push_back({Undo::Kind::kPutBack, edit.key, {}, {std::move(old)}});
  return true;
}

// The key and all below it, each behind the one above.
bool KeysFrom(const std::string &top, std::vector<std::string> *keys, Failure *failure) {
  constexpr std::size_t kMostKeys = 65536, kLongestPath = 32768;  // a damaged hive may lead in a circle
  keys->assign(1, top);
  for (std::size_t at = 0; at < keys->size(); ++at) {
    const std::string key = (*keys)[at];
    std::vector<std::string> names;
    const LSTATUS status = ListHiveNames(key, KeyNameAt, &names);
    if (status != ERROR_SUCCESS) return Fail(failure, "RegEnumKeyEx", MountedKey(key), status);
    for (const std::string &name : names) {
      keys->push_back(key + '\\' + name);
      if (keys->size() > kMostKeys || keys->back().size() > kLongestPath) {
        return Fail(failure, "RegEnumKeyEx", MountedKey(key), static_cast<LSTATUS>(ERROR_BADDB));
      }
    }
  }
  return true;
}

bool DeleteOneKey(const std::string &key, Journal *journal, Failure *failure) {
  Undo undo = {Undo::Kind::kPutBack, key, {}, {}};
  LSTATUS status = ERROR_SUCCESS;
  {
    const OpenedKey opened = OpenHiveKey(key, &status);
    if (opened == nullptr) return Fail(failure, "RegOpenKey", MountedKey(key), status);
    std::vector<std::string> names;
    status = ListHiveNames(key, ValueNameAt, &names);
    if (status != ERROR_SUCCESS) return Fail(failure, "RegEnumValue", MountedKey(key), status);
    for (const std::string &name : names) {
      OldValue old = {name, {}};
      status = ReadHiveValue(opened.get(), name, &old.data);
      if (status != ERROR_SUCCESS) return Fail(failure, "RegQueryValueEx", ValuePath(key, name), status);
      undo.values.push_back(std::move(old));
    }
  }
  status = platform::RegDeleteKeyA(HKEY_LOCAL_MACHINE, MountedKey(key).c_str());
  if (status != ERROR_SUCCESS) return Fail(failure, "RegDeleteKey", MountedKey(key), status);
  journal->push_back(std::move(undo));
  return true;
}

bool ApplyDeleteKey(const RegistryEdit &edit, Journal *journal, Failure *failure) {
  // Spelled as it is, so that it can be made again as it was.
  std::string name = KeyNames(edit.key).back();
  const std::string above = CleanKey(edit.key.substr(0, edit.key.size() - name.size()));
  const LSTATUS status = SpellName(above, KeyNameAt, &name);
  if (status != ERROR_SUCCESS) return Fail(failure, "RegEnumKeyEx", MountedKey(above), status);
  std::vector<std::string> keys;
  if (!KeysFrom((above.empty() ? "" : above + '\\') + name, &keys, failure)) return false;
  for (auto key = keys.rbegin(); key != keys.rend(); ++key) {
    if (!DeleteOneKey(*key, journal, failure)) return false;
  }
  return true;
}

bool Apply(const RegistryEdit &edit, Journal *journal, Failure *failure) {
  OpenedKey key;
  switch (edit.kind) {
    case RegistryEdit::Kind::kCreateKey:
      return MakeKey(edit.key, journal, &key, failure);
    case RegistryEdit::Kind::kSetValue:
      return ApplySet(edit, journal, failure);
    case RegistryEdit::Kind::kDeleteValue:
      return ApplyDeleteValue(edit, journal, failure);
    case RegistryEdit::Kind::kDeleteKey:
      return ApplyDeleteKey(edit, journal, failure);
  }
  return false;
}

bool PutBack(const Undo &undo, Failure *failure) {
  OpenedKey key;
  Journal made;
  if (!MakeKey(undo.key, &made, &key, failure)) return false;
  for (const OldValue &old : undo.values) {
    const LSTATUS status = StoreValue(key.get(), old.name, old.data);
    if (status != ERROR_SUCCESS) return Fail(failure, "RegSetValueEx", ValuePath(undo.key, old.name), status);
  }
  return true;
}

bool TakeBack(const Undo &undo, Failure *failure) {
  LSTATUS status = ERROR_SUCCESS;
  switch (undo.kind) {
    case Undo::Kind::kRemoveKey:
      status = platform::RegDeleteKeyA(HKEY_LOCAL_MACHINE, MountedKey(undo.key).c_str());
      return status == ERROR_SUCCESS || Fail(failure, "RegDeleteKey", MountedKey(undo.key), status);
    case Undo::Kind::kRemoveValue: {
      const OpenedKey key = OpenHiveKey(undo.key, &status);
      if (key == nullptr) return Fail(failure, "RegOpenKey", MountedKey(undo.key), status);
      status = platform::RegDeleteValueA(key.get(), undo.name.c_str());
      return status == ERROR_SUCCESS || Fail(failure, "RegDeleteValue", ValuePath(undo.key, undo.name), status);
    }
    case Undo::Kind::kPutBack:
      return PutBack(undo, failure);
  }
  return false;
}

void LogFailure(const Failure &failure, const Caller &trace) {
  trace.Error("%s(%s) failed!rc=%d ec=%d\n", failure.call, failure.what.c_str(), failure.status,
              platform::GetLastError());
}

bool TakeAllBack(const Journal &journal, const Caller &trace) {
  bool restored = true;
  for (auto undo = journal.rbegin(); undo != journal.rend(); ++undo) {
    Failure failure;
    if (TakeBack(*undo, &failure)) continue;
    LogFailure(failure, trace);
    platform::ReportDecision(VXRMACHINE_HIVE_NOT_RESTORED, MountedKey(undo->key).c_str());
    platform::DiscardHive(MountedKey(undo->key).c_str());
    restored = false;
  }
  return restored;
}

}  // namespace

bool ApplyEdits(const RegistryEdits &edits, std::string *failed, bool *restored) {
  const CallTrace trace = TraceCall();
  Journal journal;
  *restored = true;
  if (!edits.unread.empty()) {
    trace.Error("nothing is changed, since the hive could not be read:%s\n", edits.unread.c_str());
    *failed = edits.unread;
    return false;
  }
  for (const RegistryEdit &edit : edits.list) {
    Failure failure;
    if (Apply(edit, &journal, &failure)) {
      trace.Flush("%s\\%s...ok\n", MountedKey(edit.key).c_str(), edit.name.c_str());
      continue;
    }
    LogFailure(failure, trace);
    *failed = failure.what;
    *restored = TakeAllBack(journal, trace);
    trace.Check("%u steps taken back:restored=%d\n", static_cast<DWORD>(journal.size()), *restored ? 1 : 0);
    return false;
  }
  trace.Check("%u changes made\n", static_cast<DWORD>(edits.list.size()));
  return true;
}
