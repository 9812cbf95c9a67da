#include "package/plan/registry_lines.h"

#include <algorithm>

#include "package/read/numbers.h"
#include "platform/inf/inf_file.h"
#include "registry/edit_keys.h"

namespace package {
namespace {

// Flags of AddReg and DelReg lines.
constexpr DWORD kBinary = 0x1, kNoClobber = 0x2, kDeleteValue = 0x4, kAppend = 0x8, kKeyOnly = 0x10;
constexpr DWORD kOverwriteOnly = 0x20, kKeyOnlyCommon = 0x2000, kDeleteString = 0x18002;
// Where the type stands: 0 in the upper half is a text or bytes, 1 a list or a number, 2 an expanded text or nothing.
constexpr DWORD kTypeShift = 16;
constexpr DWORD kSetBits = 0x1;  // of BitReg lines

constexpr DWORD kRegLink = 6;

bool ParseBytes(const std::vector<std::string> &fields, std::string *bytes) {
  for (const std::string &field : fields) {
    char byte = 0;
    if (field.empty()) continue;
    if (!ParseByte(field, &byte)) return false;
    *bytes += byte;
  }
  return true;
}

bool Fail(const char *text, std::string *problem) {
  *problem = text;
  return false;
}

// Flags: none is 0, and so is a word, such as the name of a type; a token that the file does not define is unknown.
bool ReadFlags(const std::string &text, DWORD *flags, std::string *problem) {
  *flags = 0;
  if (text.empty() || ParseNumber(text, flags)) return true;
  if (text.front() == '%') return Fail("its flags are a token that is not defined", problem);
  *flags = 0;
  *problem = "its flags are no number and count as 0";
  return true;
}

bool ReadNumber(const std::vector<std::string> &fields, RegistryData *data) {
  DWORD number = 0;
  if (fields.size() == sizeof number) {
    std::string bytes;
    if (!ParseBytes(fields, &bytes) || bytes.size() != sizeof number) return false;
    *data = BytesData(bytes, REG_DWORD);
    return true;
  }
  if (fields.empty() || !ParseNumber(fields.front(), &number)) return false;
  *data = NumberData(number);
  return true;
}

bool ReadTexts(const std::vector<std::string> &fields, DWORD kind, RegistryChange *change, std::string *problem) {
  const std::string first = fields.empty() ? std::string() : fields.front();
  switch (kind) {
    case 0:
      change->data = TextData(first);
      return true;
    case 1:
      for (const std::string &field : fields) {
        if (!field.empty()) change->texts.push_back(field);
      }
      change->data = ListData(change->texts);
      return true;
    case 2:
      change->data = TextData(first, REG_EXPAND_SZ);
      return true;
    default:
      return Fail("its flags name no type", problem);
  }
}

bool ReadBytes(const std::vector<std::string> &fields, DWORD kind, RegistryChange *change, std::string *problem) {
  if (kind == 1) return ReadNumber(fields, &change->data) || Fail("its data is no number of 32 bits", problem);
  DWORD type = kind;
  if (kind == 0) type = REG_BINARY;
  if (kind == 2) type = REG_NONE;
  // The ANSI calls would convert the bytes of a text; a link needs a key that is made for it.
  if (type == REG_SZ || type == REG_MULTI_SZ || type == kRegLink) {
    return Fail("its data is of a type that is not given as bytes", problem);
  }
  std::string bytes;
  if (!ParseBytes(fields, &bytes)) return Fail("its data is no list of bytes", problem);
  change->data = BytesData(bytes, type);
  return true;
}

bool ReadAdded(const RegistryLine &line, DWORD flags, RegistryChange *change, std::string *problem) {
  using Kind = RegistryChange::Kind;
  change->onlyMissing = (flags & kNoClobber) != 0;
  change->onlyPresent = (flags & kOverwriteOnly) != 0;
  if ((flags & kDeleteValue) != 0) {
    change->kind = line.name.empty() ? Kind::kDeleteKey : Kind::kDeleteValue;
    return true;
  }
  if ((flags & (kKeyOnly | kKeyOnlyCommon)) != 0) {
    change->kind = Kind::kCreateKey;
    return true;
  }
  const DWORD kind = flags >> kTypeShift;
  if ((flags & kBinary) != 0) return ReadBytes(line.data, kind, change, problem);
  if (!ReadTexts(line.data, kind, change, problem)) return false;
  if ((flags & kAppend) == 0) return true;
  if (change->data.type == REG_MULTI_SZ) {
    change->kind = Kind::kAppendTexts;
  } else {
    *problem = "it appends to what is no list, and replaces it";
  }
  return true;
}

bool ReadDeleted(const RegistryLine &line, DWORD flags, RegistryChange *change) {
  using Kind = RegistryChange::Kind;
  const bool wholeKey = line.name.empty() || (flags & kKeyOnlyCommon) != 0;
  change->kind = wholeKey ? Kind::kDeleteKey : Kind::kDeleteValue;
  if ((flags & kDeleteString) != kDeleteString) return true;
  change->kind = Kind::kDeleteText;
  if (!line.data.empty()) change->texts.push_back(line.data.front());
  return true;
}

bool ReadBits(const RegistryLine &line, DWORD flags, RegistryChange *change, std::string *problem) {
  change->kind = RegistryChange::Kind::kBits;
  change->setBits = (flags & kSetBits) != 0;
  char mask = 0;
  if (line.data.size() < 2 || !ParseByte(line.data[0], &mask) || !ParseNumber(line.data[1], &change->byte)) {
    return Fail("it names no bits of a byte", problem);
  }
  change->mask = static_cast<BYTE>(mask);
  return true;
}

// The texts of a value that may be a single text.
std::vector<std::string> OldTexts(bool present, const RegistryData &old) {
  const bool texts = old.type == REG_MULTI_SZ || old.type == REG_SZ || old.type == REG_EXPAND_SZ;
  return present && texts ? ListTexts({REG_MULTI_SZ, old.bytes}) : std::vector<std::string>();
}

bool Append(const std::vector<std::string> &texts, bool present, const RegistryData &old, RegistryData *changed) {
  std::vector<std::string> all = OldTexts(present, old);
  machine::NameTable<bool> known;
  for (const std::string &text : all) known.emplace(text, true);
  const std::size_t before = all.size();
  for (const std::string &text : texts) {
    if (known.emplace(text, true).second) all.push_back(text);
  }
  if (all.size() == before && present) return false;
  *changed = ListData(all);
  return true;
}

bool DeleteText(const std::vector<std::string> &texts, const RegistryData &old, RegistryData *changed) {
  if (old.type != REG_MULTI_SZ || texts.empty()) return false;
  std::vector<std::string> rest = ListTexts(old);
  const auto same = [&](const std::string &text) { return machine::SameName(text, texts.front()); };
  if (std::erase_if(rest, same) == 0) return false;
  *changed = ListData(rest);
  return true;
}

bool ChangeBits(const RegistryChange &change, const RegistryData &old, RegistryData *changed) {
  if ((old.type != REG_BINARY && old.type != REG_DWORD) || change.byte >= old.bytes.size()) return false;
  *changed = old;
  char &byte = changed->bytes[change.byte];
  byte = static_cast<char>(change.setBits ? byte | change.mask : byte & ~change.mask);
  return changed->bytes != old.bytes;
}

// Bytes that a hive keeps: texts are in UTF-16 there.
std::size_t StoredSize(const RegistryData &data) {
  const bool text = data.type == REG_SZ || data.type == REG_EXPAND_SZ || data.type == REG_MULTI_SZ;
  return text ? 2 * data.bytes.size() : data.bytes.size();
}

bool IsKeyName(const std::string &name) {
  if (name == "." || name == "..") return false;
  const auto control = [](char c) { return static_cast<BYTE>(c) < ' '; };
  return name.size() <= kKeyNameMax && std::none_of(name.begin(), name.end(), control);
}

}  // namespace

bool ReadRegistryLine(const RegistryLine &line, RegistryChange *change, std::string *problem) {
  DWORD flags = 0;
  if (!ReadFlags(line.flagsText, &flags, problem)) return false;
  const auto control = [](char c) { return static_cast<BYTE>(c) < ' '; };
  if (line.name.size() > kValueNameMax || std::any_of(line.name.begin(), line.name.end(), control)) {
    return Fail("it names a value as none can be named", problem);
  }
  switch (line.verb) {
    case RegistryVerb::kAdd:
      return ReadAdded(line, flags, change, problem);
    case RegistryVerb::kDelete:
      return ReadDeleted(line, flags, change);
    case RegistryVerb::kBits:
      return ReadBits(line, flags, change, problem);
  }
  return false;
}

bool KeyComponents(const std::string &path, std::vector<std::string> *components) {
  *components = KeyNames(path);
  return components->size() <= kKeyLevels && std::all_of(components->begin(), components->end(), IsKeyName);
}

std::string JoinComponents(const std::vector<std::string> &components) {
  std::string path;
  for (const std::string &name : components) path += (path.empty() ? "" : "\\") + name;
  return path;
}

bool ChangedValue(const RegistryChange &change, bool present, const RegistryData &old, RegistryData *changed) {
  if (present ? change.onlyMissing : change.onlyPresent) return false;
  switch (change.kind) {
    case RegistryChange::Kind::kSetValue:
      *changed = change.data;
      return true;
    case RegistryChange::Kind::kAppendTexts:
      return Append(change.texts, present, old, changed);
    case RegistryChange::Kind::kDeleteText:
      return present && DeleteText(change.texts, old, changed);
    case RegistryChange::Kind::kBits:
      return present && ChangeBits(change, old, changed);
    default:
      return false;
  }
}

bool PlanChange(const RegistryChange &change, const std::string &key, const std::string &name, RegistryEdits *edits) {
  switch (change.kind) {
    case RegistryChange::Kind::kCreateKey:
      CreateKey(edits, key);
      return true;
    case RegistryChange::Kind::kDeleteKey:
      DeleteKey(edits, key);
      return true;
    case RegistryChange::Kind::kDeleteValue:
      DeleteValue(edits, key, name);
      return true;
    default:
      break;
  }
  RegistryData old, changed;
  const bool present = ReadValue(*edits, key, name, &old);
  if (!ChangedValue(change, present, old, &changed)) return true;
  if (StoredSize(changed) > kValueBytesMax) return false;
  SetValue(edits, key, name, changed);
  return true;
}

}  // namespace package
