#include "platform/machine/hive/registry_value.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/machine/hive/registry_path.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

std::string HexForPeople(const std::vector<BYTE> &bytes) {
  constexpr std::size_t kShown = 64;
  std::string text;
  char pair[4];
  for (std::size_t i = 0; i < std::min(bytes.size(), kShown); ++i) {
    std::snprintf(pair, sizeof pair, i == 0 ? "%02X" : " %02X", bytes[i]);
    text += pair;
  }
  return bytes.size() > kShown ? text + " ..." : text;
}

std::string TextsForPeople(std::u16string_view texts) {
  std::string shown;
  while (!texts.empty() && texts.front() != u'\0') {
    const std::size_t end = std::min(texts.find(u'\0'), texts.size());
    if (!shown.empty()) shown += ", ";
    shown += Utf16ToAnsi(texts.substr(0, end));
    texts.remove_prefix(std::min(end + 1, texts.size()));
  }
  return shown;
}

}  // namespace

bool IsTextType(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

std::vector<BYTE> StoredText(std::u16string_view text) {
  std::vector<BYTE> bytes;
  bytes.reserve(2 * text.size());
  for (const char16_t c : text) {
    bytes.push_back(static_cast<BYTE>(c));
    bytes.push_back(static_cast<BYTE>(c >> 8));
  }
  return bytes;
}

std::u16string WholeText(const std::vector<BYTE> &bytes) {
  std::u16string text;
  text.reserve(bytes.size() / 2);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    text.push_back(static_cast<char16_t>(bytes[i] | bytes[i + 1] << 8));
  }
  return text;
}

std::vector<BYTE> AnsiData(const StoredValue &value) {
  if (!IsTextType(value.type)) return value.bytes;
  const std::string text = Utf16ToAnsi(WholeText(value.bytes));
  return {text.begin(), text.end()};
}

std::vector<BYTE> StoredData(DWORD type, const BYTE *data, std::size_t size) {
  if (size == 0) return {};
  if (!IsTextType(type)) return {data, data + size};
  return StoredText(AnsiToUtf16(std::string_view(reinterpret_cast<const char *>(data), size)));
}

StoredValue *FindValue(std::vector<StoredValue> *values, const std::u16string &foldedName) {
  const auto found = std::find_if(values->begin(), values->end(),
                                  [&](const StoredValue &value) { return FoldKeyName(value.name) == foldedName; });
  return found == values->end() ? nullptr : &*found;
}

void PutValue(std::vector<StoredValue> *values, StoredValue value) {
  StoredValue *old = FindValue(values, FoldKeyName(value.name));
  if (old == nullptr) {
    values->push_back(std::move(value));
    return;
  }
  old->type = value.type;
  old->bytes = std::move(value.bytes);
}

std::string DataForPeople(DWORD type, const std::vector<BYTE> &bytes) {
  if (type == REG_MULTI_SZ) return TextsForPeople(WholeText(bytes));
  if (IsTextType(type)) {
    const std::u16string text = WholeText(bytes);
    return Utf16ToAnsi(std::u16string_view(text).substr(0, text.find(u'\0')));
  }
  if (type == REG_DWORD && bytes.size() == 4) {
    DWORD number = 0;
    std::memcpy(&number, bytes.data(), sizeof number);
    char text[32];
    std::snprintf(text, sizeof text, "0x%08X (%u)", number, number);
    return text;
  }
  return HexForPeople(bytes);
}

}  // namespace machine
