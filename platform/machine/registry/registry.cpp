// The registry calls, and the key handles that they trade in.
#include "platform/machine/registry/registry.h"

#include <algorithm>
#include <cstring>

#include "platform/discard_hive.h"
#include "platform/machine/base/errors.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/handle_table.h"
#include "platform/machine/base/report.h"
#include "platform/machine/registry/registry_state.h"
#include "platform/text/code_page.h"
#include "vxrcore/machine.h"

namespace machine {
namespace {

struct OpenKey {
  KeyPath path;
  std::string text;  // the same as the callers gave it
};

HandleTable<OpenKey> g_keys;

// The status, which is the last error too when it is a failure.
LSTATUS WithLastError(LSTATUS status) {
  if (status != ERROR_SUCCESS) platform::SetLastError(static_cast<DWORD>(status));
  return status;
}

LSTATUS WithLastError(const Status &status) {
  return WithLastError(status ? ERROR_SUCCESS : static_cast<LSTATUS>(WindowsError(status)));
}

// For VXR_FAULT, which sets the last error first.
LSTATUS FaultStatus() { return static_cast<LSTATUS>(platform::GetLastError()); }

// Null for a handle that is none. HKEY_LOCAL_MACHINE is the key with the empty path.
const OpenKey *FindOpenKey(HKEY key) {
  static const OpenKey root;
  if (key == HKEY_LOCAL_MACHINE) return &root;
  return FindIn(&g_keys, key);
}

std::string TextBelow(const std::string &above, const std::string &below) {
  return above.empty() || below.empty() ? above + below : above + '\\' + below;
}

// The path and the text of a key below `root`. Null and empty names stand for the key itself.
LSTATUS NameBelow(HKEY root, const char *subKey, OpenKey *named) {
  if (!Registry().open) return ERROR_NOT_READY;
  const OpenKey *above = FindOpenKey(root);
  if (above == nullptr) return ERROR_INVALID_HANDLE;
  const std::string below = subKey != nullptr ? subKey : "";
  if (below.starts_with('\\')) return ERROR_BAD_PATHNAME;
  *named = {JoinKeyPaths(above->path, ParseKeyPathA(below)), TextBelow(above->text, below)};
  return ERROR_SUCCESS;
}

using KeyStep = Status (*)(const KeyPath &key);

// Opens a handle on the key below `root` after `step` has found or made it.
LSTATUS OpenBelow(HKEY root, const char *subKey, HKEY *key, KeyStep step) {
  if (key == nullptr) return WithLastError(ERROR_INVALID_PARAMETER);
  *key = nullptr;
  OpenKey opened;
  if (const LSTATUS named = NameBelow(root, subKey, &opened); named != ERROR_SUCCESS) return WithLastError(named);
  if (const Status found = step(opened.path); !found) return WithLastError(found);
  *key = AddTo<HKEY>(&g_keys, std::move(opened));
  return ERROR_SUCCESS;
}

void ReportData(DWORD kind, const char *key, const char *name, DWORD type, const std::vector<BYTE> &bytes) {
  const std::string text = DataForPeople(type, bytes);
  Report({kind, type, bytes.size(), key, name, text.c_str()});
}

std::string ReasonFor(LSTATUS status) {
  switch (static_cast<DWORD>(status)) {
    case ERROR_BADDB:
      return "the hive is damaged there; restore the hive file again, then run again";
    case ERROR_NOT_SUPPORTED:
      return "a value name with a NUL, or a value of more than 16,344 bytes, would be in its key, which cannot be "
             "saved";
    case ERROR_INVALID_PARAMETER:
      return "a name in its path is longer than 255 characters, or no hive is mounted there";
    case ERROR_ACCESS_DENIED:
      return "access is denied; check who may write there";
    default:
      return "the system's error is " + std::to_string(status);
  }
}

// Returns `status`. `name` null: the key itself could not be created, or deleted.
LSTATUS ReportNotWritten(const std::string &key, const char *name, DWORD type, LSTATUS status) {
  const std::string reason = ReasonFor(status);
  Report({VXRMACHINE_VALUE_NOT_WRITTEN, type, static_cast<DWORD>(status), key.c_str(), name, reason.c_str()});
  return status;
}

LSTATUS KeyNotChanged(HKEY root, const char *subKey, LSTATUS status) {
  const OpenKey *above = FindOpenKey(root);
  if (above == nullptr) return status;
  return ReportNotWritten(TextBelow(above->text, subKey != nullptr ? subKey : ""), nullptr, REG_NONE, status);
}

LSTATUS ValueNotChanged(HKEY key, const char *valueName, DWORD type, LSTATUS status) {
  const OpenKey *open = FindOpenKey(key);
  if (open == nullptr) return status;
  return ReportNotWritten(open->text, valueName != nullptr ? valueName : "", type, status);
}

LSTATUS SetOpenValue(HKEY key, const char *name, DWORD type, const BYTE *data, DWORD size) {
  const OpenKey *open = FindOpenKey(key);
  if (open == nullptr) return WithLastError(ERROR_INVALID_HANDLE);
  if (!Registry().open) return WithLastError(ERROR_NOT_READY);
  if (data == nullptr && size != 0) return WithLastError(ERROR_INVALID_PARAMETER);
  StoredValue value{AnsiToUtf16(name), type, StoredData(type, data, size)};
  const Status set = SetValue(open->path, value);
  if (set) ReportData(VXRMACHINE_VALUE_WRITTEN, open->text.c_str(), name, value.type, value.bytes);
  return WithLastError(set);
}

// An open key, for a call that asks about it; null with the reason in `*status`.
const OpenKey *KeyToRead(HKEY key, LSTATUS *status) {
  const OpenKey *open = FindOpenKey(key);
  *status = open == nullptr ? ERROR_INVALID_HANDLE : !Registry().open ? ERROR_NOT_READY : ERROR_SUCCESS;
  return *status == ERROR_SUCCESS ? open : nullptr;
}

LSTATUS StoreName(const std::u16string &name, char *buffer, DWORD *length) {
  const std::string text = Utf16ToAnsi(name);
  if (buffer == nullptr || length == nullptr) return ERROR_INVALID_PARAMETER;
  if (text.size() >= *length) return ERROR_MORE_DATA;
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  *length = static_cast<DWORD>(text.size());
  return ERROR_SUCCESS;
}

// A value's data as the ANSI calls give it; with null `data` its size alone.
LSTATUS StoreData(const StoredValue &value, DWORD *type, BYTE *data, DWORD *size) {
  if (data != nullptr && size == nullptr) return ERROR_INVALID_PARAMETER;
  const std::vector<BYTE> answer = AnsiData(value);
  const DWORD room = size != nullptr ? *size : 0;
  if (type != nullptr) *type = value.type;
  if (size != nullptr) *size = static_cast<DWORD>(answer.size());
  if (data == nullptr) return ERROR_SUCCESS;
  if (room < answer.size()) return ERROR_MORE_DATA;
  std::copy(answer.begin(), answer.end(), data);
  // A stored text need not be terminated; where there is room the caller's is.
  const bool unended = IsTextType(value.type) && !answer.empty() && answer.back() != 0;
  if (unended && room > answer.size()) data[answer.size()] = 0;
  return ERROR_SUCCESS;
}

void ReportDeleted(const std::string &key, const char *name) {
  Report({VXRMACHINE_VALUE_DELETED, 0, 0, key.c_str(), name, nullptr});
}

}  // namespace

bool ReadRegistryText(const std::string &key, const char *name, std::string *text) {
  StoredValue value;
  if (!Registry().open) return false;
  if (!QueryValue(ParseKeyPathA(key), AnsiToUtf16(name), &value)) return false;
  if (value.type != REG_SZ && value.type != REG_EXPAND_SZ) return false;
  const std::u16string whole = WholeText(value.bytes);
  *text = Utf16ToAnsi(std::u16string_view(whole).substr(0, whole.find(u'\0')));
  return true;
}

std::uint64_t RegistryChanges() { return Registry().changes; }

std::size_t OpenKeys() { return g_keys.records.size(); }

std::size_t OpenKeysBelow(const KeyPath &key) {
  const auto &open = g_keys.records;
  return static_cast<std::size_t>(std::count_if(
      open.begin(), open.end(), [&](const auto &entry) { return BeginsWith(entry.second.path, key.folded); }));
}

void DropKeyHandles() { g_keys.records.clear(); }

}  // namespace machine

