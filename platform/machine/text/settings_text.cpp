#include "platform/machine/text/settings_text.h"

#include <algorithm>
#include <cstring>

#include "platform/text/code_page.h"

namespace machine {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kLineEnds = "\r\n";

std::string_view Trim(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

bool IsQuoted(std::string_view value) {
  return value.size() >= 2 && (value[0] == '"' || value[0] == '\'') && value.back() == value[0];
}

// Where a section's name ends; the character may also be the second byte of another.
std::size_t FindBracket(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size() && text[at] != ']') at += IsLeadByte(static_cast<unsigned char>(text[at])) ? 2 : 1;
  return std::min(at, text.size());
}

// The file's bytes and how they are read. Line ends, blanks, = and ; are themselves in all three encodings, never part
// of another character; so places are found in the bytes, and only names and values are converted.
struct Text {
  enum class Encoding { kAnsi, kUtf8, kUtf16 } encoding = Encoding::kAnsi;
  std::string_view bytes;
  std::size_t begin = 0, end = 0;  // of the units: without the mark, and without half a unit at the end
  std::size_t width = 1;           // of a unit
};

Text TextOf(std::string_view bytes) {
  if (bytes.starts_with("\xFF\xFE")) return {Text::Encoding::kUtf16, bytes, 2, bytes.size() & ~std::size_t{1}, 2};
  if (bytes.starts_with("\xEF\xBB\xBF")) return {Text::Encoding::kUtf8, bytes, 3, bytes.size(), 1};
  return {Text::Encoding::kAnsi, bytes, 0, bytes.size(), 1};
}

bool IsOneOf(const Text &text, std::size_t at, std::string_view characters) {
  if (text.width == 2 && text.bytes[at + 1] != 0) return false;
  return characters.find(text.bytes[at]) != std::string_view::npos;
}

// The first place from `at` to `end` that holds one of the characters, or with `wanted` false none of them; else `end`.
std::size_t Find(const Text &text, std::size_t at, std::size_t end, std::string_view characters, bool wanted = true) {
  while (at < end && IsOneOf(text, at, characters) != wanted) at += text.width;
  return at;
}

std::string Decode(const Text &text, std::size_t begin, std::size_t end) {
  const std::string_view bytes = text.bytes.substr(begin, end - begin);
  if (text.encoding == Text::Encoding::kAnsi) return std::string(bytes);
  if (text.encoding == Text::Encoding::kUtf8) return Utf8ToAnsi(bytes);
  std::u16string units(bytes.size() / 2, u'\0');
  std::memcpy(units.data(), bytes.data(), units.size() * 2);
  return Utf16ToAnsi(units);
}

std::string Encode(const Text &text, std::string_view ansi) {
  if (text.encoding == Text::Encoding::kAnsi) return std::string(ansi);
  if (text.encoding == Text::Encoding::kUtf8) return AnsiToUtf8(ansi);
  const std::u16string units = AnsiToUtf16(ansi);
  return {reinterpret_cast<const char *>(units.data()), units.size() * 2};
}

struct Line {
  std::size_t begin, end, next;  // `end` is where its line end begins, `next` where that ends
};

Line LineAt(const Text &text, std::size_t at) {
  Line line = {at, Find(text, at, text.end, kLineEnds), 0};
  line.next = line.end;
  if (line.next < text.end && IsOneOf(text, line.next, "\r")) line.next += text.width;
  if (line.next < text.end && IsOneOf(text, line.next, "\n")) line.next += text.width;
  return line;
}

bool IsSection(const Text &text, std::size_t begin, std::size_t end, std::string_view section) {
  const std::string name = Decode(text, begin + text.width, end);
  return CompareNoCase(Trim(std::string_view(name).substr(0, FindBracket(name))), section) == 0;
}

// Where a setting is, or where it would go.
struct SettingPlace {
  bool hasSection = false, found = false;
  std::size_t begin = 0, end = 0;  // of the value, when found: from its first visible character to the end of its line
  std::size_t append = 0;          // else where a new line goes
};

SettingPlace FindPlace(const Text &text, std::string_view section, std::string_view key) {
  SettingPlace place;
  for (Line line = LineAt(text, text.begin); line.begin < text.end; line = LineAt(text, line.next)) {
    const std::size_t begin = Find(text, line.begin, line.end, kBlanks, false);
    if (begin == line.end) continue;
    if (IsOneOf(text, begin, "[")) {
      if (place.hasSection) return place;
      place.hasSection = IsSection(text, begin, line.end, section);
    }
    if (!place.hasSection) continue;
    place.append = line.next;
    const std::size_t equals = Find(text, begin, line.end, "=");
    if (equals == line.end || IsOneOf(text, begin, "[;")) continue;
    if (CompareNoCase(Trim(Decode(text, begin, equals)), key) != 0) continue;
    place.found = true;
    place.begin = Find(text, equals + text.width, line.end, kBlanks, false);
    place.end = line.end;
    return place;
  }
  if (!place.hasSection) place.append = text.end;
  return place;
}

std::string_view LineEnd(const Text &text) {
  const std::size_t end = Find(text, text.begin, text.end, "\n");
  for (std::size_t at = end; at < text.end; at = Find(text, at + text.width, text.end, "\n")) {
    if (at > text.begin && IsOneOf(text, at - text.width, "\r")) return "\r\n";
  }
  return end == text.end ? "\r\n" : "\n";
}

}  // namespace

std::optional<std::string> FindSetting(std::string_view file, std::string_view section, std::string_view key) {
  const Text text = TextOf(file);
  const SettingPlace place = FindPlace(text, section, key);
  if (!place.found) return std::nullopt;
  const std::string decoded = Decode(text, place.begin, place.end);
  const std::string_view value = Trim(decoded);
  return std::string(IsQuoted(value) ? value.substr(1, value.size() - 2) : value);
}

bool CanHoldSetting(std::string_view section, std::string_view key, std::string_view value) {
  for (const std::string_view part : {section, key, value}) {
    if (part.find_first_of(kLineEnds) != std::string_view::npos) return false;
  }
  if (Trim(section) != section || FindBracket(section) != section.size()) return false;
  return !key.empty() && Trim(key) == key && key[0] != '[' && key[0] != ';' && key.find('=') == std::string_view::npos;
}

bool CanChangeSettings(std::string_view file) { return !file.starts_with("\xFE\xFF"); }

std::string WithSetting(std::string_view file, std::string_view section, std::string_view key, std::string_view value) {
  const Text text = TextOf(file);
  const SettingPlace place = FindPlace(text, section, key);
  std::string changed(file);
  if (place.found) return changed.replace(place.begin, place.end - place.begin, Encode(text, value));
  const std::string lineEnd(LineEnd(text));
  std::string added;
  if (place.append > text.begin && !IsOneOf(text, place.append - text.width, kLineEnds)) added = lineEnd;
  if (!place.hasSection) added += '[' + std::string(section) + ']' + lineEnd;
  added += std::string(key) + '=' + std::string(value) + lineEnd;
  return changed.insert(place.append, Encode(text, added));
}

}  // namespace machine
