#include "tests/support/hive_builder.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <stdexcept>

#include "platform/text/code_page.h"

namespace {

constexpr size_t kBinSize = 4096;
constexpr size_t kBinHeader = 32;
constexpr uint64_t kTime = 0x01CB8E3E29B4F000;  // 2010-11-28, any day will do

// Orders names as a subkey list is ordered.
struct NameLess {
  bool operator()(const std::u16string &a, const std::u16string &b) const {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [](char16_t x, char16_t y) { return HiveUpper(x) < HiveUpper(y); });
  }
};

struct Value {
  uint32_t type = 0;
  std::vector<uint8_t> data;
};

struct Key {
  std::map<std::u16string, Key, NameLess> children;
  std::map<std::u16string, Value, NameLess> values;
};

void Put16(std::vector<uint8_t> *bytes, size_t at, uint32_t number) {
  (*bytes)[at] = static_cast<uint8_t>(number);
  (*bytes)[at + 1] = static_cast<uint8_t>(number >> 8);
}

void Put32(std::vector<uint8_t> *bytes, size_t at, uint32_t number) {
  Put16(bytes, at, number);
  Put16(bytes, at + 2, number >> 16);
}

void PutTime(std::vector<uint8_t> *bytes, size_t at) {
  Put32(bytes, at, static_cast<uint32_t>(kTime));
  Put32(bytes, at + 4, static_cast<uint32_t>(kTime >> 32));
}

void PutTag(std::vector<uint8_t> *bytes, size_t at, const char *tag) {
  std::copy(tag, tag + std::char_traits<char>::length(tag), bytes->begin() + static_cast<std::ptrdiff_t>(at));
}

// The bins as they grow. Offsets are the hive's: relative to the first bin.
struct Bins {
  std::vector<uint8_t> bytes;
  size_t next = 0;  // where the next cell may begin

  // Turns the rest of the last bin into a free cell.
  void CloseBin() {
    if (next < bytes.size()) Put32(&bytes, next, static_cast<uint32_t>(bytes.size() - next));
    next = bytes.size();
  }

  void OpenBin(size_t room) {
    CloseBin();
    const size_t size = (kBinHeader + room + kBinSize - 1) / kBinSize * kBinSize;
    const size_t start = bytes.size();
    bytes.resize(start + size);
    PutTag(&bytes, start, "hbin");
    Put32(&bytes, start + 4, static_cast<uint32_t>(start));
    Put32(&bytes, start + 8, static_cast<uint32_t>(size));
    PutTime(&bytes, start + 20);
    next = start + kBinHeader;
  }

  uint32_t AddCell(const std::vector<uint8_t> &content) {
    const size_t size = (content.size() + 4 + 7) / 8 * 8;
    if (bytes.size() - next < size) OpenBin(size);
    const size_t at = next;
    Put32(&bytes, at, static_cast<uint32_t>(-static_cast<int32_t>(size)));
    std::copy(content.begin(), content.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at + 4));
    next += size;
    return static_cast<uint32_t>(at);
  }
};

bool IsLatin1(const std::u16string &name) {
  return std::all_of(name.begin(), name.end(), [](char16_t c) { return c < 0x100; });
}

// A name as a key or value record holds it: one byte a character when that loses nothing.
std::vector<uint8_t> NameBytes(const std::u16string &name) {
  std::vector<uint8_t> bytes;
  const bool latin1 = IsLatin1(name);
  for (const char16_t c : name) {
    bytes.push_back(static_cast<uint8_t>(c));
    if (!latin1) bytes.push_back(static_cast<uint8_t>(c >> 8));
  }
  return bytes;
}

uint32_t NameHash(const std::u16string &name) {
  uint32_t hash = 0;
  for (const char16_t c : name) hash = hash * 37 + HiveUpper(c);
  return hash;
}

uint32_t CountKeys(const Key &key) {
  uint32_t count = 1;
  for (const auto &[name, child] : key.children) count += CountKeys(child);
  return count;
}