namespace platform {

using namespace machine;

LSTATUS RegOpenKeyA(HKEY root, const char *subKey, HKEY *key) {
  VXR_FAULT(FaultStatus(), ERROR_FILE_NOT_FOUND);
  if (const bool same = subKey == nullptr || *subKey == 0;
      same && key != nullptr && Registry().open && FindOpenKey(root) != nullptr) {
    *key = root;  // no handle of its own
    return ERROR_SUCCESS;
  }
  return OpenBelow(root, subKey, key, FindKey);
}

LSTATUS RegCreateKeyA(HKEY root, const char *subKey, HKEY *key) {
  VXR_FAULT(KeyNotChanged(root, subKey, FaultStatus()), ERROR_ACCESS_DENIED);
  const LSTATUS status = OpenBelow(root, subKey, key, CreateKey);
  return status == ERROR_SUCCESS ? status : KeyNotChanged(root, subKey, status);
}

LSTATUS RegQueryValueExA(HKEY key, const char *valueName, DWORD *, DWORD *type, BYTE *data, DWORD *size) {
  VXR_FAULT(FaultStatus(), ERROR_FILE_NOT_FOUND);
  LSTATUS status = ERROR_SUCCESS;
  const OpenKey *open = KeyToRead(key, &status);
  if (open == nullptr) return WithLastError(status);
  if (data != nullptr && size == nullptr) return WithLastError(ERROR_INVALID_PARAMETER);
  StoredValue value;
  const std::u16string name = AnsiToUtf16(valueName != nullptr ? valueName : "");
  if (const Status found = QueryValue(open->path, name, &value); !found) return WithLastError(found);
  return WithLastError(StoreData(value, type, data, size));
}

LSTATUS RegSetValueExA(HKEY key, const char *valueName, DWORD, DWORD type, const BYTE *data, DWORD size) {
  VXR_FAULT(ValueNotChanged(key, valueName, type, FaultStatus()), ERROR_ACCESS_DENIED);
  const LSTATUS status = SetOpenValue(key, valueName != nullptr ? valueName : "", type, data, size);
  return status == ERROR_SUCCESS ? status : ValueNotChanged(key, valueName, type, status);
}

LSTATUS RegEnumKeyExA(HKEY key, DWORD index, char *name, DWORD *length, DWORD *, char *, DWORD *, FILETIME *) {
  VXR_FAULT(FaultStatus(), ERROR_ACCESS_DENIED);
  LSTATUS status = ERROR_SUCCESS;
  const OpenKey *open = KeyToRead(key, &status);
  if (open == nullptr) return WithLastError(status);
  const std::vector<std::u16string> *names = nullptr;
  if (const Status listed = ListKeys(open->path, &names); !listed) return WithLastError(listed);
  if (index >= names->size()) return WithLastError(ERROR_NO_MORE_ITEMS);
  return WithLastError(StoreName((*names)[index], name, length));
}

LSTATUS RegEnumValueA(HKEY key, DWORD index, char *name, DWORD *length, DWORD *, DWORD *type, BYTE *data, DWORD *size) {
  VXR_FAULT(FaultStatus(), ERROR_ACCESS_DENIED);
  LSTATUS status = ERROR_SUCCESS;
  const OpenKey *open = KeyToRead(key, &status);
  if (open == nullptr) return WithLastError(status);
  const std::vector<StoredValue> *values = nullptr;
  if (const Status listed = ListValues(open->path, &values); !listed) return WithLastError(listed);
  if (index >= values->size()) return WithLastError(ERROR_NO_MORE_ITEMS);
  const StoredValue &value = (*values)[index];
  status = StoreName(value.name, name, length);
  return WithLastError(status != ERROR_SUCCESS ? status : StoreData(value, type, data, size));
}

LSTATUS RegDeleteKeyA(HKEY root, const char *subKey) {
  VXR_FAULT(KeyNotChanged(root, subKey, FaultStatus()), ERROR_ACCESS_DENIED);
  OpenKey named;
  LSTATUS status = subKey == nullptr ? ERROR_INVALID_PARAMETER : NameBelow(root, subKey, &named);
  if (status == ERROR_SUCCESS) status = WithLastError(DeleteKey(named.path));
  if (status != ERROR_SUCCESS) return WithLastError(KeyNotChanged(root, subKey, status));
  ReportDeleted(named.text, nullptr);
  return ERROR_SUCCESS;
}

LSTATUS RegDeleteValueA(HKEY key, const char *valueName) {
  VXR_FAULT(ValueNotChanged(key, valueName, REG_NONE, FaultStatus()), ERROR_ACCESS_DENIED);
  const char *name = valueName != nullptr ? valueName : "";
  LSTATUS status = ERROR_SUCCESS;
  const OpenKey *open = KeyToRead(key, &status);
  if (open != nullptr) status = WithLastError(DeleteValue(open->path, AnsiToUtf16(name)));
  if (status != ERROR_SUCCESS) return WithLastError(ValueNotChanged(key, valueName, REG_NONE, status));
  ReportDeleted(open->text, name);
  return ERROR_SUCCESS;
}

void DiscardHive(const char *key) { DiscardHiveOf(ParseKeyPathA(key)); }

// The handle is gone even when a test has the call fail, so that what is still open afterwards was never closed.
LSTATUS RegCloseKey(HKEY key) {
  const bool known = key == HKEY_LOCAL_MACHINE || DropFrom(&g_keys, key);
  VXR_FAULT(FaultStatus(), ERROR_INVALID_HANDLE);
  return known ? ERROR_SUCCESS : WithLastError(ERROR_INVALID_HANDLE);
}

void ReportValue(DWORD kind, const char *key, const char *name, DWORD type, const BYTE *data, DWORD size) {
  ReportData(kind, key, name, type, StoredData(type, data, size));
}

}  // namespace platform

int32_t VXRMachine_ReadValue(const char *key, const char *name, uint32_t *type, void *data, uint32_t *size) {
  machine::StoredValue value;
  if (!machine::Registry().open) return FALSE;
  if (!machine::QueryValue(machine::ParseKeyPathA(key), machine::AnsiToUtf16(name), &value)) return FALSE;
  const std::vector<BYTE> bytes = machine::AnsiData(value);
  const bool fits = data == nullptr || bytes.size() <= *size;
  *type = value.type;
  *size = static_cast<uint32_t>(bytes.size());
  if (data != nullptr && fits) std::copy(bytes.begin(), bytes.end(), static_cast<BYTE *>(data));
  return fits;
}

int32_t VXRMachine_SetValue(const char *key, const char *name, const char *text) {
  if (!machine::Registry().open) return FALSE;
  std::vector<BYTE> data = machine::StoredText(machine::AnsiToUtf16(text) + u'\0');
  machine::LayOverValue(machine::ParseKeyPathA(key), {machine::AnsiToUtf16(name), REG_SZ, std::move(data)});
  return TRUE;
}
