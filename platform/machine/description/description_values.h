// Reads the values of the TOML file that describes a machine, and its tables by lists of their keys. Whatever is not on
// a list, or is of another type or out of its range, ends the reading: a Fault is thrown.
#pragma once

#include <toml++/toml.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/platform.h"
#include "platform/text/code_page.h"

namespace machine::description {

// A place in the file: a value and the key that leads to it.
struct Value {
  const toml::node *node;
  std::string key;
};

// What ends the reading.
struct Fault {
  unsigned line;
  std::string key, text;
};

[[noreturn]] void ThrowFault(const Value &value, const std::string &text);

// The names of one table's keys, and what each one's value becomes.
struct Key {
  const char *name;
  std::function<void(const Value &)> read;
  bool required = false;
};

inline constexpr bool kRequired = true;

// --- Tables ---------------------------------------------------------------------------------------------------------

// The key of a table's member, as people write it.
std::string MemberKey(const std::string &table, std::string_view name);

const toml::table &AsTable(const Value &value);

void ReadTable(const Value &value, const std::vector<Key> &keys);

// Calls `read` for each element of an array; `what` says for people what those are.
void ReadArray(const Value &value, const char *what, const std::function<void(const Value &)> &read);

void ReadTables(const Value &value, const std::function<void(const Value &)> &read);

// --- Values ---------------------------------------------------------------------------------------------------------

// Any text without NUL.
std::string Utf8Text(const Value &value);

// A text in the code page that is the machine's; it must be a known one.
struct TextReader {
  unsigned codePage = kDefaultCodePage;

  std::string operator()(const Value &value) const { return Convert(value, Utf8Text(value)); }
  std::string Convert(const Value &value, const std::string &utf8) const;
  std::function<void(const Value &)> To(std::string *text) const;
  std::function<void(const Value &)> ToList(std::vector<std::string> *texts) const;
};

std::int64_t Integer(const Value &value, std::int64_t least, std::int64_t most);

inline constexpr std::int64_t kMost16 = 0xFFFF, kMost32 = 0xFFFFFFFF, kMost64 = INT64_MAX;

template <typename Number>
std::function<void(const Value &)> To(Number *number, std::int64_t most, std::int64_t least = 0) {
  return [=](const Value &value) { *number = static_cast<Number>(Integer(value, least, most)); };
}

// Pairs of hexadecimal digits; blanks may stand between the pairs.
std::vector<BYTE> HexBytes(const Value &value);

// A host path, relative to the machine file's directory.
std::filesystem::path HostPath(const Value &value, const std::filesystem::path &directory, bool wantDirectory);

}  // namespace machine::description
