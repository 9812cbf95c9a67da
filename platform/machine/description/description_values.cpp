#include "platform/machine/description/description_values.h"

#include <algorithm>
#include <cctype>

#include "platform/machine/base/file_kind.h"

namespace machine::description {
namespace {

namespace fs = std::filesystem;

// How many letters must be changed, added or left out to make `b` of `a`.
std::size_t Distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); j++) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); i++) {
    std::size_t corner = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); j++) {
      const std::size_t above = row[j];
      row[j] = std::min({above + 1, row[j - 1] + 1, corner + (a[i - 1] == b[j - 1] ? 0 : 1)});
      corner = above;
    }
  }
  return row[b.size()];
}

std::string SuggestKey(std::string_view name, const std::vector<Key> &keys) {
  std::string all;
  for (const Key &key : keys) {
    if (name.size() < 64 && Distance(name, key.name) <= 2) return std::string("; did you mean ") + key.name + "?";
    all += (all.empty() ? "" : ", ") + std::string(key.name);
  }
  return "; remove it, or use one of: " + all;
}

}  // namespace

void ThrowFault(const Value &value, const std::string &text) {
  throw Fault{value.node->source().begin.line, value.key, text};
}

std::string MemberKey(const std::string &table, std::string_view name) {
  const bool bare = !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-';
  });
  const std::string shown = bare ? std::string(name) : "'" + std::string(name) + "'";
  return table.empty() ? shown : table + "." + shown;
}

const toml::table &AsTable(const Value &value) {
  const toml::table *table = value.node->as_table();
  if (table == nullptr) ThrowFault(value, "must be a table");
  return *table;
}

void ReadTable(const Value &value, const std::vector<Key> &keys) {
  const toml::table &table = AsTable(value);
  for (const auto &[name, node] : table) {
    const Value member{&node, MemberKey(value.key, name.str())};
    const std::string_view spelled = name.str();
    const auto key = std::find_if(keys.begin(), keys.end(), [&](const Key &k) { return spelled == k.name; });
    if (key == keys.end()) {
      const unsigned line = name.source().begin.line;
      throw Fault{line, member.key, "unknown key" + SuggestKey(spelled, keys)};
    }
    key->read(member);
  }
  for (const Key &key : keys) {
    if (key.required && !table.contains(key.name))
      ThrowFault({value.node, MemberKey(value.key, key.name)}, "is missing; add it");
  }
}

// Calls `read` for each element of an array.
void ReadArray(const Value &value, const char *what, const std::function<void(const Value &)> &read) {
  const toml::array *array = value.node->as_array();
  if (array == nullptr) ThrowFault(value, std::string("must be an array of ") + what);
  for (const toml::node &node : *array) read({&node, value.key});
}

void ReadTables(const Value &value, const std::function<void(const Value &)> &read) {
  if (value.node->is_table()) ThrowFault(value, "must be an array of tables; write [[" + value.key + "]]");
  ReadArray(value, "tables", read);
}

std::string Utf8Text(const Value &value) {
  const auto text = value.node->value_exact<std::string>();
  if (!text) ThrowFault(value, "must be a text in quotes");
  if (text->find('\0') != std::string::npos) ThrowFault(value, "holds a NUL character; remove it");
  return *text;
}

std::string TextReader::Convert(const Value &value, const std::string &utf8) const {
  std::string text = Utf8ToAnsi(utf8, codePage);
  if (AnsiToUtf8(text, codePage) == utf8) return text;
  ThrowFault(value, "holds a character that code page " + std::to_string(codePage) +
                        " lacks; use other characters or another system.code_page");
}

std::function<void(const Value &)> TextReader::To(std::string *text) const {
  return [*this, text](const Value &value) { *text = (*this)(value); };
}

std::function<void(const Value &)> TextReader::ToList(std::vector<std::string> *texts) const {
  return [*this, texts](const Value &value) {
    ReadArray(value, "texts", [&](const Value &element) {
      texts->push_back((*this)(element));
      if (texts->back().empty()) ThrowFault(element, "holds an empty text, which would end the list; remove it");
    });
  };
}

std::int64_t Integer(const Value &value, std::int64_t least, std::int64_t most) {
  const auto number = value.node->value_exact<std::int64_t>();
  if (!number) ThrowFault(value, "must be a whole number");
  if (*number < least || *number > most) {
    ThrowFault(value, "is " + std::to_string(*number) + "; it must be from " + std::to_string(least) + " to " +
                          std::to_string(most));
  }
  return *number;
}

std::vector<BYTE> HexBytes(const Value &value) {
  const std::string text = Utf8Text(value);
  std::vector<BYTE> bytes;
  const auto digit = [&](std::size_t at) {
    const char c = at < text.size() ? text[at] : '\0';
    if (c >= '0' && c <= '9') return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    if (lower >= 'a' && lower <= 'f') return lower - 'a' + 10;
    ThrowFault(value, "must be pairs of hexadecimal digits, such as '01 02 AB'");
  };
  for (std::size_t i = 0; i < text.size();) {
    if (text[i] == ' ') {
      i++;
      continue;
    }
    bytes.push_back(static_cast<BYTE>(digit(i) << 4 | digit(i + 1)));
    i += 2;
  }
  return bytes;
}

fs::path HostPath(const Value &value, const fs::path &directory, bool wantDirectory) {
  const std::string text = Utf8Text(value);
  std::error_code error;
  const fs::path path = fs::canonical(directory / fs::path(text), error);
  if (text.empty() || error) {
    ThrowFault(value, "there is no \"" + (directory / text).string() + "\"; make it or correct the path");
  }
  const fs::file_type type = fs::status(path, error).type();
  const bool fits =
      wantDirectory ? type == fs::file_type::directory : type == fs::file_type::regular || type == fs::file_type::block;
  if (!fits) {
    ThrowFault(value,
               "\"" + path.string() + "\" " + FileKind(type) + "; name a " + (wantDirectory ? "directory" : "file"));
  }
  return path;
}

}  // namespace machine::description
