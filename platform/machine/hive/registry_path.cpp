#include "platform/machine/hive/registry_path.h"

#include <algorithm>
#include <clocale>
#include <cwctype>

#include "platform/text/code_page.h"

namespace machine {
namespace {

// A locale of its own, so that the host's setting does not decide which keys are the same.
locale_t UnicodeLocale() {
  static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  return locale;
}

char16_t Fold(char16_t c) {
  if (c < 0x80) return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 0x20) : c;
  const locale_t locale = UnicodeLocale();
  if (locale == nullptr) return c;
  const std::wint_t upper = towupper_l(c, locale);
  return upper <= 0xFFFF ? static_cast<char16_t>(upper) : c;
}

}  // namespace

std::u16string FoldKeyName(std::u16string_view name) {
  std::u16string folded(name);
  for (char16_t &c : folded) c = Fold(c);
  return folded;
}

std::size_t FoldedPathHash::operator()(const FoldedPath &path) const {
  std::size_t hash = path.size();
  for (const std::u16string &name : path) hash = hash * 31 + std::hash<std::u16string>()(name);
  return hash;
}

KeyPath ParseKeyPath(std::u16string_view text) {
  KeyPath path;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(u'\\'), text.size());
    if (end > 0) {
      path.names.emplace_back(text.substr(0, end));
      path.folded.push_back(FoldKeyName(path.names.back()));
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return path;
}

KeyPath ParseKeyPathA(std::string_view text) { return ParseKeyPath(AnsiToUtf16(text)); }

KeyPath JoinKeyPaths(KeyPath path, const KeyPath &more) {
  path.names.insert(path.names.end(), more.names.begin(), more.names.end());
  path.folded.insert(path.folded.end(), more.folded.begin(), more.folded.end());
  return path;
}

bool BeginsWith(const KeyPath &path, const FoldedPath &prefix) {
  return path.folded.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), path.folded.begin());
}

KeyPath KeyPathBelow(const KeyPath &path, std::size_t count) {
  const auto at = static_cast<std::ptrdiff_t>(count);
  return {{path.names.begin() + at, path.names.end()}, {path.folded.begin() + at, path.folded.end()}};
}

KeyPath KeyPathPrefix(const KeyPath &path, std::size_t count) {
  const auto at = static_cast<std::ptrdiff_t>(count);
  return {{path.names.begin(), path.names.begin() + at}, {path.folded.begin(), path.folded.begin() + at}};
}

}  // namespace machine