// One security record for all keys: full control for SYSTEM and the administrators.
std::vector<uint8_t> SecurityCell(uint32_t keys) {
  const std::vector<uint8_t> system = {1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0};
  const std::vector<uint8_t> administrators = {1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0, 0x20, 2, 0, 0};
  std::vector<uint8_t> entries;
  for (const auto *sid : {&system, &administrators}) {
    const size_t start = entries.size();
    entries.resize(start + 8);
    entries[start + 1] = 2;  // inherited by subkeys
    Put16(&entries, start + 2, static_cast<uint32_t>(8 + sid->size()));
    Put32(&entries, start + 4, 0xF003F);
    entries.insert(entries.end(), sid->begin(), sid->end());
  }
  std::vector<uint8_t> descriptor(20);
  descriptor[0] = 1;
  Put16(&descriptor, 2, 0x8004);  // self-relative, with an access list
  Put32(&descriptor, 4, 20);
  Put32(&descriptor, 8, static_cast<uint32_t>(20 + administrators.size()));
  descriptor.insert(descriptor.end(), administrators.begin(), administrators.end());
  descriptor.insert(descriptor.end(), system.begin(), system.end());
  Put32(&descriptor, 16, static_cast<uint32_t>(descriptor.size()));
  std::vector<uint8_t> list(8);
  list[0] = 2;
  Put16(&list, 2, static_cast<uint32_t>(8 + entries.size()));
  Put16(&list, 4, 2);
  descriptor.insert(descriptor.end(), list.begin(), list.end());
  descriptor.insert(descriptor.end(), entries.begin(), entries.end());

  std::vector<uint8_t> cell(20);
  PutTag(&cell, 0, "sk");
  Put32(&cell, 12, keys);
  Put32(&cell, 16, static_cast<uint32_t>(descriptor.size()));
  cell.insert(cell.end(), descriptor.begin(), descriptor.end());
  return cell;
}

uint32_t AddValue(Bins *bins, const std::u16string &name, const Value &value) {
  const std::vector<uint8_t> nameBytes = NameBytes(name);
  std::vector<uint8_t> cell(20);
  PutTag(&cell, 0, "vk");
  Put16(&cell, 2, static_cast<uint32_t>(nameBytes.size()));
  const auto size = static_cast<uint32_t>(value.data.size());
  if (size <= 4) {
    Put32(&cell, 4, size | 0x80000000);
    std::copy(value.data.begin(), value.data.end(), cell.begin() + 8);
  } else {
    Put32(&cell, 4, size);
    Put32(&cell, 8, bins->AddCell(value.data));
  }
  Put32(&cell, 12, value.type);
  Put16(&cell, 16, IsLatin1(name) ? 1 : 0);
  cell.insert(cell.end(), nameBytes.begin(), nameBytes.end());
  return bins->AddCell(cell);
}

uint32_t AddValues(Bins *bins, const Key &key) {
  if (key.values.empty()) return kNoCell;
  std::vector<uint8_t> list(4 * key.values.size());
  size_t at = 0;
  for (const auto &[name, value] : key.values) {
    Put32(&list, at, AddValue(bins, name, value));
    at += 4;
  }
  return bins->AddCell(list);
}

uint32_t AddKey(Bins *bins, const std::u16string &name, const Key &key, uint32_t parent, uint32_t *security,
                uint32_t keys);

uint32_t AddChildren(Bins *bins, const Key &key, uint32_t parent, uint32_t *security) {
  if (key.children.empty()) return kNoCell;
  std::vector<uint8_t> list(4 + 8 * key.children.size());
  PutTag(&list, 0, "lh");
  Put16(&list, 2, static_cast<uint32_t>(key.children.size()));
  size_t at = 4;
  for (const auto &[name, child] : key.children) {
    Put32(&list, at, AddKey(bins, name, child, parent, security, 0));
    Put32(&list, at + 4, NameHash(name));
    at += 8;
  }
  return bins->AddCell(list);
}

