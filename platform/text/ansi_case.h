// Letter case of names in the ANSI code page: the one rule for files, INF files, devices and settings. Names of the
// registry are UTF-16 and have a rule of their own (platform/machine/hive/registry_path.h).
//
// What a character's upper case is, each code page says (ToUpper in code_page.h). ASCII, which is the usual case, is
// answered here without asking it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace machine {

constexpr bool IsAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }
constexpr char UpperAscii(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c; }
constexpr bool IsAsciiLetter(char c) { return UpperAscii(c) >= 'A' && UpperAscii(c) <= 'Z'; }

// The name in upper case: names that differ in case alone become equal.
std::string FoldAnsiName(std::string_view name);
// The same of a name in UTF-8. What the code page lacks becomes "?", which no name looked up can hold.
std::string FoldName(std::string_view utf8Name);

bool SameName(std::string_view a, std::string_view b);
// For texts in UTF-8 that are not looked up on a machine: the case of ASCII letters alone does not count.
bool SameUtf8(std::string_view a, std::string_view b);
std::uint32_t HashName(std::string_view name);  // equal for the same names

// For tables that are looked up by name.
struct NameHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view name) const { return HashName(name); }
};
struct NameEqual {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const { return SameName(a, b); }
};
template <typename Value>
using NameTable = std::unordered_map<std::string, Value, NameHash, NameEqual>;

}  // namespace machine
