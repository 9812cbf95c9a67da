#include "registry/edit_keys.h"

#include "registry/values.h"

std::vector<std::string> KeyNames(const std::string &key) {
  std::vector<std::string> names(1);
  for (std::size_t i = 0; i < key.size(); ++i) {
    if (key[i] == '\\') {
      if (!names.back().empty()) names.emplace_back();
      continue;
    }
    names.back() += key[i];
    const bool leads = platform::IsDBCSLeadByte(static_cast<BYTE>(key[i])) && i + 1 < key.size();
    if (leads) names.back() += key[++i];
  }
  if (names.back().empty()) names.pop_back();
  return names;
}

std::string CleanKey(const std::string &key) {
  std::string clean;
  for (const std::string &name : KeyNames(key)) clean += (clean.empty() ? "" : "\\") + name;
  return clean;
}

std::string Folded(std::string text) {
  platform::CharUpperBuffA(text.data(), static_cast<DWORD>(text.size()));
  return text;
}

std::string MountedKey(const std::string &key) {
  return key.empty() ? VXR_RESTORED_HIVE : std::string(VXR_RESTORED_HIVE "\\") + key;
}

bool IsMissing(LSTATUS status) { return status == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND); }

OpenedKey OpenHiveKey(const std::string &key, LSTATUS *status) {
  HKEY opened = nullptr;
  const LSTATUS rc = platform::RegOpenKeyA(HKEY_LOCAL_MACHINE, MountedKey(key).c_str(), &opened);
  if (status != nullptr) *status = rc;
  return OpenedKey(rc == ERROR_SUCCESS ? opened : nullptr);
}

LSTATUS ReadHiveValue(HKEY key, const std::string &name, RegistryData *data) {
  std::string bytes(512, '\0');  // enough for nearly all
  for (;;) {
    auto size = static_cast<DWORD>(bytes.size());
    const LSTATUS rc = platform::RegQueryValueExA(key, name.c_str(), nullptr, &data->type,
                                                  reinterpret_cast<BYTE *>(bytes.data()), &size);
    if (rc == static_cast<LSTATUS>(ERROR_MORE_DATA) && size > bytes.size()) {
      bytes.resize(size);
      continue;
    }
    if (rc != ERROR_SUCCESS) return rc;
    bytes.resize(size);
    data->bytes = std::move(bytes);
    return rc;
  }
}

LSTATUS KeyNameAt(HKEY key, DWORD index, char *name, DWORD *length) {
  return platform::RegEnumKeyExA(key, index, name, length, nullptr, nullptr, nullptr, nullptr);
}

LSTATUS ValueNameAt(HKEY key, DWORD index, char *name, DWORD *length) {
  return platform::RegEnumValueA(key, index, name, length, nullptr, nullptr, nullptr, nullptr);
}

LSTATUS ListHiveNames(const std::string &key, NameAt nameAt, std::vector<std::string> *names) {
  constexpr DWORD kLongestName = 2 * 16383 + 1;  // of a value, in a code page of two bytes
  LSTATUS status = ERROR_SUCCESS;
  const OpenedKey opened = OpenHiveKey(key, &status);
  if (opened == nullptr) return status;
  std::string name(kLongestName, '\0');
  for (DWORD index = 0;; ++index) {
    DWORD length = kLongestName;
    status = nameAt(opened.get(), index, name.data(), &length);
    if (status == static_cast<LSTATUS>(ERROR_NO_MORE_ITEMS)) return ERROR_SUCCESS;
    if (status != ERROR_SUCCESS) return status;
    names->emplace_back(name.data(), length);
  }
}

LSTATUS SpellName(const std::string &key, NameAt nameAt, std::string *name) {
  std::vector<std::string> names;
  const LSTATUS status = ListHiveNames(key, nameAt, &names);
  const std::string folded = Folded(*name);
  for (const std::string &each : names) {
    if (each.size() == folded.size() && Folded(each) == folded) *name = each;
  }
  return status;
}