// Adds the key's record first, so that its children can name it, and fills in its lists afterwards. The root (`keys`
// not 0) makes the security record that all share.
uint32_t AddKey(Bins *bins, const std::u16string &name, const Key &key, uint32_t parent, uint32_t *security,
                uint32_t keys) {
  const std::vector<uint8_t> nameBytes = NameBytes(name);
  std::vector<uint8_t> cell(76);
  PutTag(&cell, 0, "nk");
  Put16(&cell, 2, (IsLatin1(name) ? 0x20 : 0) | (keys != 0 ? 0x0C : 0));
  PutTime(&cell, 4);
  Put32(&cell, 16, parent);
  Put32(&cell, 20, static_cast<uint32_t>(key.children.size()));
  Put32(&cell, 32, kNoCell);
  Put32(&cell, 36, static_cast<uint32_t>(key.values.size()));
  Put32(&cell, 48, kNoCell);
  size_t longestKey = 0, longestName = 0, longestData = 0;
  for (const auto &[childName, child] : key.children) longestKey = std::max(longestKey, 2 * childName.size());
  for (const auto &[valueName, value] : key.values) {
    longestName = std::max(longestName, 2 * valueName.size());
    longestData = std::max(longestData, value.data.size());
  }
  Put32(&cell, 52, static_cast<uint32_t>(longestKey));
  Put32(&cell, 60, static_cast<uint32_t>(longestName));
  Put32(&cell, 64, static_cast<uint32_t>(longestData));
  Put16(&cell, 72, static_cast<uint32_t>(nameBytes.size()));
  cell.insert(cell.end(), nameBytes.begin(), nameBytes.end());
  const uint32_t at = bins->AddCell(cell);

  if (keys != 0) {
    *security = bins->AddCell(SecurityCell(keys));
    Put32(&bins->bytes, *security + 4 + 4, *security);  // the only one of its ring
    Put32(&bins->bytes, *security + 4 + 8, *security);
  }
  const uint32_t values = AddValues(bins, key);
  const uint32_t children = AddChildren(bins, key, at, security);
  Put32(&bins->bytes, at + 4 + 28, children);
  Put32(&bins->bytes, at + 4 + 40, values);
  Put32(&bins->bytes, at + 4 + 44, *security);
  return at;
}

Key *FindOrMake(Key *root, const std::u16string &path) {
  Key *key = root;
  for (size_t start = 0; start < path.size();) {
    const size_t end = std::min(path.find(u'\\', start), path.size());
    key = &key->children[path.substr(start, end - start)];
    start = end + 1;
  }
  return key;
}

}  // namespace

void SetHiveChecksum(std::vector<uint8_t> *hive) {
  uint32_t sum = 0;
  for (size_t at = 0; at < 508; at += 4) {
    sum ^= static_cast<uint32_t>((*hive)[at] | (*hive)[at + 1] << 8 | (*hive)[at + 2] << 16) |
           static_cast<uint32_t>((*hive)[at + 3]) << 24;
  }
  if (sum == 0xFFFFFFFF) sum = 0xFFFFFFFE;
  if (sum == 0) sum = 1;
  Put32(hive, 508, sum);
}

char16_t HiveUpper(char16_t c) {
  if ((c >= u'a' && c <= u'z') || (c >= 0xE0 && c <= 0xFE && c != 0xF7)) return c - 0x20;
  return c == 0xFF ? 0x178 : c;
}

