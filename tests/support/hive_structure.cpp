#include "tests/support/hive_structure.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <set>

#include "tests/support/hive_builder.h"

namespace {

struct Cell {
  uint32_t size = 0;  // without the size field
  bool used = false;
};

struct Walk {
  const std::vector<uint8_t> &hive;
  std::map<uint32_t, Cell> cells;         // by offset from the first bin
  std::set<uint32_t> taken;               // cells that something names
  std::map<uint32_t, uint32_t> security;  // keys that name each security cell
  std::string problem;
};

bool Fail(Walk *walk, const char *what, uint32_t at) {
  char text[128];
  std::snprintf(text, sizeof text, "%s at 0x%X", what, at);
  if (walk->problem.empty()) walk->problem = text;
  return false;
}

const uint8_t *At(const Walk &walk, uint32_t offset) { return walk.hive.data() + 4096 + offset; }
uint32_t Get16(const uint8_t *at) { return at[0] | uint32_t{at[1]} << 8; }
uint32_t Get32(const uint8_t *at) { return Get16(at) | Get16(at + 2) << 16; }

// The content of a cell in use of at least `size` bytes that nothing else names; null after a complaint.
const uint8_t *Take(Walk *walk, uint32_t offset, uint32_t size, const char *what) {
  const auto cell = walk->cells.find(offset);
  const bool good = cell != walk->cells.end() && cell->second.used && cell->second.size >= size;
  if (good && walk->taken.insert(offset).second) return At(*walk, offset) + 4;
  Fail(walk, good ? "a second reference to a cell" : what, offset);
  return nullptr;
}

bool ReadBaseBlock(Walk *walk, uint32_t *root) {
  const std::vector<uint8_t> &hive = walk->hive;
  if (hive.size() < 8192 || std::memcmp(hive.data(), "regf", 4) != 0) return Fail(walk, "no hive", 0);
  uint32_t sum = 0;
  for (size_t at = 0; at < 508; at += 4) sum ^= Get32(&hive[at]);
  if (sum == 0xFFFFFFFF) sum = 0xFFFFFFFE;
  if (sum == 0) sum = 1;
  if (sum != Get32(&hive[508])) return Fail(walk, "a wrong checksum", 508);
  if (Get32(&hive[4]) != Get32(&hive[8])) return Fail(walk, "two sequence numbers", 4);
  if (Get32(&hive[28]) != 0) return Fail(walk, "another type of file", 28);
  if (4096 + uint64_t{Get32(&hive[40])} > hive.size()) return Fail(walk, "bins past the end", 40);
  *root = Get32(&hive[36]);
  return true;
}

bool ReadBins(Walk *walk) {
  const uint32_t end = Get32(&walk->hive[40]);
  for (uint32_t bin = 0; bin < end;) {
    const uint8_t *head = At(*walk, bin);
    const uint32_t size = Get32(head + 8);
    const bool good = std::memcmp(head, "hbin", 4) == 0 && Get32(head + 4) == bin && size != 0 && size % 4096 == 0;
    if (!good || size > end - bin) return Fail(walk, "a bad bin", bin);
    for (uint32_t at = bin + 32; at < bin + size;) {
      const auto length = static_cast<int32_t>(Get32(At(*walk, at)));
      const uint32_t room = length < 0 ? 0 - static_cast<uint32_t>(length) : static_cast<uint32_t>(length);
      if (room < 8 || room % 8 != 0 || room > bin + size - at) return Fail(walk, "a bad cell", at);
      walk->cells[at] = {room - 4, length < 0};
      at += room;
    }
    bin += size;
  }
  return true;
}

// A name in upper case, of `size` bytes in the record.
std::u16string Name(const uint8_t *at, uint32_t size, bool latin1) {
  std::u16string name;
  for (uint32_t i = 0; i < size; i += latin1 ? 1 : 2) {
    name += HiveUpper(static_cast<char16_t>(latin1 ? at[i] : Get16(at + i)));
  }
  return name;
}

struct Child {
  uint32_t key;
  char kind;  // of its list: 'i' none, 'f' hint, 'h' hash
  uint32_t check;
};

bool ReadList(Walk *walk, uint32_t list, bool mayNest, std::vector<Child> *children) {
  const uint8_t *at = Take(walk, list, 4, "no list of subkeys");
  if (at == nullptr) return false;
  const uint32_t count = Get16(at + 2), room = walk->cells[list].size;
  const char kind = static_cast<char>(at[1]);
  if (mayNest && std::memcmp(at, "ri", 2) == 0) {
    if (4 + 4 * count > room) return Fail(walk, "a list longer than its cell", list);
    for (uint32_t i = 0; i < count; ++i) {
      if (!ReadList(walk, Get32(at + 4 + 4 * i), false, children)) return false;
    }
    return true;
  }
  if (at[0] != 'l' || (kind != 'i' && kind != 'f' && kind != 'h')) return Fail(walk, "an unknown list", list);
  const uint32_t step = kind == 'i' ? 4 : 8;
  if (4 + step * count > room) return Fail(walk, "a list longer than its cell", list);
  for (uint32_t i = 0; i < count; ++i) {
    const uint8_t *entry = at + 4 + step * i;
    children->push_back({Get32(entry), kind, kind == 'i' ? 0 : Get32(entry + 4)});
  }
  return true;
}

bool MatchesName(const Child &child, const uint8_t *record, uint32_t size, bool latin1) {
  if (child.kind == 'h') {
    uint32_t hash = 0;
    for (const char16_t c : Name(record, size, latin1)) hash = hash * 37 + c;
    return hash == child.check;
  }
  if (child.kind != 'f') return true;
  for (uint32_t i = 0; i < 4; ++i) {  // the first characters, as they are; zero where the name is shorter or wider
    const uint32_t c = i * (latin1 ? 1 : 2) < size ? (latin1 ? record[i] : Get16(record + 2 * i)) : 0;
    const uint32_t hint = child.check >> 8 * i & 0xFF;
    if (hint != 0 && HiveUpper(static_cast<char16_t>(hint)) != HiveUpper(static_cast<char16_t>(c))) return false;
  }
  return true;
}

bool ReadData(Walk *walk, uint32_t value, uint32_t size, uint32_t data) {
  if ((size & 0x80000000) != 0) return (size & 0x7FFFFFFF) <= 4 || Fail(walk, "data too long for its record", value);
  if (size == 0) return true;
  if (size <= 16344) return Take(walk, data, size, "no data") != nullptr;
  const uint8_t *head = Take(walk, data, 8, "no data");
  if (head == nullptr) return false;
  if (std::memcmp(head, "db", 2) != 0) return walk->cells[data].size >= size || Fail(walk, "data too short", data);
  const uint32_t count = Get16(head + 2);
  const uint8_t *list = Take(walk, Get32(head + 4), 4 * count, "no list of data");
  for (uint32_t i = 0; list != nullptr && i < count; ++i) {
    if (Take(walk, Get32(list + 4 * i), 1, "no part of the data") == nullptr) return false;
  }
  return list != nullptr;
}

bool ReadValues(Walk *walk, const uint8_t *key) {
  const uint32_t count = Get32(key + 36);
  if (count == 0) return true;
  const uint8_t *list = Take(walk, Get32(key + 40), 4 * count, "no list of values");
  for (uint32_t i = 0; list != nullptr && i < count; ++i) {
    const uint32_t value = Get32(list + 4 * i);
    const uint8_t *at = Take(walk, value, 20, "no value");
    if (at == nullptr) return false;
    if (std::memcmp(at, "vk", 2) != 0 || 20 + Get16(at + 2) > walk->cells[value].size) {
      return Fail(walk, "a bad value", value);
    }
    if (!ReadData(walk, value, Get32(at + 4), Get32(at + 8))) return false;
  }
  return list != nullptr;
}

bool ReadKey(Walk *walk, const Child &self, uint32_t parent, std::u16string *name);

bool ReadSubkeys(Walk *walk, uint32_t offset, const uint8_t *key) {
  std::vector<Child> children;
  const uint32_t count = Get32(key + 20);
  if (count != 0 && !ReadList(walk, Get32(key + 28), true, &children)) return false;
  if (children.size() != count) return Fail(walk, "another number of subkeys", offset);
  std::u16string before, name;
  for (size_t i = 0; i < children.size(); ++i) {
    if (!ReadKey(walk, children[i], offset, &name)) return false;
    if (i != 0 && name <= before) return Fail(walk, "subkeys out of order", children[i].key);
    before = name;
  }
  return true;
}

bool ReadKey(Walk *walk, const Child &self, uint32_t parent, std::u16string *name) {
  const uint8_t *key = Take(walk, self.key, 76, "no key");
  if (key == nullptr) return false;
  const uint32_t flags = Get16(key + 2), nameSize = Get16(key + 72);
  const bool isRoot = parent == kNoCell, latin1 = (flags & 0x20) != 0;
  if (std::memcmp(key, "nk", 2) != 0 || 76 + nameSize > walk->cells[self.key].size) {
    return Fail(walk, "a bad key", self.key);
  }
  if (isRoot != ((flags & 0x04) != 0)) return Fail(walk, "a key that is root in one place only", self.key);
  if (!isRoot && Get32(key + 16) != parent) return Fail(walk, "a key with another parent", self.key);
  if (!MatchesName(self, key + 76, nameSize, latin1)) return Fail(walk, "a wrong hash", self.key);
  *name = Name(key + 76, nameSize, latin1);
  ++walk->security[Get32(key + 44)];
  if (Get16(key + 74) != 0 && Take(walk, Get32(key + 48), Get16(key + 74), "no class name") == nullptr) return false;
  return ReadValues(walk, key) && ReadSubkeys(walk, self.key, key);
}

bool CheckSecurity(Walk *walk) {
  for (const auto &[offset, keys] : walk->security) {
    const uint8_t *at = Take(walk, offset, 20, "no security record");
    if (at == nullptr) return false;
    if (std::memcmp(at, "sk", 2) != 0) return Fail(walk, "a bad security record", offset);
    if (Get32(at + 12) != keys) return Fail(walk, "a wrong reference count", offset);
    for (const uint32_t link : {4u, 8u}) {
      const uint32_t other = Get32(at + link);
      const auto cell = walk->cells.find(other);
      if (cell == walk->cells.end() || !cell->second.used || Get32(At(*walk, other) + 4 + (12 - link)) != offset) {
        return Fail(walk, "a broken ring of security records", offset);
      }
    }
  }
  return true;
}

}  // namespace

std::string HiveProblem(const std::vector<uint8_t> &hive) {
  Walk walk = {hive, {}, {}, {}, ""};
  uint32_t root = 0;
  std::u16string name;
  if (ReadBaseBlock(&walk, &root) && ReadBins(&walk) && ReadKey(&walk, {root, 'i', 0}, kNoCell, &name)) {
    CheckSecurity(&walk);
  }
  return walk.problem;
}