std::vector<uint8_t> BuildHive(const std::vector<HiveValue> &values) {
  Key root;
  for (const HiveValue &value : values) {
    Key *key = FindOrMake(&root, machine::Utf8ToUtf16(value.key));
    if (!value.name.empty() || !value.data.empty())
      key->values[machine::Utf8ToUtf16(value.name)] = {value.type, value.data};
  }
  Bins bins;
  uint32_t security = kNoCell;
  const uint32_t rootCell = AddKey(&bins, u"ROOT", root, kNoCell, &security, CountKeys(root));
  bins.CloseBin();

  std::vector<uint8_t> hive(4096);
  PutTag(&hive, 0, "regf");
  Put32(&hive, 4, 1);
  Put32(&hive, 8, 1);
  PutTime(&hive, 12);
  Put32(&hive, 20, 1);
  Put32(&hive, 24, 5);
  Put32(&hive, 32, 1);
  Put32(&hive, 36, rootCell);
  Put32(&hive, 40, static_cast<uint32_t>(bins.bytes.size()));
  Put32(&hive, 44, 1);
  SetHiveChecksum(&hive);
  hive.insert(hive.end(), bins.bytes.begin(), bins.bytes.end());
  return hive;
}

std::vector<uint8_t> MinimalHive() { return BuildHive({}); }

void WriteHive(const std::filesystem::path &file, const std::vector<HiveValue> &values) {
  const std::vector<uint8_t> bytes = BuildHive(values);
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
}

HiveValue OnlyKey(std::string key) { return {std::move(key), "", 1, {}}; }

HiveValue TextValue(std::string key, std::string name, const std::string &utf8) {
  HiveValue value{std::move(key), std::move(name), 1, {}};
  for (const char16_t c : machine::Utf8ToUtf16(utf8) + u'\0') {
    value.data.push_back(static_cast<uint8_t>(c));
    value.data.push_back(static_cast<uint8_t>(c >> 8));
  }
  return value;
}

HiveValue NumberValue(std::string key, std::string name, uint32_t number) {
  HiveValue value{std::move(key), std::move(name), 4, std::vector<uint8_t>(4)};
  Put32(&value.data, 0, number);
  return value;
}

std::vector<HiveValue> SystemHiveValues(uint32_t current) {
  std::vector<HiveValue> values = {
      NumberValue("Select", "Current", current),
      NumberValue("Select", "Default", current),
      NumberValue("Select", "Failed", 0),
      NumberValue("Select", "LastKnownGood", current == 1 ? 2 : 1),
      NumberValue("Setup", "SystemSetupInProgress", 0),
  };
  for (const std::string set : {"ControlSet001", "ControlSet002"}) {
    const std::string disk = set + "\\Services\\disk";
    const std::string atapi = set + "\\Services\\atapi";
    const std::string critical = set + "\\Control\\CriticalDeviceDatabase";
    const std::string diskClass = set + "\\Control\\Class\\{4D36E967-E325-11CE-BFC1-08002BE10318}";
    const std::vector<HiveValue> entries = {
        NumberValue(disk, "Type", 1),
        NumberValue(disk, "Start", 0),
        NumberValue(disk, "ErrorControl", 1),
        TextValue(disk, "Group", "SCSI Class"),
        TextValue(disk, "ImagePath", "System32\\drivers\\disk.sys"),
        TextValue(disk, "DisplayName", "Disk Driver"),
        NumberValue(atapi, "Type", 1),
        NumberValue(atapi, "Start", 0),
        TextValue(atapi, "ImagePath", "System32\\drivers\\atapi.sys"),
        TextValue(critical + "\\gendisk", "ClassGUID", "{4D36E967-E325-11CE-BFC1-08002BE10318}"),
        TextValue(critical + "\\gendisk", "Service", "disk"),
        TextValue(critical + "\\primary_ide_channel", "ClassGUID", "{4D36E96A-E325-11CE-BFC1-08002BE10318}"),
        TextValue(critical + "\\primary_ide_channel", "Service", "atapi"),
        TextValue(diskClass, "Class", "DiskDrive"),
        TextValue(set + "\\Control\\ComputerName\\ComputerName", "ComputerName", "RESTORED"),
        OnlyKey(set + "\\Enum\\PCI"),
    };
    values.insert(values.end(), entries.begin(), entries.end());
  }
  return values;
}
